// Reading, lines, and questions by name, against the bare system calls and std::getline.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "paired.h"

#include <cstring>
#include <fstream>
#include <random>
#include <string>

namespace {

constexpr uint32_t kBlock = 4096;
constexpr uint32_t kBlocks = 1024;

// A file of 4 MiB of text in lines of 0 to 119 bytes, removed at the end.
class TextFile {
public:
    TextFile()
    {
        wchar_t folder[MAX_PATH + 1];
        GetTempPathW(MAX_PATH + 1, folder);
        path_ = folder + (L"vorn-bench-" + std::to_wstring(GetCurrentProcessId()));
        std::mt19937 random(7);
        std::string text;
        while (text.size() < kBlock * kBlocks) text.append(random() % 120, 'x').append("\n");
        text.resize(kBlock * kBlocks);
        HANDLE file = CreateFileW(path_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        DWORD written = 0;
        WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        CloseHandle(file);
    }
    ~TextFile() { DeleteFileW(path_.c_str()); }
    const wchar_t* Path() const { return path_.c_str(); }

private:
    std::wstring path_;
};

const wchar_t* TextPath()
{
    static const TextFile file;
    return file.Path();
}

void BM_FileRead4KiB_vorn_over_ReadFile(benchmark::State& state)
{
    static char buffer[kBlock];
    VornFile* file = VornFileCreate(TextPath(), VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE,
                                    nullptr, nullptr);
    void* native = nullptr;
    VornFileGetNativeHandle(file, &native);
    constexpr int kReads = 64;
    const auto rewind = [&] {
        // Both read the same blocks of the same file through the same system handle.
        LARGE_INTEGER start = {};
        SetFilePointerEx(native, start, nullptr, FILE_BEGIN);
    };
    vorn_bench::Paired(
        state, kReads,
        [&] {
            rewind();
            uint32_t read = 0;
            for (int i = 0; i < kReads; ++i) VornFileRead(file, buffer, kBlock, &read);
        },
        [&] {
            rewind();
            DWORD read = 0;
            for (int i = 0; i < kReads; ++i) ReadFile(native, buffer, kBlock, &read, nullptr);
        });
    VornFileClose(file);
}

uint64_t CountLinesWithVorn(uint32_t bufferSize)
{
    static uint8_t buffer[65536];
    VornFile* file = VornFileCreate(TextPath(), VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE,
                                    nullptr, nullptr);
    uint64_t lines = 0;
    uint32_t length = 0;
    while (lines < 10000 && VornFileReadLine(file, buffer, bufferSize, &length) == VORN_OK && length != 0)
        ++lines;
    VornFileClose(file);
    return lines;
}

void BM_FileReadLine_vorn(benchmark::State& state)
{
    int64_t lines = 0;
    for (auto _ : state)
        lines += static_cast<int64_t>(CountLinesWithVorn(static_cast<uint32_t>(state.range(0))));
    state.SetItemsProcessed(lines);
}

void BM_FileReadLine_getline(benchmark::State& state)
{
    char path[4 * MAX_PATH];
    WideCharToMultiByte(CP_ACP, 0, TextPath(), -1, path, sizeof(path), nullptr, nullptr);
    int64_t lines = 0;
    for (auto _ : state) {
        std::ifstream file(path, std::ios::binary);
        std::string line;
        for (int i = 0; i < 10000 && std::getline(file, line); ++i) ++lines;
    }
    state.SetItemsProcessed(lines);
}

void BM_FileGetAttributes_vorn_over_GetFileAttributesW(benchmark::State& state)
{
    const wchar_t* path = TextPath();
    constexpr int kQueries = 16;
    vorn_bench::Paired(
        state, kQueries,
        [&] {
            uint32_t attributes = 0;
            for (int i = 0; i < kQueries; ++i) VornFileGetAttributes(path, &attributes);
        },
        [&] {
            for (int i = 0; i < kQueries; ++i) benchmark::DoNotOptimize(GetFileAttributesW(path));
        });
}

void BM_FileExistsFile_vorn_over_GetFileAttributesW(benchmark::State& state)
{
    const wchar_t* path = TextPath();
    constexpr int kQueries = 16;
    vorn_bench::Paired(
        state, kQueries,
        [&] {
            for (int i = 0; i < kQueries; ++i) benchmark::DoNotOptimize(VornFileExistsFile(path));
        },
        [&] {
            for (int i = 0; i < kQueries; ++i) benchmark::DoNotOptimize(GetFileAttributesW(path));
        });
}

void BM_FileGetTimeByName_vorn_over_FindFirstFileW(benchmark::State& state)
{
    const wchar_t* path = TextPath();
    constexpr int kQueries = 16;
    vorn_bench::Paired(
        state, kQueries,
        [&] {
            VornTime access, modify, create;
            for (int i = 0; i < kQueries; ++i) VornFileGetTimeByName(path, &access, &modify, &create);
        },
        [&] {
            WIN32_FIND_DATAW entry;
            SYSTEMTIME access, modify, create;
            for (int i = 0; i < kQueries; ++i) {
                FindClose(FindFirstFileW(path, &entry));
                FileTimeToSystemTime(&entry.ftLastAccessTime, &access);
                FileTimeToSystemTime(&entry.ftLastWriteTime, &modify);
                FileTimeToSystemTime(&entry.ftCreationTime, &create);
            }
        });
}

void BM_FileGetSizeByName_vorn_over_FindFirstFileW(benchmark::State& state)
{
    const wchar_t* path = TextPath();
    constexpr int kQueries = 16;
    vorn_bench::Paired(
        state, kQueries,
        [&] {
            for (int i = 0; i < kQueries; ++i) benchmark::DoNotOptimize(VornFileGetSizeByName(path));
        },
        [&] {
            WIN32_FIND_DATAW entry;
            for (int i = 0; i < kQueries; ++i) {
                FindClose(FindFirstFileW(path, &entry));
                benchmark::DoNotOptimize(entry.nFileSizeLow);
            }
        });
}

void BM_FileMapAndUnmap_vorn_over_MapViewOfFileEx(benchmark::State& state)
{
    VornFile* file = VornFileCreate(TextPath(), VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE,
                                    nullptr, nullptr);
    void* native = nullptr;
    VornFileGetNativeHandle(file, &native);
    constexpr int kMappings = 16;
    vorn_bench::Paired(
        state, kMappings,
        [&] {
            for (int i = 0; i < kMappings; ++i) {
                VornFileUnmapRegion(VornFileMapRegion(file, 0, 65536, nullptr, nullptr));
            }
        },
        [&] {
            for (int i = 0; i < kMappings; ++i) {
                LARGE_INTEGER size;
                GetFileSizeEx(native, &size);
                HANDLE mapping =
                    CreateFileMappingW(native, nullptr, PAGE_READONLY, size.HighPart, size.LowPart, nullptr);
                UnmapViewOfFile(MapViewOfFileEx(mapping, FILE_MAP_READ, 0, 0, 65536, nullptr));
                CloseHandle(mapping);
            }
        });
    VornFileClose(file);
}

}  // namespace

BENCHMARK(BM_FileRead4KiB_vorn_over_ReadFile);
BENCHMARK(BM_FileReadLine_vorn)->Arg(128)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FileReadLine_getline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FileGetAttributes_vorn_over_GetFileAttributesW);
BENCHMARK(BM_FileExistsFile_vorn_over_GetFileAttributesW);
BENCHMARK(BM_FileGetTimeByName_vorn_over_FindFirstFileW);
BENCHMARK(BM_FileGetSizeByName_vorn_over_FindFirstFileW);
BENCHMARK(BM_FileMapAndUnmap_vorn_over_MapViewOfFileEx);

int main(int argc, char** argv)
{
    VornInitialize();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    VornTerminate();
    return 0;
}
