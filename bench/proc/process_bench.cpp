// Starting a process, waiting for it and giving it up, against bare CreateProcessW with the same arguments;
// walking over processes and modules against the bare loops.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "paired.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <string>
#include <tlhelp32.h>

namespace {

std::wstring Program()
{
    wchar_t path[4096];
    GetModuleFileNameW(nullptr, path, 4096);
    return path;
}

void RunChild(const std::wstring& program)
{
    VornPPid* ppid =
        VornProcCreate(program.c_str(), L"--child", nullptr, nullptr, 0, VORN_PROC_SHOW, 0, nullptr, nullptr);
    if (ppid == nullptr || VornProcWaitForTerm(ppid, VORN_INFINITE) != VORN_OK) std::abort();
    VornProcFreePPid(ppid);
}

void RunChildBare(const std::wstring& program)
{
    std::wstring line = L"\"" + program + L"\" --child";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = SW_SHOW;
    PROCESS_INFORMATION started = {};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE,
                        NORMAL_PRIORITY_CLASS | CREATE_UNICODE_ENVIRONMENT, nullptr, nullptr, &startup,
                        &started))
    {
        std::abort();
    }
    CloseHandle(started.hThread);
    WaitForSingleObject(started.hProcess, INFINITE);
    CloseHandle(started.hProcess);
}

void BM_CreateWaitFree_vorn_over_CreateProcessW(benchmark::State& state)
{
    const std::wstring program = Program();
    vorn_bench::Paired(
        state, 1, [&program] { RunChild(program); }, [&program] { RunChildBare(program); });
}

uint64_t WalkProcesses()
{
    VornPPid* ppid = nullptr;
    VornProcIterator* iterator = VornProcGetFirst(&ppid);
    uint64_t sum = 0;
    do {
        sum += VornProcPPid2Native(ppid);
    } while (VornProcGetNext(iterator, &ppid) == VORN_OK);
    VornProcGetClose(iterator);
    return sum;
}

uint64_t WalkProcessesBare()
{
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    uint64_t sum = 0;
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
        sum += entry.th32ProcessID;
    }
    CloseHandle(snapshot);
    return sum;
}

uint64_t CountModules()
{
    VornProcModule* module = nullptr;
    VornProcModuleIterator* iterator = VornProcGetFirstModule(&module, VornProcGetCurrentPPid());
    uint64_t count = 0;
    do {
        ++count;
    } while (VornProcGetNextModule(iterator, &module) == VORN_OK);
    VornProcGetModuleClose(iterator);
    return count;
}

uint64_t CountModulesBare()
{
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, GetCurrentProcessId());
    MODULEENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    uint64_t count = 0;
    for (BOOL more = Module32FirstW(snapshot, &entry); more; more = Module32NextW(snapshot, &entry)) ++count;
    CloseHandle(snapshot);
    return count;
}

// Ten walks to a batch.
template <uint64_t (*kWalk)(), uint64_t (*kBareWalk)()>
void WalkOverBare(benchmark::State& state)
{
    const auto batch = [](uint64_t (*walk)()) {
        return [walk] {
            for (int i = 0; i < 10; ++i) benchmark::DoNotOptimize(walk());
        };
    };
    vorn_bench::Paired(state, 10, batch(kWalk), batch(kBareWalk));
}

void BM_Processes_vorn_over_SnapshotLoop(benchmark::State& state)
{
    WalkOverBare<&WalkProcesses, &WalkProcessesBare>(state);
}
void BM_Modules_vorn_over_SnapshotLoop(benchmark::State& state)
{
    WalkOverBare<&CountModules, &CountModulesBare>(state);
}

BENCHMARK(BM_CreateWaitFree_vorn_over_CreateProcessW)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Processes_vorn_over_SnapshotLoop)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_Modules_vorn_over_SnapshotLoop)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::string(argv[1]) == "--child") return 0;
    VornInitialize();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    VornTerminate();
    return 0;
}
