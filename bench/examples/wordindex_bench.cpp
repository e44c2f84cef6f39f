// wordindex from its start to its end, image and its verification included, against the same counting in one
// process with the standard library alone. Each run starts the program anew on the same 32 MiB of text.

#include <vorn/vorn.hpp>

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

namespace {

constexpr int kFiles = 64;
constexpr size_t kFileBytes = 512 * 1024;
constexpr wchar_t kFolder[] = L"wordindex-bench";

std::wstring Folder()
{
    wchar_t temp[1024];
    uint32_t size = 1024;
    if (VornProcGetVar(L"TEMP", temp, &size) != VORN_OK) std::abort();
    return std::wstring(temp) + L"\\" + kFolder;
}

// The program of this name beside this one.
std::wstring Program(const wchar_t* name)
{
    wchar_t path[4096];
    uint32_t size = 4096;
    if (VornProcGetExecutableName(nullptr, path, &size) != VORN_OK) std::abort();
    const std::wstring own(path);
    return own.substr(0, own.find_last_of(L'\\') + 1) + name;
}

// Words whose frequencies fall as in real text.
void WriteTexts(const std::wstring& folder)
{
    std::mt19937 random(9);
    std::exponential_distribution<> rank(1.0 / 3000);
    for (int i = 0; i < kFiles; ++i) {
        std::string text;
        while (text.size() < kFileBytes) {
            text += "Word" + std::to_string(static_cast<int>(rank(random)));
            text += random() % 12 == 0 ? "\n" : " ";
        }
        const std::wstring name = folder + L"\\" + std::to_wstring(i) + L".txt";
        VornFile* file = VornFileCreate(name.c_str(), VORN_FILE_CREATE_ALWAYS, VORN_FILE_ACCESS_WRITE,
                                        VORN_FALSE, nullptr, nullptr);
        uint32_t written = 0;
        if (VornFileWrite(file, text.data(), static_cast<uint32_t>(text.size()), &written) != VORN_OK)
            std::abort();
        VornFileClose(file);
    }
}

void RunProgram(benchmark::State& state, const std::wstring& program, const std::wstring& args)
{
    for (auto _ : state) {
        VornPPid* process = VornProcCreate(program.c_str(), args.c_str(), nullptr, nullptr, 0,
                                           VORN_PROC_NO_WINDOW, 0, nullptr, nullptr);
        uint32_t code = 1;
        if (process == nullptr || VornProcWaitForTerm(process, VORN_INFINITE) != VORN_OK ||
            VornProcGetExitCode(process, &code) != VORN_OK || code != 0)
        {
            state.SkipWithError("the program did not run");
            break;
        }
        VornProcFreePPid(process);
    }
    state.SetBytesProcessed(state.iterations() * kFiles * static_cast<int64_t>(kFileBytes));
}

void BM_WordIndex_vorn(benchmark::State& state)
{
    const std::wstring folder = Folder();
    RunProgram(state, Program(L"wordindex.exe"),
               L"-n 0 -t 1 -w " + std::to_wstring(state.range(0)) + L" -o \"" + folder + L".image\" \"" +
                   folder + L"\"");
}

void BM_WordIndex_StandardLibrary(benchmark::State& state)
{
    RunProgram(state, Program(L"plain_words.exe"), L"\"" + Folder() + L"\"");
}

BENCHMARK(BM_WordIndex_StandardLibrary)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_WordIndex_vorn)
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);

}  // namespace

int main(int argc, char** argv)
{
    VornInitialize();
    const std::wstring folder = Folder();
    VornFileCreateDir(folder.c_str(), nullptr);
    WriteTexts(folder);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    VornFileRemoveDir(folder.c_str(), 0, 1, 0);
    VornFileDelete((folder + L".image").c_str());
    VornTerminate();
    return 0;
}
