// The functions on zero-terminated text against the C library's wide functions: short texts (1 to 32 units)
// and 4 KiB.

#include <vorn/vorn.h>

#include "paired.h"

#include <cwchar>
#include <string>

using vorn_bench::Paired;

namespace {

constexpr int kOperations = 200;

// 0: a mix of short texts; otherwise the number of units.
std::vector<std::wstring> Texts(int64_t units)
{
    std::vector<std::wstring> texts;
    if (units != 0) return {std::wstring(static_cast<size_t>(units), L'a')};
    for (size_t length : {1, 3, 4, 7, 9, 12, 20, 32}) texts.push_back(std::wstring(length, L'a'));
    return texts;
}

template <class Ours, class Theirs>
void Compare(benchmark::State& state, Ours ours, Theirs theirs)
{
    const std::vector<std::wstring> texts = Texts(state.range(0));
    const auto run = [&](auto function) {
        return [&texts, function] {
            for (int i = 0; i < kOperations; ++i) {
                const std::wstring& text = texts[static_cast<size_t>(i) % texts.size()];
                benchmark::DoNotOptimize(function(text.c_str()));
                benchmark::ClobberMemory();
            }
        };
    };
    Paired(state, kOperations, run(ours), run(theirs));
}

wchar_t target[5000];

const std::vector<std::wstring>& Copies()
{
    static const std::vector<std::wstring> copies = [] {
        std::vector<std::wstring> made;
        for (size_t length = 0; length <= 2048; ++length) made.push_back(std::wstring(length, L'a'));
        return made;
    }();
    return copies;
}

void BM_StrLen_against_wcslen(benchmark::State& state)
{
    Compare(
        state, [](const wchar_t* s) { return VornStrLen(s); }, [](const wchar_t* s) { return wcslen(s); });
}

void BM_StrChr_against_wcschr(benchmark::State& state)
{
    Compare(
        state, [](const wchar_t* s) { return VornStrChr(s, L'z'); },
        [](const wchar_t* s) { return wcschr(s, L'z'); });
}

void BM_StrRChr_against_wcsrchr(benchmark::State& state)
{
    Compare(
        state, [](const wchar_t* s) { return VornStrRChr(s, L'z'); },
        [](const wchar_t* s) { return wcsrchr(s, L'z'); });
}

void BM_StrCmp_against_wcscmp(benchmark::State& state)
{
    const std::vector<std::wstring> texts = Texts(state.range(0));
    const auto run = [&](auto function) {
        return [&texts, function] {
            for (int i = 0; i < kOperations; ++i) {
                const std::wstring& text = texts[static_cast<size_t>(i) % texts.size()];
                benchmark::DoNotOptimize(function(text.c_str(), Copies()[text.size()].c_str()));
                benchmark::ClobberMemory();
            }
        };
    };
    Paired(state, kOperations, run([](const wchar_t* a, const wchar_t* b) { return VornStrCmp(a, b); }),
           run([](const wchar_t* a, const wchar_t* b) { return wcscmp(a, b); }));
}

void BM_StrCpy_against_wcscpy(benchmark::State& state)
{
    Compare(
        state, [](const wchar_t* s) { return VornStrCpy(target, s); },
        [](const wchar_t* s) { return wcscpy(target, s); });
}

void BM_StrCat_against_wcscat(benchmark::State& state)
{
    Compare(
        state,
        [](const wchar_t* s) {
            target[0] = 0;
            return VornStrCat(target, s);
        },
        [](const wchar_t* s) {
            target[0] = 0;
            return wcscat(target, s);
        });
}

void BM_StrSpn_against_wcsspn(benchmark::State& state)
{
    Compare(
        state, [](const wchar_t* s) { return VornStrSpn(s, L"xyza"); },
        [](const wchar_t* s) { return wcsspn(s, L"xyza"); });
}

void BM_StrCSpn_against_wcscspn(benchmark::State& state)
{
    Compare(
        state, [](const wchar_t* s) { return VornStrCSpn(s, L",;: "); },
        [](const wchar_t* s) { return wcscspn(s, L",;: "); });
}

void BM_StrCSpnLargeSet_against_wcscspn(benchmark::State& state)
{
    Compare(
        state, [](const wchar_t* s) { return VornStrCSpn(s, L"0123456789,;: "); },
        [](const wchar_t* s) { return wcscspn(s, L"0123456789,;: "); });
}

void BM_StrStr_against_wcsstr(benchmark::State& state)
{
    Compare(
        state, [](const wchar_t* s) { return VornStrStr(s, L"bc"); },
        [](const wchar_t* s) { return wcsstr(s, L"bc"); });
}

BENCHMARK(BM_StrLen_against_wcslen)->Arg(0)->Arg(2047);
BENCHMARK(BM_StrChr_against_wcschr)->Arg(0)->Arg(2047);
BENCHMARK(BM_StrRChr_against_wcsrchr)->Arg(0)->Arg(2047);
BENCHMARK(BM_StrCmp_against_wcscmp)->Arg(0)->Arg(2047);
BENCHMARK(BM_StrCpy_against_wcscpy)->Arg(0)->Arg(2047);
BENCHMARK(BM_StrCat_against_wcscat)->Arg(0)->Arg(2047);
BENCHMARK(BM_StrSpn_against_wcsspn)->Arg(0)->Arg(2047);
BENCHMARK(BM_StrCSpn_against_wcscspn)->Arg(0)->Arg(2047);
BENCHMARK(BM_StrCSpnLargeSet_against_wcscspn)->Arg(0)->Arg(2047);
BENCHMARK(BM_StrStr_against_wcsstr)->Arg(0)->Arg(2047);

}  // namespace

BENCHMARK_MAIN();
