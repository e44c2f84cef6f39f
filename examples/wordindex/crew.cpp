#include "crew.h"

#include "messages.h"
#include "worker.h"

#include <algorithm>

namespace wordindex {

namespace {

std::wstring OwnProgram()
{
    std::wstring path(4096, L'\0');
    uint32_t size = static_cast<uint32_t>(path.size());
    if (VornProcGetExecutableName(nullptr, path.data(), &size) != VORN_OK) return {};
    path.resize(size);
    return path;
}

// Exit codes of workers are statuses, unless somebody else ended them.
bool IsStatus(uint32_t code)
{
    return code >= VORN_E_SYSTEM && code <= VORN_E_BAD_IMAGE;
}

}  // namespace

Crew::~Crew()
{
    Kill();
}

VornPPid* Crew::StartOne(const std::wstring& program, VornProcEnv* env, int32_t number)
{
    const VornStatus status = VornProcEnvSet(env, kWorkerVariable, std::to_wstring(number).c_str());
    if (status != VORN_OK) {
        Complain(L"a worker's environment", status);
        return nullptr;
    }
    VornPPid* process = VornProcCreate(program.c_str(), kWorkerArgument, env, nullptr, 0, VORN_PROC_NO_WINDOW,
                                       0, nullptr, nullptr);
    if (process == nullptr) Complain(L"worker " + std::to_wstring(number), VornGetLastError());
    return process;
}

void Crew::Start(const std::wstring& heapName, uint64_t heapBytes, uint32_t workers, uint32_t threads)
{
    VornProcEnv* env = VornProcEnvAlloc(VORN_ENV_COPY);
    if (env == nullptr) {
        Complain(L"the workers' environment", VornGetLastError());
        someFailed_ = true;
        return;
    }
    VornProcEnvSet(env, kHeapVariable, heapName.c_str());
    VornProcEnvSet(env, kSizeVariable, std::to_wstring(heapBytes).c_str());
    VornProcEnvSet(env, kThreadsVariable, std::to_wstring(threads).c_str());
    VornProcEnvSet(env, kParentVariable,
                   std::to_wstring(VornProcPPid2Native(VornProcGetCurrentPPid())).c_str());
    const std::wstring program = OwnProgram();
    for (uint32_t number = 0; number < workers; ++number) {
        VornPPid* process = StartOne(program, env, static_cast<int32_t>(number));
        if (process != nullptr) workers_.push_back({process, static_cast<int32_t>(number)});
        someFailed_ |= process == nullptr;
    }
    VornProcEnvFree(env);
}

size_t Crew::Running() const
{
    return static_cast<size_t>(std::count_if(workers_.begin(), workers_.end(),
                                             [](const Worker& worker) { return worker.process != nullptr; }));
}

void Crew::NoteEnd(Worker* worker)
{
    uint32_t code = 0;
    const VornStatus status = VornProcGetExitCode(worker->process, &code);
    VornProcFreePPid(worker->process);
    worker->process = nullptr;
    const bool finished = index_->Header().workers[worker->number].finished != 0;
    if (finished && status == VORN_OK && code == 0) return;
    someFailed_ = true;
    const std::wstring name = L"worker " + std::to_wstring(worker->number);
    if (status == VORN_OK && IsStatus(code)) {
        Complain(name, code);
    } else {
        Complain(name, "it was ended from outside; the others go on", VORN_E_STOPPED);
    }
    if (!index_->ReleaseLocksOf(worker->number)) {
        heapIsLost_ = true;
        index_->Header().stop = 1;
    }
    // The files that it had are nobody's any more.
    for (uint32_t i = 0; FileEntry* file = index_->Table().FileAt(i); ++i) {
        const int32_t state = file->state;
        if (file->worker != worker->number || (state != kFileTaken && state != kFileMerging)) continue;
        file->status = VORN_E_STOPPED;
        file->state = kFileFailed;
    }
}

size_t Crew::Watch(uint32_t timeoutMs)
{
    // The first that runs is waited for; the others are asked.
    for (Worker& worker : workers_) {
        if (worker.process == nullptr) continue;
        if (VornProcWaitForTerm(worker.process, timeoutMs) == VORN_OK) NoteEnd(&worker);
        timeoutMs = 0;
    }
    return Running();
}

void Crew::Kill()
{
    for (Worker& worker : workers_) {
        if (worker.process == nullptr) continue;
        VornProcKill(worker.process);
        NoteEnd(&worker);
    }
}

}  // namespace wordindex
