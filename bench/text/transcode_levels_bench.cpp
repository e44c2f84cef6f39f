// Each vector level's converters between UTF-8 and UTF-16, against ICU's, by script: 64 KiB of UTF-8.
// The exported functions use the widest level; this shows what the others give on processors that end there.

#include "core/cpu.h"
#include "text/transcode.h"

#include <benchmark/benchmark.h>
#include <random>
#include <string>
#include <unicode/ustring.h>
#include <vector>

using namespace vorn::detail;

namespace {

constexpr size_t kBytes = 64 << 10;

struct Text {
    std::string script;
    std::vector<uint8_t> utf8;
    std::vector<wchar_t> utf16;
};

Text MakeText(const std::string& script, uint32_t first, uint32_t count, unsigned spaceEvery)
{
    std::mt19937 random(3);
    std::vector<uint32_t> codePoints;
    for (size_t size = 0; size < kBytes; size += Utf8::Length(codePoints.back())) {
        codePoints.push_back(random() % spaceEvery == 0 ? ' ' : first + random() % count);
    }
    Text text{script, std::vector<uint8_t>(4 * codePoints.size()),
              std::vector<wchar_t>(2 * codePoints.size())};
    text.utf8.resize(
        kTranscodePlain.utf32ToUtf8(codePoints.data(), codePoints.size(), text.utf8.data(), text.utf8.size())
            .written);
    text.utf16.resize(
        kTranscodePlain
            .utf32ToUtf16(codePoints.data(), codePoints.size(), text.utf16.data(), text.utf16.size())
            .written);
    return text;
}

template <class Function>
void Register(const std::string& name, size_t bytes, Function run)
{
    benchmark::RegisterBenchmark(name.c_str(), [bytes, run](benchmark::State& state) {
        for (auto _ : state) {
            run();
            benchmark::ClobberMemory();
        }
        state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
    });
}

void RegisterAll(const Text& text)
{
    static std::vector<wchar_t> units(2 * kBytes);
    static std::vector<uint8_t> bytes(4 * kBytes);
    const size_t bytesOf16 = text.utf16.size() * sizeof(wchar_t);
    for (VectorLevel level : kAllVectorLevels) {
        if (level > WidestVectorLevel()) continue;
        const TranscodeTable& table = TranscodeFor(level);
        Register("BM_Utf8ToUtf16/" + text.script + "/" + VectorLevelName(level), text.utf8.size(), [&] {
            benchmark::DoNotOptimize(
                table.utf8ToUtf16(text.utf8.data(), text.utf8.size(), units.data(), units.size()));
        });
        Register("BM_Utf16ToUtf8/" + text.script + "/" + VectorLevelName(level), bytesOf16, [&] {
            benchmark::DoNotOptimize(
                table.utf16ToUtf8(text.utf16.data(), text.utf16.size(), bytes.data(), bytes.size()));
        });
    }
    Register("BM_Utf8ToUtf16/" + text.script + "/icu", text.utf8.size(), [&] {
        UErrorCode error = U_ZERO_ERROR;
        int32_t size = 0;
        u_strFromUTF8WithSub(reinterpret_cast<UChar*>(units.data()), static_cast<int32_t>(units.size()),
                             &size, reinterpret_cast<const char*>(text.utf8.data()),
                             static_cast<int32_t>(text.utf8.size()), 0xFFFD, nullptr, &error);
    });
    Register("BM_Utf16ToUtf8/" + text.script + "/icu", bytesOf16, [&] {
        UErrorCode error = U_ZERO_ERROR;
        int32_t size = 0;
        u_strToUTF8WithSub(reinterpret_cast<char*>(bytes.data()), static_cast<int32_t>(bytes.size()), &size,
                           reinterpret_cast<const UChar*>(text.utf16.data()),
                           static_cast<int32_t>(text.utf16.size()), 0xFFFD, nullptr, &error);
    });
}

}  // namespace

int main(int argc, char** argv)
{
    static const Text texts[] = {
        MakeText("ascii", 'a', 26, 7),        MakeText("latin", 'a', 160, 7),
        MakeText("cyrillic", 0x410, 64, 7),   MakeText("chinese", 0x4E00, 0x5000, 20),
        MakeText("emoji", 0x1F300, 0x300, 7),
    };
    for (const Text& text : texts) RegisterAll(text);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
