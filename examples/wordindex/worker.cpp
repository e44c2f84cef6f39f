#include "worker.h"

#include "read_words.h"
#include "shared_index.h"

#include <new>
#include <string>
#include <vector>

namespace wordindex {

namespace {

// Files are merged together until they have so many different words or bytes.
constexpr size_t kWordsOfABatch = 16384;
constexpr uint64_t kBytesOfABatch = 1 << 20;

struct Job {
    SharedIndex* index;
    int32_t worker;
};

std::wstring Variable(const wchar_t* name)
{
    wchar_t value[256];
    uint32_t size = 256;
    return VornProcGetVar(name, value, &size) == VORN_OK ? value : L"";
}

uint64_t NumberVariable(const wchar_t* name)
{
    uint64_t number = 0;
    for (const wchar_t digit : Variable(name)) {
        if (digit < L'0' || digit > L'9') return 0;
        number = number * 10 + static_cast<uint64_t>(digit - L'0');
    }
    return number;
}

// The files whose words are in the counter and not yet in the index.
class Batch {
public:
    explicit Batch(const Job& job) : job_(job), arena_(job.index->MakeArena(job.worker)) {}

    void Read(FileEntry* file)
    {
        file->worker = job_.worker;
        file->state = kFileTaken;
        const wchar_t* name = job_.index->Table().NameOf(*file);
        const ReadResult result =
            name == nullptr ? ReadResult{VORN_E_BAD_DATA, false} : ReadWords(name, &counter_);
        files_.push_back({file, result});
        bytes_ += file->size;
    }

    bool IsFull() const { return counter_.Distinct() >= kWordsOfABatch || bytes_ >= kBytesOfABatch; }

    void Merge()
    {
        for (const Part& part : files_) part.file->state = kFileMerging;
        IndexHeader& header = job_.index->Header();
        const VornStatus merged = job_.index->Merge(counter_, job_.worker, &arena_);
        // A full heap still counts the words that it has.
        if (merged != VORN_OK && merged != VORN_E_NO_MEMORY) header.stop = 1;
        for (const Part& part : files_) {
            const VornStatus status = part.result.status != VORN_OK ? part.result.status : merged;
            part.file->status = status;
            part.file->state = status != VORN_OK       ? kFileFailed
                               : part.result.illFormed ? kFileIllFormed
                                                       : kFileCounted;
            header.filesDone.fetch_add(1);
        }
        header.kibDone.fetch_add(static_cast<int32_t>(bytes_ / 1024));
        files_.clear();
        counter_.Clear();
        bytes_ = 0;
    }

private:
    struct Part {
        FileEntry* file;
        ReadResult result;
    };

    const Job& job_;
    Arena arena_;
    WordCounter counter_;
    std::vector<Part> files_;
    uint64_t bytes_ = 0;
};

void CountFiles(const Job& job)
{
    Batch batch(job);
    IndexHeader& header = job.index->Header();
    while (header.stop == 0) {
        FileEntry* file = job.index->Table().FileAt(static_cast<uint32_t>(header.nextFile.fetch_add(1)));
        if (file == nullptr) break;
        batch.Read(file);
        if (batch.IsFull()) batch.Merge();
    }
    batch.Merge();
}

void* RunThread(void* context)
{
    const Job& job = *static_cast<Job*>(context);
    try {
        CountFiles(job);
    } catch (const std::bad_alloc&) {
        job.index->Header().stop = 1;
        return reinterpret_cast<void*>(uintptr_t{VORN_E_NO_MEMORY});
    }
    return nullptr;
}

// Ends the worker when its parent is gone: nobody would hear of what it does. Ends with the process.
void* WatchParent(void* context)
{
    const auto* parent = static_cast<VornPPid*>(context);
    if (VornProcWaitForTerm(const_cast<VornPPid*>(parent), VORN_INFINITE) == VORN_OK) {
        VornProcKill(VornProcGetCurrentPPid());
    }
    return nullptr;
}

}  // namespace

int RunWorker()
{
    SharedIndex index;
    const VornStatus opened = index.Open(Variable(kHeapVariable), NumberVariable(kSizeVariable));
    if (opened != VORN_OK) return static_cast<int>(opened);
    Job job = {&index, static_cast<int32_t>(NumberVariable(kWorkerVariable) % kMostWorkers)};
    VornPPid* parent = VornProcNative2PPid(static_cast<uint32_t>(NumberVariable(kParentVariable)));
    if (parent == nullptr) return static_cast<int>(VORN_E_STOPPED);
    const VornThreadAttr detached = {0, 1};
    VornThread* watch = nullptr;
    VornThreadCreate(&watch, &detached, &WatchParent, parent);

    std::vector<VornThread*> threads(NumberVariable(kThreadsVariable));
    VornStatus result = VORN_OK;
    for (VornThread*& thread : threads) {
        const VornStatus started = VornThreadCreate(&thread, nullptr, &RunThread, &job);
        if (started != VORN_OK) result = started;
    }
    for (VornThread* thread : threads) {
        void* outcome = nullptr;
        if (thread == nullptr) continue;
        VornThreadJoin(thread, &outcome);
        if (outcome != nullptr) result = static_cast<VornStatus>(reinterpret_cast<uintptr_t>(outcome));
    }
    index.Header().workers[job.worker].finished = 1;
    return static_cast<int>(result);
}

}  // namespace wordindex
