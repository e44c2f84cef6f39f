// Each vector level's converters against ICU's, by script: 64 KiB of UTF-8 and what it is in the other forms,
// and texts of 16 and 32 characters. The exported functions use the widest level; this shows what the others
// give on processors that end there.
//
// All levels and ICU take turns in short batches, so that whatever slows the machine slows all of them. Shown
// for each is the best batch: ICU's speed in GB of input per second (icu), each level's speed (AVX2) and its
// ratio to ICU's (AVX2_x), and how many times faster its size query is than its conversion (AVX2_size).

#include "core/cpu.h"
#include "paired.h"
#include "text/transcode.h"

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <unicode/ustring.h>
#include <vector>

using namespace vorn::detail;
using namespace vorn_bench;

namespace {

constexpr size_t kLong = 64 << 10;

struct Text {
    std::string name;
    std::vector<uint8_t> utf8;
    std::vector<wchar_t> utf16;
    std::vector<uint32_t> utf32;
    int repeats;  // conversions in a batch
};

uint32_t CodePoint(std::mt19937& random, const std::string& script)
{
    const bool space = random() % 7 == 0;
    if (script == "ascii") return space ? ' ' : 'a' + random() % 26;
    if (script == "latin") return random() % 5 == 0 ? 0xC0 + random() % 64 : 'a' + random() % 26;
    if (script == "cyrillic") return space ? ' ' : 0x410 + random() % 64;
    if (script == "chinese") return random() % 20 == 0 ? ' ' : 0x4E00 + random() % 0x5000;
    if (script == "mixed") return random() % 2 == 0 ? 0x370 + random() % 0x80 : 0x4E00 + random() % 0x5000;
    return space ? ' ' : 0x1F300 + random() % 0x300;
}

template <class Unit>
void Damage(std::mt19937& random, std::vector<Unit>& text, Unit illFormed)
{
    for (size_t i = 0; i < text.size() / 100; ++i) text[random() % text.size()] = illFormed;
}

Text MakeText(const std::string& script, size_t maxCharacters, bool isDamaged)
{
    std::mt19937 random(3);
    Text text;
    size_t bytes = 0;
    while (bytes < kLong && text.utf32.size() < maxCharacters) {
        text.utf32.push_back(CodePoint(random, script));
        bytes += Utf8::Length(text.utf32.back());
    }
    text.utf8.resize(bytes);
    text.utf16.resize(2 * text.utf32.size());
    kTranscodePlain.utf32ToUtf8(text.utf32.data(), text.utf32.size(), text.utf8.data(), bytes);
    text.utf16.resize(
        kTranscodePlain
            .utf32ToUtf16(text.utf32.data(), text.utf32.size(), text.utf16.data(), text.utf16.size())
            .written);
    text.name = script;
    text.repeats = 1;
    if (bytes < kLong) {
        text.name += "_" + std::to_string(text.utf32.size());
        text.repeats = 200;
    }
    if (isDamaged) {
        text.name += "_1pc_bad";
        Damage(random, text.utf8, uint8_t{0xFF});
        Damage(random, text.utf16, wchar_t{0xDC00});
        Damage(random, text.utf32, uint32_t{0xDC00});
    }
    return text;
}

// Output large enough for every direction.
template <class Unit>
std::vector<Unit>& Output()
{
    static std::vector<Unit> output(4 * kLong);
    return output;
}

constexpr int32_t kIcuRoom = 4 * kLong;

UChar* Icu(const wchar_t* text)
{
    return reinterpret_cast<UChar*>(const_cast<wchar_t*>(text));
}

int32_t IcuFromUtf8(const uint8_t* text, size_t length, wchar_t* units)
{
    UErrorCode error = U_ZERO_ERROR;
    int32_t size = 0;
    u_strFromUTF8WithSub(Icu(units), kIcuRoom, &size, reinterpret_cast<const char*>(text),
                         static_cast<int32_t>(length), 0xFFFD, nullptr, &error);
    return size;
}

void IcuToUtf8(const wchar_t* text, size_t length, uint8_t* bytes)
{
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8WithSub(reinterpret_cast<char*>(bytes), kIcuRoom, nullptr, Icu(text),
                       static_cast<int32_t>(length), 0xFFFD, nullptr, &error);
}

int32_t IcuFromUtf32(const uint32_t* text, size_t length, wchar_t* units)
{
    UErrorCode error = U_ZERO_ERROR;
    int32_t size = 0;
    u_strFromUTF32WithSub(Icu(units), kIcuRoom, &size, reinterpret_cast<const UChar32*>(text),
                          static_cast<int32_t>(length), 0xFFFD, nullptr, &error);
    return size;
}

void IcuToUtf32(const wchar_t* text, size_t length, uint32_t* codePoints)
{
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF32WithSub(reinterpret_cast<UChar32*>(codePoints), kIcuRoom, nullptr, Icu(text),
                        static_cast<int32_t>(length), 0xFFFD, nullptr, &error);
}

void IcuConvert(const uint8_t* text, size_t length, wchar_t* units)
{
    IcuFromUtf8(text, length, units);
}

void IcuConvert(const wchar_t* text, size_t length, uint8_t* bytes)
{
    IcuToUtf8(text, length, bytes);
}

void IcuConvert(const uint32_t* text, size_t length, wchar_t* units)
{
    IcuFromUtf32(text, length, units);
}

void IcuConvert(const wchar_t* text, size_t length, uint32_t* codePoints)
{
    IcuToUtf32(text, length, codePoints);
}

// ICU reaches UTF-32 from UTF-8, and back, by way of UTF-16.
void IcuConvert(const uint8_t* text, size_t length, uint32_t* codePoints)
{
    wchar_t* const middle = Output<wchar_t>().data();
    IcuToUtf32(middle, static_cast<size_t>(IcuFromUtf8(text, length, middle)), codePoints);
}

void IcuConvert(const uint32_t* text, size_t length, uint8_t* bytes)
{
    wchar_t* const middle = Output<wchar_t>().data();
    IcuToUtf8(middle, static_cast<size_t>(IcuFromUtf32(text, length, middle)), bytes);
}

struct Contender {
    std::function<void()> batch;
    double bestNs;
};

double BestNs(const Contender& contender)
{
    return contender.bestNs;
}

template <class In, class Out, class CountResult>
void Register(const std::string& direction, const Text& text, const std::vector<In> Text::*form,
              Converted (*TranscodeTable::*convert)(const In*, size_t, Out*, size_t),
              CountResult (*TranscodeTable::*count)(const In*, size_t))
{
    const std::vector<In>& input = text.*form;
    const int repeats = text.repeats;
    const auto run = [=, &input](benchmark::State& state) {
        Out* const out = Output<Out>().data();
        const auto contender = [&](auto&& once) {
            return Contender{[&input, repeats, once] {
                                 for (int i = 0; i < repeats; ++i) {
                                     once();
                                     benchmark::ClobberMemory();
                                 }
                             },
                             1e18};
        };
        std::vector<Contender> contenders;
        contenders.push_back(contender([&input, out] { IcuConvert(input.data(), input.size(), out); }));
        std::vector<VectorLevel> levels;
        for (VectorLevel level : kAllVectorLevels) {
            if (level > WidestVectorLevel()) continue;
            const TranscodeTable& table = TranscodeFor(level);
            levels.push_back(level);
            contenders.push_back(contender([&input, out, function = table.*convert] {
                benchmark::DoNotOptimize(function(input.data(), input.size(), out, 4 * kLong));
            }));
            contenders.push_back(contender([&input, function = table.*count] {
                benchmark::DoNotOptimize(function(input.data(), input.size()));
            }));
        }
        for (auto _ : state) {
            for (Contender& each : contenders) each.bestNs = std::min(each.bestNs, NanosecondsOf(each.batch));
        }
        const double bytes = static_cast<double>(input.size() * sizeof(In)) * repeats;
        const double icuNs = BestNs(contenders[0]);
        state.counters["icu"] = bytes / icuNs;
        for (size_t i = 0; i < levels.size(); ++i) {
            const std::string name = VectorLevelName(levels[i]);
            const double ns = BestNs(contenders[1 + 2 * i]);
            state.counters[name] = bytes / ns;
            state.counters[name + "_x"] = icuNs / ns;
            state.counters[name + "_size"] = ns / BestNs(contenders[2 + 2 * i]);
        }
    };
    benchmark::RegisterBenchmark(("BM_" + direction + "/" + text.name).c_str(), run);
}

void RegisterAll(const Text& text)
{
    using Table = TranscodeTable;
    Register("Utf8ToUtf16", text, &Text::utf8, &Table::utf8ToUtf16, &Table::countUtf8ToUtf16);
    Register("Utf16ToUtf8", text, &Text::utf16, &Table::utf16ToUtf8, &Table::countUtf16ToUtf8);
    Register("Utf8ToUtf32", text, &Text::utf8, &Table::utf8ToUtf32, &Table::countUtf8ToUtf32);
    Register("Utf32ToUtf8", text, &Text::utf32, &Table::utf32ToUtf8, &Table::countUtf32ToUtf8);
    Register("Utf16ToUtf32", text, &Text::utf16, &Table::utf16ToUtf32, &Table::countUtf16ToUtf32);
    Register("Utf32ToUtf16", text, &Text::utf32, &Table::utf32ToUtf16, &Table::countUtf32ToUtf16);
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<Text> texts;
    for (const char* script : {"ascii", "latin", "cyrillic", "chinese", "mixed", "emoji"}) {
        texts.push_back(MakeText(script, kLong, false));
        texts.push_back(MakeText(script, kLong, true));
        for (size_t characters : {16, 32}) texts.push_back(MakeText(script, characters, false));
    }
    for (const Text& text : texts) RegisterAll(text);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
