// UniStr against std::u16string and icu::UnicodeString: single operations and a mix of edits. In each line
// the yardstick is named; a ratio below 1 means that UniStr takes less time.

#include <vorn/vorn.hpp>

#include "paired.h"

#include <benchmark/benchmark.h>
#include <string>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>

namespace {

using vorn::UniStr;
using Std = std::u16string;
using Icu = icu::UnicodeString;

constexpr int kOperations = 2000;  // in one batch

const wchar_t* const kPhraseWide = L"the quick brown fox ";
const char16_t* const kPhrase = u"the quick brown fox ";
constexpr int kPhraseLength = 20;

// The same operations under one name for the three classes.
struct Ours {
    using String = UniStr;
    static String Make(const char16_t* s, int n)
    {
        return UniStr(reinterpret_cast<const wchar_t*>(s), static_cast<uint32_t>(n));
    }
    static void Reserve(String& s, uint32_t n) { s.Reserve(n); }
    static void Append(String& s) { s.Append(kPhraseWide, kPhraseLength); }
    static void AppendUnit(String& s, char16_t c) { s += static_cast<wchar_t>(c); }
    static void Insert(String& s, uint32_t pos) { s.Insert(pos, kPhraseWide, kPhraseLength); }
    static void Replace(String& s, uint32_t pos) { s.Replace(pos, 5, kPhraseWide, 7); }
    static void Erase(String& s, uint32_t pos, uint32_t n) { s.Erase(pos, n); }
    static uint32_t Find(const String& s, const String& part) { return s.Find(part); }
    static uint32_t FindUnit(const String& s, char16_t c) { return s.Find(static_cast<wchar_t>(c)); }
    static int Compare(const String& a, const String& b) { return a.Compare(b, true, true); }
    static uint32_t Size(const String& s) { return s.Size(); }
};

struct StdPeer {
    using String = Std;
    static String Make(const char16_t* s, int n) { return Std(s, static_cast<size_t>(n)); }
    static void Reserve(String& s, uint32_t n) { s.reserve(n); }
    static void Append(String& s) { s.append(kPhrase, kPhraseLength); }
    static void AppendUnit(String& s, char16_t c) { s += c; }
    static void Insert(String& s, uint32_t pos) { s.insert(pos, kPhrase, kPhraseLength); }
    static void Replace(String& s, uint32_t pos) { s.replace(pos, 5, kPhrase, 7); }
    static void Erase(String& s, uint32_t pos, uint32_t n) { s.erase(pos, n); }
    static uint32_t Find(const String& s, const String& part) { return static_cast<uint32_t>(s.find(part)); }
    static uint32_t FindUnit(const String& s, char16_t c) { return static_cast<uint32_t>(s.find(c)); }
    static int Compare(const String& a, const String& b) { return a.compare(b); }
    static uint32_t Size(const String& s) { return static_cast<uint32_t>(s.size()); }
};

struct IcuPeer {
    using String = Icu;
    static String Make(const char16_t* s, int n) { return Icu(s, n); }
    static void Reserve(String& s, uint32_t n) { s.getBuffer(static_cast<int32_t>(n)), s.releaseBuffer(0); }
    static void Append(String& s) { s.append(kPhrase, kPhraseLength); }
    static void AppendUnit(String& s, char16_t c) { s.append(c); }
    static void Insert(String& s, uint32_t pos)
    {
        s.insert(static_cast<int32_t>(pos), kPhrase, kPhraseLength);
    }
    static void Replace(String& s, uint32_t pos) { s.replace(static_cast<int32_t>(pos), 5, kPhrase, 7); }
    static void Erase(String& s, uint32_t pos, uint32_t n)
    {
        s.remove(static_cast<int32_t>(pos), static_cast<int32_t>(n));
    }
    static uint32_t Find(const String& s, const String& part)
    {
        return static_cast<uint32_t>(s.indexOf(part));
    }
    static uint32_t FindUnit(const String& s, char16_t c) { return static_cast<uint32_t>(s.indexOf(c)); }
    static int Compare(const String& a, const String& b) { return a.compare(b); }
    static uint32_t Size(const String& s) { return static_cast<uint32_t>(s.length()); }
};

// Text of n units without the letter z.
std::u16string Text(int n)
{
    std::u16string text;
    for (int i = 0; i < n; ++i) text.push_back(static_cast<char16_t>(u'a' + i * 7 % 25));
    return text;
}

template <class Peer>
void AppendTexts()
{
    for (int i = 0; i < kOperations; i += 50) {
        typename Peer::String text;
        for (int k = 0; k < 50; ++k) Peer::Append(text);
        benchmark::DoNotOptimize(text);
    }
}

// With room for all of it from the start: what appending costs without the growth, whose steps are fixed for
// UniStr and geometric for its peers.
template <class Peer>
void AppendTextsReserved()
{
    for (int i = 0; i < kOperations; i += 50) {
        typename Peer::String text;
        Peer::Reserve(text, 50 * kPhraseLength);
        for (int k = 0; k < 50; ++k) Peer::Append(text);
        benchmark::DoNotOptimize(text);
    }
}

template <class Peer>
void AppendUnits()
{
    for (int i = 0; i < kOperations; i += 500) {
        typename Peer::String text;
        for (int k = 0; k < 500; ++k) Peer::AppendUnit(text, static_cast<char16_t>(u'a' + k % 25));
        benchmark::DoNotOptimize(text);
    }
}

template <class Peer>
void InsertTexts()
{
    for (int i = 0; i < kOperations; i += 50) {
        typename Peer::String text;
        for (int k = 0; k < 50; ++k) Peer::Insert(text, Peer::Size(text) / 2);
        benchmark::DoNotOptimize(text);
    }
}

template <class Peer, int kLength>
void FindTexts()
{
    static const std::u16string units = Text(kLength) + u"zebra";
    static const auto text = Peer::Make(units.data(), static_cast<int>(units.size()));
    static const auto part = Peer::Make(u"zebra", 5);
    for (int i = 0; i < kOperations; ++i) benchmark::DoNotOptimize(Peer::Find(text, part));
}

template <class Peer, int kLength>
void FindUnits()
{
    static const std::u16string units = Text(kLength) + u"z";
    static const auto text = Peer::Make(units.data(), static_cast<int>(units.size()));
    for (int i = 0; i < kOperations; ++i) benchmark::DoNotOptimize(Peer::FindUnit(text, u'z'));
}

template <class Peer, int kLength>
void CompareTexts()
{
    static const std::u16string units = Text(kLength);
    static const auto a = Peer::Make(units.data(), kLength);
    static const auto b = Peer::Make((units + u"z").data(), kLength);
    for (int i = 0; i < kOperations; ++i) benchmark::DoNotOptimize(Peer::Compare(a, b));
}

template <class Peer, int kLength>
void EqualTexts()
{
    static const std::u16string units = Text(kLength);
    static const auto a = Peer::Make(units.data(), kLength);
    static const auto b = Peer::Make((units + u"z").data(), kLength);
    for (int i = 0; i < kOperations; ++i) {
        const bool equal = a == b;
        benchmark::DoNotOptimize(equal);
    }
}

template <class Peer, int kLength>
void CopyTexts()
{
    static const std::u16string units = Text(kLength);
    static const auto text = Peer::Make(units.data(), kLength);
    for (int i = 0; i < kOperations; ++i) {
        typename Peer::String copy(text);
        benchmark::DoNotOptimize(copy);
    }
}

// What a program that works on lines of text does with them.
template <class Peer>
void MixedEdits()
{
    static const std::u16string units = Text(60);
    static const auto base = Peer::Make(units.data(), static_cast<int>(units.size()));
    static const auto part = Peer::Make(u"fox ", 4);
    for (int i = 0; i < kOperations; i += 20) {
        typename Peer::String text(base);
        for (int k = 0; k < 20; ++k) {
            Peer::Append(text);
            Peer::Insert(text, Peer::Size(text) / 3);
            for (int n = 0; n < 4; ++n) Peer::AppendUnit(text, u'-');
            const uint32_t at = Peer::Find(text, part);
            Peer::Replace(text, at);
            Peer::Erase(text, Peer::Size(text) / 2, 6);
            typename Peer::String copy(text);
            benchmark::DoNotOptimize(Peer::Compare(copy, text));
            benchmark::DoNotOptimize(Peer::FindUnit(text, u'z'));
        }
        benchmark::DoNotOptimize(text);
    }
}

void Against(const char* name, void (*ours)(), void (*std)(), void (*icu)())
{
    const std::string title = name;
    benchmark::RegisterBenchmark(
        (title + "/vorn_to_u16string").c_str(),
        [ours, std](benchmark::State& state) { vorn_bench::Paired(state, kOperations, ours, std); });
    benchmark::RegisterBenchmark(
        (title + "/vorn_to_UnicodeString").c_str(),
        [ours, icu](benchmark::State& state) { vorn_bench::Paired(state, kOperations, ours, icu); });
}

// The code page's two ways, against a converter opened for each call.
void ConstructOurs()
{
    for (int i = 0; i < kOperations; ++i) benchmark::DoNotOptimize(UniStr("C:\\Users\\public\\file.txt"));
}

void ConstructOpening()
{
    for (int i = 0; i < kOperations; ++i) {
        char16_t units[64];
        UErrorCode status = U_ZERO_ERROR;
        UConverter* const converter = ucnv_open(nullptr, &status);
        const int32_t n = ucnv_toUChars(converter, units, 64, "C:\\Users\\public\\file.txt", -1, &status);
        ucnv_close(converter);
        benchmark::DoNotOptimize(std::u16string(units, static_cast<size_t>(n)));
    }
}

void NarrowOurs()
{
    static const UniStr text(L"C:\\Users\\public\\file.txt");
    for (int i = 0; i < kOperations; ++i) benchmark::DoNotOptimize(text.C_Str());
}

void NarrowOpening()
{
    for (int i = 0; i < kOperations; ++i) {
        char bytes[64];
        UErrorCode status = U_ZERO_ERROR;
        UConverter* const converter = ucnv_open(nullptr, &status);
        ucnv_fromUChars(converter, bytes, 64, u"C:\\Users\\public\\file.txt", 24, &status);
        ucnv_close(converter);
        benchmark::DoNotOptimize(bytes);
    }
}

#define AGAINST_BOTH(name, function) \
    Against("BM_UniStr" name, function<Ours>, function<StdPeer>, function<IcuPeer>)
#define AGAINST_BOTH_SIZED(name, function, n) \
    Against("BM_UniStr" name "/" #n, function<Ours, n>, function<StdPeer, n>, function<IcuPeer, n>)

}  // namespace

int main(int argc, char** argv)
{
    AGAINST_BOTH("AppendText", AppendTexts);
    AGAINST_BOTH("AppendTextReserved", AppendTextsReserved);
    AGAINST_BOTH("AppendUnit", AppendUnits);
    AGAINST_BOTH("Insert", InsertTexts);
    AGAINST_BOTH_SIZED("Find", FindTexts, 50);
    AGAINST_BOTH_SIZED("Find", FindTexts, 1000);
    AGAINST_BOTH_SIZED("FindUnit", FindUnits, 50);
    AGAINST_BOTH_SIZED("FindUnit", FindUnits, 1000);
    AGAINST_BOTH_SIZED("Compare", CompareTexts, 20);
    AGAINST_BOTH_SIZED("Compare", CompareTexts, 1000);
    AGAINST_BOTH_SIZED("Equal", EqualTexts, 20);
    AGAINST_BOTH_SIZED("Equal", EqualTexts, 1000);
    AGAINST_BOTH_SIZED("Copy", CopyTexts, 20);
    AGAINST_BOTH_SIZED("Copy", CopyTexts, 1000);
    AGAINST_BOTH("MixedEdits", MixedEdits);
    benchmark::RegisterBenchmark("BM_UniStrFromCodepage/vorn_to_opening", [](benchmark::State& state) {
        vorn_bench::Paired(state, kOperations, ConstructOurs, ConstructOpening);
    });
    benchmark::RegisterBenchmark("BM_UniStrC_Str/vorn_to_opening", [](benchmark::State& state) {
        vorn_bench::Paired(state, kOperations, NarrowOurs, NarrowOpening);
    });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
