// The converters against ICU's and the system's, by script: 64 KiB of UTF-8 and what it is in the other
// forms. The names read BM_<direction>/<script>/<who>; bytes per second count the input.

#include <vorn/vorn.h>

#include "core/win32.h"

#include <benchmark/benchmark.h>
#include <random>
#include <string>
#include <unicode/ustring.h>
#include <vector>

namespace {

struct Text {
    const char* name;
    std::vector<char> utf8;
    std::vector<wchar_t> utf16;
    std::vector<uint32_t> utf32;
};

uint32_t CodePoint(std::mt19937& random, const std::string& script)
{
    const bool space = random() % 7 == 0;
    if (script == "ascii") return space ? ' ' : 'a' + random() % 26;
    if (script == "latin") return random() % 5 == 0 ? 0xC0 + random() % 64 : 'a' + random() % 26;
    if (script == "cyrillic") return space ? ' ' : 0x410 + random() % 64;
    if (script == "chinese") return random() % 20 == 0 ? ' ' : 0x4E00 + random() % 0x5000;
    return space ? ' ' : 0x1F300 + random() % 0x300;
}

Text MakeText(const char* name, const std::string& script, size_t bytes, bool isDamaged)
{
    std::mt19937 random(3);
    Text text{name, {}, {}, {}};
    std::vector<uint32_t> codePoints;
    for (size_t size = 0; size < bytes;) {
        codePoints.push_back(CodePoint(random, script));
        size += codePoints.back() < 0x80      ? 1
                : codePoints.back() < 0x800   ? 2
                : codePoints.back() < 0x10000 ? 3
                                              : 4;
    }
    const uint32_t count = static_cast<uint32_t>(codePoints.size());
    text.utf8.resize(4 * codePoints.size());
    text.utf16.resize(2 * codePoints.size());
    uint32_t size = static_cast<uint32_t>(text.utf8.size());
    VornUtf32ToUtf8(codePoints.data(), count, text.utf8.data(), &size);
    text.utf8.resize(size);
    size = static_cast<uint32_t>(text.utf16.size());
    VornUtf32ToUtf16(codePoints.data(), count, text.utf16.data(), &size);
    text.utf16.resize(size);
    text.utf32 = codePoints;
    if (isDamaged) {
        for (size_t i = 0; i < text.utf8.size() / 100; ++i) text.utf8[random() % text.utf8.size()] = '\xFF';
        for (size_t i = 0; i < text.utf16.size() / 100; ++i)
            text.utf16[random() % text.utf16.size()] = 0xDC00;
        for (size_t i = 0; i < text.utf32.size() / 100; ++i)
            text.utf32[random() % text.utf32.size()] = 0xDC00;
    }
    return text;
}

constexpr size_t kLong = 64 << 10;

const std::vector<Text>& Texts()
{
    static const std::vector<Text> texts = [] {
        std::vector<Text> made;
        for (const char* script : {"ascii", "latin", "cyrillic", "chinese", "emoji"}) {
            made.push_back(MakeText(script, script, kLong, false));
        }
        made.push_back(MakeText("ascii_1pc_bad", "ascii", kLong, true));
        made.push_back(MakeText("cyrillic_1pc_bad", "cyrillic", kLong, true));
        made.push_back(MakeText("chinese_1pc_bad", "chinese", kLong, true));
        return made;
    }();
    return texts;
}

const UChar* Icu(const std::vector<wchar_t>& text)
{
    return reinterpret_cast<const UChar*>(text.data());
}

uint32_t Length(const std::vector<char>& text)
{
    return static_cast<uint32_t>(text.size());
}

uint32_t Length(const std::vector<wchar_t>& text)
{
    return static_cast<uint32_t>(text.size());
}

uint32_t Length(const std::vector<uint32_t>& text)
{
    return static_cast<uint32_t>(text.size());
}

// Output large enough for every direction.
template <class Unit>
std::vector<Unit>& Output()
{
    static std::vector<Unit> output(4 * kLong);
    return output;
}

template <class In, class Function>
void Register(const std::string& name, const std::vector<In>& input, Function convert)
{
    benchmark::RegisterBenchmark(("BM_" + name).c_str(), [&input, convert](benchmark::State& state) {
        for (auto _ : state) {
            convert(input);
            benchmark::ClobberMemory();
        }
        state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(input.size() * sizeof(In)));
    });
}

template <class In, class Out>
auto Vorn(VornStatus (*function)(const In*, uint32_t, Out*, uint32_t*))
{
    return [function](const std::vector<In>& input) {
        uint32_t size = static_cast<uint32_t>(Output<Out>().size());
        benchmark::DoNotOptimize(function(input.data(), Length(input), Output<Out>().data(), &size));
    };
}

template <class In, class Out>
auto VornSize(VornStatus (*function)(const In*, uint32_t, Out*, uint32_t*))
{
    return [function](const std::vector<In>& input) {
        uint32_t size = 0;
        benchmark::DoNotOptimize(function(input.data(), Length(input), nullptr, &size));
    };
}

void IcuUtf8ToUtf16(const std::vector<char>& text)
{
    UErrorCode error = U_ZERO_ERROR;
    int32_t size = 0;
    u_strFromUTF8WithSub(reinterpret_cast<UChar*>(Output<wchar_t>().data()), 4 * kLong, &size, text.data(),
                         static_cast<int32_t>(text.size()), 0xFFFD, nullptr, &error);
}

void SystemUtf8ToUtf16(const std::vector<char>& text)
{
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), Output<wchar_t>().data(),
                        4 * kLong);
}

void IcuUtf16ToUtf8(const std::vector<wchar_t>& text)
{
    UErrorCode error = U_ZERO_ERROR;
    int32_t size = 0;
    u_strToUTF8WithSub(Output<char>().data(), 4 * kLong, &size, Icu(text), static_cast<int32_t>(text.size()),
                       0xFFFD, nullptr, &error);
}

void SystemUtf16ToUtf8(const std::vector<wchar_t>& text)
{
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), Output<char>().data(),
                        4 * kLong, nullptr, nullptr);
}

void IcuUtf16ToUtf32(const std::vector<wchar_t>& text)
{
    UErrorCode error = U_ZERO_ERROR;
    int32_t size = 0;
    u_strToUTF32WithSub(reinterpret_cast<UChar32*>(Output<uint32_t>().data()), 4 * kLong, &size, Icu(text),
                        static_cast<int32_t>(text.size()), 0xFFFD, nullptr, &error);
}

void IcuUtf32ToUtf16(const std::vector<uint32_t>& text)
{
    UErrorCode error = U_ZERO_ERROR;
    int32_t size = 0;
    u_strFromUTF32WithSub(reinterpret_cast<UChar*>(Output<wchar_t>().data()), 4 * kLong, &size,
                          reinterpret_cast<const UChar32*>(text.data()), static_cast<int32_t>(text.size()),
                          0xFFFD, nullptr, &error);
}

// ICU reaches UTF-32 from UTF-8, and back, by way of UTF-16.
void IcuUtf8ToUtf32(const std::vector<char>& text)
{
    UErrorCode error = U_ZERO_ERROR;
    int32_t size = 0;
    UChar* const middle = reinterpret_cast<UChar*>(Output<wchar_t>().data());
    u_strFromUTF8WithSub(middle, 4 * kLong, &size, text.data(), static_cast<int32_t>(text.size()), 0xFFFD,
                         nullptr, &error);
    u_strToUTF32WithSub(reinterpret_cast<UChar32*>(Output<uint32_t>().data()), 4 * kLong, &size, middle, size,
                        0xFFFD, nullptr, &error);
}

void IcuUtf32ToUtf8(const std::vector<uint32_t>& text)
{
    UErrorCode error = U_ZERO_ERROR;
    int32_t size = 0;
    UChar* const middle = reinterpret_cast<UChar*>(Output<wchar_t>().data());
    u_strFromUTF32WithSub(middle, 4 * kLong, &size, reinterpret_cast<const UChar32*>(text.data()),
                          static_cast<int32_t>(text.size()), 0xFFFD, nullptr, &error);
    u_strToUTF8WithSub(Output<char>().data(), 4 * kLong, &size, middle, size, 0xFFFD, nullptr, &error);
}

void RegisterLongTexts()
{
    for (const Text& text : Texts()) {
        const std::string name = std::string("/") + text.name + "/";
        Register("Utf8ToUtf16" + name + "vorn", text.utf8, Vorn(VornUtf8ToUtf16));
        Register("Utf8ToUtf16" + name + "icu", text.utf8, IcuUtf8ToUtf16);
        Register("Utf8ToUtf16" + name + "MultiByteToWideChar", text.utf8, SystemUtf8ToUtf16);
        Register("Utf8ToUtf16" + name + "vorn_size", text.utf8, VornSize(VornUtf8ToUtf16));
        Register("Utf16ToUtf8" + name + "vorn", text.utf16, Vorn(VornUtf16ToUtf8));
        Register("Utf16ToUtf8" + name + "icu", text.utf16, IcuUtf16ToUtf8);
        Register("Utf16ToUtf8" + name + "WideCharToMultiByte", text.utf16, SystemUtf16ToUtf8);
        Register("Utf16ToUtf8" + name + "vorn_size", text.utf16, VornSize(VornUtf16ToUtf8));
        Register("Utf8ToUtf32" + name + "vorn", text.utf8, Vorn(VornUtf8ToUtf32));
        Register("Utf8ToUtf32" + name + "icu", text.utf8, IcuUtf8ToUtf32);
        Register("Utf8ToUtf32" + name + "vorn_size", text.utf8, VornSize(VornUtf8ToUtf32));
        Register("Utf32ToUtf8" + name + "vorn", text.utf32, Vorn(VornUtf32ToUtf8));
        Register("Utf32ToUtf8" + name + "icu", text.utf32, IcuUtf32ToUtf8);
        Register("Utf32ToUtf8" + name + "vorn_size", text.utf32, VornSize(VornUtf32ToUtf8));
        Register("Utf16ToUtf32" + name + "vorn", text.utf16, Vorn(VornUtf16ToUtf32));
        Register("Utf16ToUtf32" + name + "icu", text.utf16, IcuUtf16ToUtf32);
        Register("Utf16ToUtf32" + name + "vorn_size", text.utf16, VornSize(VornUtf16ToUtf32));
        Register("Utf32ToUtf16" + name + "vorn", text.utf32, Vorn(VornUtf32ToUtf16));
        Register("Utf32ToUtf16" + name + "icu", text.utf32, IcuUtf32ToUtf16);
        Register("Utf32ToUtf16" + name + "vorn_size", text.utf32, VornSize(VornUtf32ToUtf16));
    }
}

void RegisterShortTexts()
{
    static std::vector<Text> texts;
    for (const char* script : {"ascii", "cyrillic", "chinese"}) {
        for (size_t units : {1, 4, 8, 16, 32}) {
            Text text = MakeText(script, script, 200, false);
            text.utf32.resize(units);
            text.utf16.resize(units);
            uint32_t size = static_cast<uint32_t>(text.utf8.size());
            VornUtf32ToUtf8(text.utf32.data(), static_cast<uint32_t>(units), text.utf8.data(), &size);
            text.utf8.resize(size);
            texts.push_back(text);
        }
    }
    for (const Text& text : texts) {
        const std::string name = std::string("/") + text.name + "_" + std::to_string(text.utf32.size()) + "/";
        Register("Short_Utf8ToUtf16" + name + "vorn", text.utf8, Vorn(VornUtf8ToUtf16));
        Register("Short_Utf8ToUtf16" + name + "icu", text.utf8, IcuUtf8ToUtf16);
        Register("Short_Utf16ToUtf8" + name + "vorn", text.utf16, Vorn(VornUtf16ToUtf8));
        Register("Short_Utf16ToUtf8" + name + "icu", text.utf16, IcuUtf16ToUtf8);
        Register("Short_Utf16ToUtf32" + name + "vorn", text.utf16, Vorn(VornUtf16ToUtf32));
        Register("Short_Utf16ToUtf32" + name + "icu", text.utf16, IcuUtf16ToUtf32);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    RegisterLongTexts();
    RegisterShortTexts();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
