// Searching a directory of 10,000 entries, against the bare system calls and the C++ library, and removing a
// tree of 10,000 files, against the C++ library.

#include <vorn/vorn.hpp>

#include "core/win32.h"

#include "file/host_shell.h"
#include "paired.h"
#include "support/import_redirect.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <shlwapi.h>
#include <string>

namespace fs = std::filesystem;

namespace {

constexpr int kEntries = 10000;

std::wstring ScratchPath(const wchar_t* stem)
{
    wchar_t folder[MAX_PATH + 1];
    GetTempPathW(MAX_PATH + 1, folder);
    return std::wstring(folder) + L"vorn-bench-" + stem + std::to_wstring(GetCurrentProcessId());
}

void RemoveScratch(const std::wstring& path)
{
    if (vorn_test::RunOnHost(path, L"find . -mindepth 1 -delete")) {
        RemoveDirectoryW(path.c_str());
    } else {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
}

// A directory of 10,000 empty files, removed at the end.
class ManyEntries {
public:
    ManyEntries() : path_(ScratchPath(L"find"))
    {
        CreateDirectoryW(path_.c_str(), nullptr);
        vorn_test::MakeManyFiles(path_, L"entry", kEntries);
    }
    ~ManyEntries() { RemoveScratch(path_); }
    const std::wstring& Path() const { return path_; }

private:
    std::wstring path_;
};

const std::wstring& EntriesPath()
{
    static const ManyEntries entries;
    return entries.Path();
}

// What a search has found: touched, so that nothing is optimised away.
struct Facts {
    uint64_t entries = 0;
    uint64_t nameUnits = 0;
    uint64_t fullNameUnits = 0;
    uint64_t bytes = 0;
    uint64_t years = 0;
    void Check() const
    {
        if (entries != kEntries) std::abort();
    }
};

enum class FullName { kNone, kJoined, kQualified };

void SearchWithVorn(bool fullNames)
{
    Facts facts;
    const wchar_t* name = nullptr;
    VornFileFind* find = VornFileFindFirst((EntriesPath() + L"\\*").c_str(), &name);
    do {
        VornTime access, modify;
        ++facts.entries;
        facts.nameUnits += std::wcslen(name);
        facts.bytes += VornFileFindGetSize(find);
        VornFileFindGetTime(find, &access, &modify);
        facts.years += access.year + modify.year;
        if (fullNames) {
            const wchar_t* fullName = nullptr;
            VornFileFindGetFullName(find, &fullName);
            facts.fullNameUnits += std::wcslen(fullName);
        }
    } while (VornFileFindNext(find, &name) == VORN_OK);
    VornFileFindClose(find);
    facts.Check();
    benchmark::DoNotOptimize(facts);
}

void SearchBare(FullName fullName)
{
    Facts facts;
    const std::wstring prefix = EntriesPath() + L"\\";
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW((prefix + L"*").c_str(), &data);
    do {
        if (std::wcscmp(data.cFileName, L".") == 0 || std::wcscmp(data.cFileName, L"..") == 0) continue;
        SYSTEMTIME access, modify;
        ++facts.entries;
        facts.nameUnits += std::wcslen(data.cFileName);
        facts.bytes += uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
        FileTimeToSystemTime(&data.ftLastAccessTime, &access);
        FileTimeToSystemTime(&data.ftLastWriteTime, &modify);
        facts.years += access.wYear + modify.wYear;
        if (fullName == FullName::kNone) continue;
        wchar_t path[520], qualified[520];
        std::wcscpy(path, prefix.c_str());
        std::wcscpy(path + prefix.size(), data.cFileName);
        const bool done = fullName == FullName::kQualified && PathSearchAndQualifyW(path, qualified, 520);
        facts.fullNameUnits += std::wcslen(done ? qualified : path);
    } while (FindNextFileW(find, &data));
    FindClose(find);
    facts.Check();
    benchmark::DoNotOptimize(facts);
}

void SearchWithDirectoryIterator()
{
    Facts facts;
    for (const fs::directory_entry& entry : fs::directory_iterator(EntriesPath())) {
        ++facts.entries;
        facts.nameUnits += entry.path().filename().native().size();
        facts.fullNameUnits += entry.path().native().size();
        facts.bytes += entry.file_size();
        facts.years += static_cast<uint64_t>(entry.last_write_time().time_since_epoch().count() & 1);
    }
    facts.Check();
    benchmark::DoNotOptimize(facts);
}

void BM_Search10000_NameSizeTimesFullName_vorn_over_bare(benchmark::State& state)
{
    vorn_bench::Paired(
        state, kEntries, [] { SearchWithVorn(true); }, [] { SearchBare(FullName::kQualified); });
}

void BM_Search10000_NameSizeTimesFullName_vorn_over_bareUnqualified(benchmark::State& state)
{
    vorn_bench::Paired(
        state, kEntries, [] { SearchWithVorn(true); }, [] { SearchBare(FullName::kJoined); });
}

void BM_Search10000_NameSizeTimes_vorn_over_bare(benchmark::State& state)
{
    vorn_bench::Paired(
        state, kEntries, [] { SearchWithVorn(false); }, [] { SearchBare(FullName::kNone); });
}

void BM_Search10000_NameSizeTimeFullName_vorn_over_directory_iterator(benchmark::State& state)
{
    vorn_bench::Paired(
        state, kEntries, [] { SearchWithVorn(true); }, [] { SearchWithDirectoryIterator(); });
}

// The time that the module spends in one of its imports, and how often it calls it.
template <int Number>
struct Timed {
    static inline double nanoseconds;
    static inline int64_t calls;
    static inline void* original;

    template <class Result, class... Arguments>
    static Result WINAPI Call(Arguments... arguments)
    {
        ++calls;
        const auto begin = std::chrono::steady_clock::now();
        const Result result = reinterpret_cast<Result(WINAPI*)(Arguments...)>(original)(arguments...);
        nanoseconds +=
            std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin).count();
        return result;
    }
};

template <int Number, class Result, class... Arguments>
class TimedImport {
public:
    TimedImport(const char* name, Result(WINAPI*)(Arguments...))
        : name_(name),
          redirect_(name, reinterpret_cast<void*>(&Timed<Number>::template Call<Result, Arguments...>))
    {
        Timed<Number>::original = redirect_.template Original<void*>();
        Timed<Number>::nanoseconds = 0;
        Timed<Number>::calls = 0;
    }
    void Report(benchmark::State& state) const
    {
        const std::string name = name_;
        state.counters[name + "_ms"] = Timed<Number>::nanoseconds / 1e6;
        state.counters[name + "_calls"] = static_cast<double>(Timed<Number>::calls);
    }

private:
    const char* name_;
    vorn_test::ImportRedirect redirect_;
};

template <int Number, class Result, class... Arguments>
TimedImport<Number, Result, Arguments...> Time(const char* name, Result(WINAPI* function)(Arguments...))
{
    return {name, function};
}

// 10,000 files in 1,000 directories at the third level of 110 others.
std::wstring MakeTree()
{
    std::wstring path = ScratchPath(L"tree");
    CreateDirectoryW(path.c_str(), nullptr);
    if (vorn_test::RunOnHost(
            path,
            L"for i in $(seq 0 999); do echo $((i/100))/$((i/10%10))/$((i%10)); done | xargs "
            L"mkdir -p && for i in $(seq 0 999); do for j in 0 1 2 3 4 5 6 7 8 9; do echo "
            L"$((i/100))/$((i/10%10))/$((i%10))/f$j; done; done | xargs touch"))
    {
        return path;
    }
    for (int i = 0; i < 1000; ++i) {
        const std::wstring leaf = path + L"\\" + std::to_wstring(i / 100) + L"\\" +
                                  std::to_wstring(i / 10 % 10) + L"\\" + std::to_wstring(i % 10);
        fs::create_directories(leaf);
        vorn_test::MakeManyFiles(leaf, L"f", 10);
    }
    return path;
}

int64_t CountEntries(const std::wstring& path)
{
    return std::distance(fs::recursive_directory_iterator(path), fs::recursive_directory_iterator());
}

void BM_RemoveTree10000_vorn(benchmark::State& state)
{
    for (auto _ : state) {
        state.PauseTiming();
        const std::wstring path = MakeTree();
        state.counters["entries"] = static_cast<double>(CountEntries(path));
        const auto findFirst = Time<0>("FindFirstFileW", &FindFirstFileW);
        const auto findNext = Time<1>("FindNextFileW", &FindNextFileW);
        const auto findClose = Time<2>("FindClose", &FindClose);
        const auto attributes = Time<3>("GetFileAttributesW", &GetFileAttributesW);
        const auto deleteFile = Time<4>("DeleteFileW", &DeleteFileW);
        const auto removeDirectory = Time<5>("RemoveDirectoryW", &RemoveDirectoryW);
        state.ResumeTiming();
        const VornStatus status = VornFileRemoveDir(path.c_str(), 1, 1, 0);
        state.PauseTiming();
        if (status != VORN_OK) state.SkipWithError(VornStatusName(status));
        findFirst.Report(state);
        findNext.Report(state);
        findClose.Report(state);
        attributes.Report(state);
        deleteFile.Report(state);
        removeDirectory.Report(state);
        state.ResumeTiming();
    }
}

void BM_RemoveTree10000_remove_all(benchmark::State& state)
{
    for (auto _ : state) {
        state.PauseTiming();
        const std::wstring path = MakeTree();
        state.counters["entries"] = static_cast<double>(CountEntries(path));
        state.ResumeTiming();
        std::error_code error;
        fs::remove_all(path, error);
        if (error) state.SkipWithError("remove_all failed");
    }
}

BENCHMARK(BM_Search10000_NameSizeTimesFullName_vorn_over_bare)->Iterations(8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Search10000_NameSizeTimesFullName_vorn_over_bareUnqualified)
    ->Iterations(8)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Search10000_NameSizeTimes_vorn_over_bare)->Iterations(8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Search10000_NameSizeTimeFullName_vorn_over_directory_iterator)
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RemoveTree10000_vorn)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RemoveTree10000_remove_all)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv)
{
    if (VornInitialize() != VORN_OK) return 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    VornTerminate();
    return 0;
}
