#include <vorn/vorn.h>

#include "support/guard_buffer.h"
#include "text/transcode_model.h"
#include "text/transcode_texts.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

using namespace vorn_test;

namespace {

using Utf32Text = std::vector<uint32_t>;

template <class Out>
struct Result {
    std::vector<Out> output;
    uint32_t size;
    VornStatus status;
};

// Converts with a capacity of at least one, out of and into memory flush against guard pages, and expects
// that nothing was written behind the units converted.
template <class Out, class In>
Result<Out> Convert(VornStatus (*function)(const In*, uint32_t, Out*, uint32_t*), const std::vector<In>& text,
                    uint32_t capacity)
{
    const GuardBuffer input = GuardBuffer::Of(text.data(), text.size() * sizeof(In));
    const GuardBuffer output(capacity * sizeof(Out));
    std::memset(output.Data(), 0x5C, output.Size());
    Result<Out> result{{}, capacity, 0};
    result.status =
        function(input.As<const In>(), static_cast<uint32_t>(text.size()), output.As<Out>(), &result.size);
    result.output.assign(output.As<Out>(), output.As<Out>() + capacity);
    return result;
}

template <class Out, class In>
void ExpectOutput(VornStatus (*function)(const In*, uint32_t, Out*, uint32_t*), const std::vector<In>& text,
                  const std::vector<Out>& expected)
{
    const Result<Out> exact = Convert(function, text, static_cast<uint32_t>(expected.size()));
    EXPECT_EQ(exact.status, VORN_OK);
    EXPECT_EQ(exact.size, expected.size());
    EXPECT_EQ(exact.output, expected);
}

template <class Out, class In>
uint32_t Query(VornStatus (*function)(const In*, uint32_t, Out*, uint32_t*), const std::vector<In>& text,
               uint32_t length)
{
    uint32_t size = 0;
    const GuardBuffer input = GuardBuffer::Of(text.data(), text.size() * sizeof(In));
    EXPECT_EQ(function(input.As<const In>(), length, nullptr, &size), VORN_E_BUFFER_TOO_SMALL);
    return size;
}

std::vector<char> Bytes(const std::string& text)
{
    return std::vector<char>(text.begin(), text.end());
}

void ExpectUtf16(const std::string& utf8, const std::vector<wchar_t>& expected)
{
    SCOPED_TRACE(testing::PrintToString(utf8));
    ExpectOutput(VornUtf8ToUtf16, Bytes(utf8), expected);
}

// The model's bytes are unsigned.
template <class Unit>
using ModelUnit = std::conditional_t<std::is_same_v<Unit, char>, uint8_t, Unit>;

// Expects the model's result for every part of the text that begins where it begins, with every capacity.
// What lies behind a part often would complete its last character.
template <class Out, class In>
void ExpectContract(VornStatus (*function)(const In*, uint32_t, Out*, uint32_t*),
                    const Text<ModelUnit<In>>& text)
{
    const GuardBuffer input = GuardBuffer::Of(text.data(), text.size() * sizeof(In));
    const In* const src = input.As<const In>();
    for (uint32_t length = 0; length <= text.size(); ++length) {
        const Model<ModelUnit<Out>> model =
            ModelConvert<ModelUnit<Out>>(Text<ModelUnit<In>>(text.begin(), text.begin() + length));
        const uint32_t needed = static_cast<uint32_t>(model.units.size());
        if (length != 0) {
            uint32_t size = 0;
            ASSERT_EQ(function(src, length, nullptr, &size), VORN_E_BUFFER_TOO_SMALL);
            ASSERT_EQ(size, model.querySize) << testing::PrintToString(text) << " of length " << length;
        }
        std::vector<Out> output(needed + 1);
        for (uint32_t capacity = 1; capacity <= needed + 1; ++capacity) {
            std::memset(output.data(), 0x5C, output.size() * sizeof(Out));
            uint32_t size = capacity;
            const size_t written = model.WrittenInto(capacity);
            ASSERT_EQ(function(src, length, output.data(), &size),
                      written == needed ? VORN_OK : VORN_E_BUFFER_TOO_SMALL)
                << testing::PrintToString(text) << " of length " << length << " into " << capacity;
            ASSERT_EQ(size, needed) << testing::PrintToString(text) << " of length " << length << " into "
                                    << capacity;
            const uint8_t* const bytes = reinterpret_cast<const uint8_t*>(output.data());
            ASSERT_TRUE(std::equal(bytes, bytes + written * sizeof(Out),
                                   reinterpret_cast<const uint8_t*>(model.units.data())));
            ASSERT_TRUE(std::all_of(bytes + written * sizeof(Out), bytes + output.size() * sizeof(Out),
                                    [](uint8_t byte) { return byte == 0x5C; }));
        }
    }
}

// Expects that the text is measured up to its first zero, of which there is one at its end at the latest.
template <class Out, class In>
void ExpectTerminatedQuery(VornStatus (*function)(const In*, uint32_t, Out*, uint32_t*),
                           Text<ModelUnit<In>> text)
{
    text.push_back(0);
    const GuardBuffer input = GuardBuffer::Of(text.data(), text.size() * sizeof(In));
    text.erase(std::find(text.begin(), text.end(), ModelUnit<In>{0}), text.end());
    uint32_t size = 0;
    ASSERT_EQ(function(input.As<const In>(), 0, nullptr, &size), VORN_E_BUFFER_TOO_SMALL);
    ASSERT_EQ(size, ModelConvert<ModelUnit<Out>>(text).querySize + 1) << testing::PrintToString(text);
}

std::vector<wchar_t> Replacements(size_t count)
{
    return std::vector<wchar_t>(count, 0xFFFD);
}

}  // namespace

TEST(TranscodeSize, AsksForATerminatedTextWithItsTerminator)
{
    EXPECT_EQ(Query(VornUtf8ToUtf16, Bytes(std::string(1, '\0')), 0), 1u);
    EXPECT_EQ(Query(VornUtf8ToUtf16, Bytes(std::string("abc", 4)), 0), 4u);
    EXPECT_EQ(Query(VornUtf8ToUtf32, Bytes(std::string("\xF0\x9F\x98\x80", 5)), 0), 2u);
    EXPECT_EQ(Query(VornUtf8ToUtf16, Bytes(std::string("\xF0\x9F\x98\x80", 5)), 0), 3u);
    EXPECT_EQ(Query(VornUtf16ToUtf8, std::vector<wchar_t>{0}, 0), 1u);
    EXPECT_EQ(Query(VornUtf16ToUtf8, std::vector<wchar_t>{0xD83D, 0xDE00, 0}, 0), 5u);
    EXPECT_EQ(Query(VornUtf16ToUtf32, std::vector<wchar_t>{0xD83D, 0xDE00, 0}, 0), 2u);
    EXPECT_EQ(Query(VornUtf32ToUtf8, Utf32Text{0x1F600, 0x20AC, 0}, 0), 8u);
    EXPECT_EQ(Query(VornUtf32ToUtf16, Utf32Text{0x1F600, 0x20AC, 0}, 0), 4u);
    EXPECT_EQ(Query(VornUtf32ToUtf16, Utf32Text{0}, 0), 1u);
}

TEST(TranscodeSize, MeasuresExactlyTheGivenLengthWithoutATerminator)
{
    EXPECT_EQ(Query(VornUtf8ToUtf16, Bytes("abc"), 3), 3u);
    EXPECT_EQ(Query(VornUtf8ToUtf16, Bytes(std::string("a\0c", 3)), 3), 3u);
    EXPECT_EQ(Query(VornUtf16ToUtf8, std::vector<wchar_t>{0x20AC, 0, 0xE9}, 3), 6u);
    EXPECT_EQ(Query(VornUtf32ToUtf16, Utf32Text{0x1F600}, 1), 2u);
}

TEST(TranscodeSize, AsksForTerminatedTextsOfEveryLengthAtEveryAlignment)
{
    for (size_t length = 0; length < 80; ++length) {
        std::vector<char> utf8(length, 'x');
        std::vector<wchar_t> utf16(length, L'x');
        Utf32Text utf32(length, 'x');
        utf8.push_back(0);
        utf16.push_back(0);
        utf32.push_back(0);
        ASSERT_EQ(Query(VornUtf8ToUtf16, utf8, 0), length + 1);
        ASSERT_EQ(Query(VornUtf16ToUtf8, utf16, 0), length + 1);
        ASSERT_EQ(Query(VornUtf32ToUtf8, utf32, 0), length + 1);
    }
}

TEST(TranscodeSize, CountsNothingForSequencesAboveTheLastCodePointButTheConversionWritesOne)
{
    for (const char* text : {"\xF4\x90\x80\x80", "\xF4\xA0\x80\xBF", "\xF4\xBF\xBF\xBF"}) {
        EXPECT_EQ(Query(VornUtf8ToUtf16, Bytes(text), 4), 0u);
        EXPECT_EQ(Query(VornUtf8ToUtf32, Bytes(text), 4), 0u);
        EXPECT_EQ(Query(VornUtf8ToUtf16, Bytes(std::string(text, 5)), 0), 1u);
        ExpectOutput(VornUtf8ToUtf16, Bytes(text), {0xFFFD});
        ExpectOutput(VornUtf8ToUtf32, Bytes(text), {0xFFFD});
    }
    EXPECT_EQ(Query(VornUtf8ToUtf16, Bytes("\xF4\x8F\xBF\xBF"), 4), 2u);
}

TEST(TranscodeSize, TheOverflowCountIncludesSequencesAboveTheLastCodePoint)
{
    const std::vector<char> text = Bytes("a\xF4\x90\x80\x80\xF4\x90\x80\x80");
    EXPECT_EQ(Query(VornUtf8ToUtf16, text, 9), 1u);
    const Result<wchar_t> result = Convert(VornUtf8ToUtf16, text, 1);
    EXPECT_EQ(result.status, VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(result.size, 3u);
    EXPECT_EQ(result.output, std::vector<wchar_t>{L'a'});
}

TEST(TranscodeConversion, OfNothingWritesNothing)
{
    wchar_t units[2] = {0x1111, 0x2222};
    uint32_t size = 10;
    EXPECT_EQ(VornUtf8ToUtf16(nullptr, 0, units, &size), VORN_OK);
    EXPECT_EQ(size, 0u);
    size = 10;
    EXPECT_EQ(VornUtf32ToUtf16(nullptr, 0, units, &size), VORN_OK);
    EXPECT_EQ(size, 0u);
    uint32_t codePoints[1];
    size = 1;
    EXPECT_EQ(VornUtf8ToUtf32("abc", 0, codePoints, &size), VORN_OK);
    EXPECT_EQ(size, 0u);
    size = 1;
    EXPECT_EQ(VornUtf16ToUtf32(units, 0, codePoints, &size), VORN_OK);
    EXPECT_EQ(size, 0u);
    char bytes[1];
    size = 1;
    EXPECT_EQ(VornUtf16ToUtf8(units, 0, bytes, &size), VORN_OK);
    EXPECT_EQ(size, 0u);
    size = 1;
    EXPECT_EQ(VornUtf32ToUtf8(codePoints, 0, bytes, &size), VORN_OK);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(units[0], 0x1111);
    EXPECT_EQ(units[1], 0x2222);
}

TEST(TranscodeConversion, ConvertsZerosLikeAnyCharacterAndAddsNone)
{
    ExpectUtf16(std::string("a\0b\0", 4), {L'a', 0, L'b', 0});
    const Result<wchar_t> roomy = Convert(VornUtf8ToUtf16, Bytes("ab"), 5);
    EXPECT_EQ(roomy.status, VORN_OK);
    EXPECT_EQ(roomy.size, 2u);
    EXPECT_EQ(roomy.output, (std::vector<wchar_t>{L'a', L'b', 0x5C5C, 0x5C5C, 0x5C5C}));
}

TEST(TranscodeConversion, StopsBeforeTheCharacterThatDoesNotFit)
{
    const Result<wchar_t> letters = Convert(VornUtf8ToUtf16, Bytes("abc"), 2);
    EXPECT_EQ(letters.status, VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(letters.size, 3u);
    EXPECT_EQ(letters.output, (std::vector<wchar_t>{L'a', L'b'}));

    const Result<wchar_t> pair = Convert(VornUtf32ToUtf16, Utf32Text{0x1F600}, 1);
    EXPECT_EQ(pair.status, VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(pair.size, 2u);
    EXPECT_EQ(pair.output, std::vector<wchar_t>{0x5C5C});

    const Result<wchar_t> behindPair = Convert(VornUtf8ToUtf16, Bytes("a\xF0\x9F\x98\x80z"), 2);
    EXPECT_EQ(behindPair.status, VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(behindPair.size, 4u);
    EXPECT_EQ(behindPair.output, (std::vector<wchar_t>{L'a', 0x5C5C}));

    const Result<char> bytes = Convert(VornUtf16ToUtf8, std::vector<wchar_t>{L'a', 0x20AC, L'b'}, 3);
    EXPECT_EQ(bytes.status, VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(bytes.size, 5u);
    EXPECT_EQ(bytes.output, (std::vector<char>{'a', 0x5C, 0x5C}));
}

TEST(TranscodeConversion, SequencesCutOffByTheLengthAreIllFormedAndNothingBehindIsRead)
{
    // Convert() lays the text against a guard page.
    ExpectUtf16("\xF0\x9F\x98", Replacements(3));
    ExpectUtf16("a\xE2\x82", {L'a', 0xFFFD, 0xFFFD});
    ExpectUtf16("\xC3", Replacements(1));
    ExpectOutput(VornUtf16ToUtf32, std::vector<wchar_t>{L'a', 0xD83D}, Utf32Text{'a', 0xFFFD});
    ExpectOutput(VornUtf16ToUtf8, std::vector<wchar_t>{0xD83D}, Bytes("\xEF\xBF\xBD"));
    EXPECT_EQ(Query(VornUtf8ToUtf16, Bytes("\xF0\x9F\x98"), 3), 3u);
    EXPECT_EQ(Query(VornUtf16ToUtf8, std::vector<wchar_t>{0xD83D}, 1), 3u);
}

TEST(TranscodeConversion, AgreesWithTheModelForEveryPartAndCapacityOfRandomTexts)
{
    std::mt19937 random(21);
    for (int kind = 0; kind < 8; ++kind) {
        for (size_t places = 0; places < 9; places += 4) {
            Text<uint8_t> utf8 = RandomText<uint8_t>(random, kind, 70);
            Text<wchar_t> utf16 = RandomText<wchar_t>(random, kind, 40);
            Text<uint32_t> utf32 = RandomText<uint32_t>(random, kind, 30);
            Damage(random, utf8, places);
            Damage(random, utf16, places);
            Damage(random, utf32, places);
            ExpectContract(VornUtf8ToUtf16, utf8);
            ExpectContract(VornUtf8ToUtf32, utf8);
            ExpectContract(VornUtf16ToUtf8, utf16);
            ExpectContract(VornUtf16ToUtf32, utf16);
            ExpectContract(VornUtf32ToUtf8, utf32);
            ExpectContract(VornUtf32ToUtf16, utf32);
            ExpectTerminatedQuery(VornUtf8ToUtf16, utf8);
            ExpectTerminatedQuery(VornUtf8ToUtf32, utf8);
            ExpectTerminatedQuery(VornUtf16ToUtf8, utf16);
            ExpectTerminatedQuery(VornUtf16ToUtf32, utf16);
            ExpectTerminatedQuery(VornUtf32ToUtf8, utf32);
            ExpectTerminatedQuery(VornUtf32ToUtf16, utf32);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

// A sequence cut off by the length is ill-formed although the memory behind it would complete it.
TEST(TranscodeConversion, DoesNotCompleteASequenceFromBehindTheLength)
{
    wchar_t units[4] = {};
    uint32_t size = 4;
    EXPECT_EQ(VornUtf8ToUtf16("\xF0\x9F\x98\x80", 3, units, &size), VORN_OK);
    EXPECT_EQ(size, 3u);
    const wchar_t pair[] = {0xD83D, 0xDE00};
    uint32_t codePoints[2] = {};
    size = 2;
    EXPECT_EQ(VornUtf16ToUtf32(pair, 1, codePoints, &size), VORN_OK);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(codePoints[0], 0xFFFDu);
}

TEST(Utf8Reading, ConvertsTheFirstAndLastCharacterOfEveryLength)
{
    ExpectUtf16(std::string(1, '\0'), {0});
    ExpectUtf16("\x7F", {0x7F});
    ExpectUtf16("\xC2\x80", {0x80});
    ExpectUtf16("\xDF\xBF", {0x7FF});
    ExpectUtf16("\xE0\xA0\x80", {0x800});
    ExpectUtf16("\xED\x9F\xBF", {0xD7FF});
    ExpectUtf16("\xEE\x80\x80", {0xE000});
    ExpectUtf16("\xEF\xBF\xBD", {0xFFFD});
    ExpectUtf16("\xEF\xBF\xBF", {0xFFFF});
    ExpectUtf16("\xF0\x90\x80\x80", {0xD800, 0xDC00});
    ExpectUtf16("\xF0\x9F\x98\x80", {0xD83D, 0xDE00});
    ExpectUtf16("\xF4\x8F\xBF\xBF", {0xDBFF, 0xDFFF});
    ExpectUtf16("\xCE\xBA\xE1\xBD\xB9\xCF\x83\xCE\xBC\xCE\xB5", {0x3BA, 0x1F79, 0x3C3, 0x3BC, 0x3B5});
}

TEST(Utf8Reading, ReplacesEachUnexpectedContinuationByte)
{
    ExpectUtf16("\x80", Replacements(1));
    ExpectUtf16("\xBF", Replacements(1));
    ExpectUtf16("\x80\xBF\x80\xBF\x80\xBF\x80", Replacements(7));
    std::string all;
    for (int byte = 0x80; byte <= 0xBF; ++byte) all += static_cast<char>(byte);
    ExpectUtf16(all, Replacements(64));
}

TEST(Utf8Reading, ReplacesEachLonelyLeadByte)
{
    std::string text;
    std::vector<wchar_t> expected;
    for (int lead = 0xC0; lead <= 0xFF; ++lead) {
        text += static_cast<char>(lead);
        text += ' ';
        expected.insert(expected.end(), {0xFFFD, L' '});
    }
    ExpectUtf16(text, expected);
}

TEST(Utf8Reading, ReplacesEachByteOfATruncatedSequence)
{
    ExpectUtf16("\xC3 ", {0xFFFD, L' '});
    ExpectUtf16("\xE2\x82 ", {0xFFFD, 0xFFFD, L' '});
    ExpectUtf16("\xF0\x9F\x98 ", {0xFFFD, 0xFFFD, 0xFFFD, L' '});
    ExpectUtf16("\xE2\xE2\x82\xAC", {0xFFFD, 0x20AC});
    ExpectUtf16("\xF0\x9F\xF0\x9F\x98\x80", {0xFFFD, 0xFFFD, 0xD83D, 0xDE00});
    ExpectUtf16("\xC0\xE0\x80\xF0\x80\x80\xF8\x80\x80\x80\xFC\x80\x80\x80\x80\xDF\xEF\xBF\xF7\xBF\xBF",
                Replacements(21));
}

TEST(Utf8Reading, ReplacesImpossibleBytes)
{
    ExpectUtf16("\xFE", Replacements(1));
    ExpectUtf16("\xFF", Replacements(1));
    ExpectUtf16("\xFE\xFE\xFF\xFF", Replacements(4));
    ExpectUtf16("\xF8\x88\x80\x80\x80", Replacements(5));
    ExpectUtf16("\xFC\x84\x80\x80\x80\x80", Replacements(6));
    ExpectUtf16("\xF5\x80\x80\x80", Replacements(4));
}

TEST(Utf8Reading, ReplacesEachByteOfAnOverlongForm)
{
    ExpectUtf16("\xC0\xAF", Replacements(2));
    ExpectUtf16("\xC1\xBF", Replacements(2));
    ExpectUtf16("\xC0\x80", Replacements(2));
    ExpectUtf16("\xE0\x80\xAF", Replacements(3));
    ExpectUtf16("\xE0\x9F\xBF", Replacements(3));
    ExpectUtf16("\xF0\x80\x80\xAF", Replacements(4));
    ExpectUtf16("\xF0\x8F\xBF\xBF", Replacements(4));
    ExpectUtf16("\xF8\x87\xBF\xBF\xBF", Replacements(5));
}

TEST(Utf8Reading, ReplacesEachByteOfAnEncodedSurrogate)
{
    ExpectUtf16("\xED\xA0\x80", Replacements(3));
    ExpectUtf16("\xED\xBF\xBF", Replacements(3));
    ExpectUtf16("\xED\xA0\xBD\xED\xB8\x80", Replacements(6));
}

TEST(Utf16Reading, ReplacesEachLoneSurrogate)
{
    ExpectOutput(VornUtf16ToUtf8, std::vector<wchar_t>{0xDC00}, Bytes("\xEF\xBF\xBD"));
    ExpectOutput(VornUtf16ToUtf32, std::vector<wchar_t>{0xDC00, 0xD800, 0xD800, 0xDC00, 0xDFFF, 0xDBFF, L'x'},
                 Utf32Text{0xFFFD, 0xFFFD, 0x10000, 0xFFFD, 0xFFFD, 'x'});
}

TEST(Utf16Reading, JoinsPairs)
{
    ExpectOutput(VornUtf16ToUtf32, std::vector<wchar_t>{0xD800, 0xDC00, 0xDBFF, 0xDFFF, 0xD83D, 0xDE00},
                 Utf32Text{0x10000, 0x10FFFF, 0x1F600});
    ExpectOutput(VornUtf16ToUtf8, std::vector<wchar_t>{0xD83D, 0xDE00, 0x7F, 0x80, 0x7FF, 0x800, 0xFFFF},
                 Bytes("\xF0\x9F\x98\x80\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"));
}

TEST(Utf32Reading, ReplacesSurrogatesAndValuesAboveTheLastCodePoint)
{
    const Utf32Text text{0xD7FF, 0xD800, 0xDFFF, 0xE000, 0x10FFFF, 0x110000, 0xFFFFFFFF};
    ExpectOutput(VornUtf32ToUtf16, text, {0xD7FF, 0xFFFD, 0xFFFD, 0xE000, 0xDBFF, 0xDFFF, 0xFFFD, 0xFFFD});
    ExpectOutput(
        VornUtf32ToUtf8, text,
        Bytes("\xED\x9F\xBF\xEF\xBF\xBD\xEF\xBF\xBD\xEE\x80\x80\xF4\x8F\xBF\xBF\xEF\xBF\xBD\xEF\xBF\xBD"));
}

// Long texts in several scripts, there and back, through the exported functions.
TEST(TranscodeConversion, RoundTripsLongTextInAllForms)
{
    std::mt19937 random(5);
    Utf32Text text;
    const uint32_t bases[] = {0x20, 0xC0, 0x400, 0x4E00, 0x1F300, 0xAC00};
    for (int run = 0; run < 400; ++run) {
        const uint32_t base = bases[random() % 6];
        for (unsigned i = random() % 60; i > 0; --i) text.push_back(base + random() % 64);
    }
    const auto convert = [](auto function, const auto& from, auto to) {
        uint32_t size = 0;
        EXPECT_EQ(function(from.data(), static_cast<uint32_t>(from.size()), nullptr, &size),
                  VORN_E_BUFFER_TOO_SMALL);
        to.resize(size);
        EXPECT_EQ(function(from.data(), static_cast<uint32_t>(from.size()), to.data(), &size), VORN_OK);
        EXPECT_EQ(size, to.size());
        return to;
    };
    const std::vector<char> utf8 = convert(VornUtf32ToUtf8, text, std::vector<char>());
    const std::vector<wchar_t> utf16 = convert(VornUtf32ToUtf16, text, std::vector<wchar_t>());
    EXPECT_EQ(convert(VornUtf8ToUtf16, utf8, std::vector<wchar_t>()), utf16);
    EXPECT_EQ(convert(VornUtf16ToUtf8, utf16, std::vector<char>()), utf8);
    EXPECT_EQ(convert(VornUtf8ToUtf32, utf8, Utf32Text()), text);
    EXPECT_EQ(convert(VornUtf16ToUtf32, utf16, Utf32Text()), text);
}
