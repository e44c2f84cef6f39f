// An environment block of 500 variables against the system's own variables and an ordered map that compares
// names as the block does; and 1,000 new names one by one against inserting them sorted at once.

#include <vorn/vorn.h>

#include "core/win32.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <vector>

namespace {

constexpr int kVariables = 500;
constexpr int kNewNames = 1000;

// Names as real environments have them: words, some with a common beginning.
std::vector<std::wstring> Names(int count)
{
    const wchar_t* const words[] = {L"PROGRAM", L"COMMON", L"USER", L"System",
                                    L"Path",    L"LIB",    L"Data", L"NUMBER"};
    std::mt19937 random(7);
    std::vector<std::wstring> names;
    for (int i = 0; i < count; ++i) {
        names.push_back(std::wstring(words[random() % 8]) + L"_" + words[random() % 8] + L"_" +
                        std::to_wstring(i));
    }
    return names;
}

const std::vector<std::wstring>& Asked()
{
    static const std::vector<std::wstring> names = [] {
        std::vector<std::wstring> shuffled = Names(kVariables);
        std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(3));
        return shuffled;
    }();
    return names;
}

struct NameLess {
    bool operator()(const std::wstring& a, const std::wstring& b) const
    {
        UErrorCode error = U_ZERO_ERROR;
        return u_strCaseCompare(reinterpret_cast<const UChar*>(a.c_str()), static_cast<int32_t>(a.size()),
                                reinterpret_cast<const UChar*>(b.c_str()), static_cast<int32_t>(b.size()),
                                U_FOLD_CASE_DEFAULT, &error) < 0;
    }
};

void BM_EnvGet500_vorn(benchmark::State& state)
{
    VornProcEnv* env = VornProcEnvAlloc(VORN_ENV_EMPTY);
    for (const std::wstring& name : Names(kVariables)) VornProcEnvSet(env, name.c_str(), L"some value");
    wchar_t buffer[64];
    size_t i = 0;
    for (auto _ : state) {
        uint32_t size = 64;
        if (VornProcEnvGet(env, Asked()[i].c_str(), buffer, &size) != VORN_OK) std::abort();
        if (++i == Asked().size()) i = 0;
    }
    VornProcEnvFree(env);
}

void BM_EnvGet500_GetEnvironmentVariableW(benchmark::State& state)
{
    for (const std::wstring& name : Names(kVariables)) SetEnvironmentVariableW(name.c_str(), L"some value");
    wchar_t buffer[64];
    size_t i = 0;
    for (auto _ : state) {
        if (GetEnvironmentVariableW(Asked()[i].c_str(), buffer, 64) == 0) std::abort();
        if (++i == Asked().size()) i = 0;
    }
    for (const std::wstring& name : Names(kVariables)) SetEnvironmentVariableW(name.c_str(), nullptr);
}

void BM_EnvGet500_StdMap(benchmark::State& state)
{
    std::map<std::wstring, std::wstring, NameLess> env;
    for (const std::wstring& name : Names(kVariables)) env[name] = L"some value";
    wchar_t buffer[64];
    size_t i = 0;
    for (auto _ : state) {
        const auto found = env.find(Asked()[i]);
        if (found == env.end()) std::abort();
        std::copy(found->second.begin(), found->second.end() + 1, buffer);
        benchmark::DoNotOptimize(buffer);
        if (++i == Asked().size()) i = 0;
    }
}

void SetAll(benchmark::State& state, const std::vector<std::wstring>& names)
{
    for (auto _ : state) {
        VornProcEnv* env = VornProcEnvAlloc(VORN_ENV_EMPTY);
        for (const std::wstring& name : names) VornProcEnvSet(env, name.c_str(), L"some value");
        VornProcEnvFree(env);
    }
    state.SetItemsProcessed(state.iterations() * kNewNames);
}

void BM_EnvSet1000New_vorn(benchmark::State& state)
{
    std::vector<std::wstring> names = Names(kNewNames);
    std::shuffle(names.begin(), names.end(), std::mt19937(5));
    SetAll(state, names);
}

// What inserting them sorted at once costs: the strings are made, and sorted in one go.
void BM_EnvSet1000New_SortedAtOnce(benchmark::State& state)
{
    std::vector<std::wstring> names = Names(kNewNames);
    std::shuffle(names.begin(), names.end(), std::mt19937(5));
    const std::wstring value = L"some value";
    for (auto _ : state) {
        std::vector<wchar_t*> entries(kNewNames);
        for (int i = 0; i < kNewNames; ++i) {
            const std::wstring& name = names[i];
            const size_t units = name.size() + value.size() + 2;
            entries[i] = static_cast<wchar_t*>(std::malloc(units * sizeof(wchar_t)));
            std::copy(name.begin(), name.end(), entries[i]);
            entries[i][name.size()] = L'=';
            std::copy(value.c_str(), value.c_str() + value.size() + 1, entries[i] + name.size() + 1);
        }
        std::sort(entries.begin(), entries.end(), [](const wchar_t* a, const wchar_t* b) {
            UErrorCode error = U_ZERO_ERROR;
            return u_strCaseCompare(reinterpret_cast<const UChar*>(a), static_cast<int32_t>(wcscspn(a, L"=")),
                                    reinterpret_cast<const UChar*>(b), static_cast<int32_t>(wcscspn(b, L"=")),
                                    U_FOLD_CASE_DEFAULT, &error) < 0;
        });
        for (wchar_t* entry : entries) std::free(entry);
    }
    state.SetItemsProcessed(state.iterations() * kNewNames);
}

// The same insertion through the library, with the names arriving in order: no slot has to move.
void BM_EnvSet1000New_InOrder(benchmark::State& state)
{
    std::vector<std::wstring> names = Names(kNewNames);
    std::sort(names.begin(), names.end(), NameLess());
    SetAll(state, names);
}

BENCHMARK(BM_EnvGet500_vorn);
BENCHMARK(BM_EnvGet500_GetEnvironmentVariableW);
BENCHMARK(BM_EnvGet500_StdMap);
BENCHMARK(BM_EnvSet1000New_vorn);
BENCHMARK(BM_EnvSet1000New_SortedAtOnce);
BENCHMARK(BM_EnvSet1000New_InOrder);

}  // namespace

int main(int argc, char** argv)
{
    VornInitialize();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    VornTerminate();
    return 0;
}
