// Every vector level's converters against the model.

#include "support/guard_buffer.h"
#include "support/vector_levels.h"
#include "text/transcode.h"
#include "text/transcode_model.h"
#include "text/transcode_texts.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

using namespace vorn::detail;
using namespace vorn_test;

namespace {

constexpr size_t kArena = 1 << 16;

// Input and output of a conversion, each flush against a guard page, at its end or at its start.
class Arena {
public:
    explicit Arena(GuardBuffer::Flush flush) : flush_(flush), buffer_(kArena, flush) {}

    template <class Unit>
    Unit* Place(size_t units) const
    {
        return reinterpret_cast<Unit*>(flush_ == GuardBuffer::Flush::kEnd
                                           ? buffer_.Data() + kArena - units * sizeof(Unit)
                                           : buffer_.Data());
    }

    GuardBuffer::Flush Flush() const { return flush_; }

private:
    GuardBuffer::Flush flush_;
    GuardBuffer buffer_;
};

size_t Units(size_t count)
{
    return count;
}

size_t Units(Utf8Count count)
{
    return count.units;
}

class TranscodeEveryLevel : public testing::TestWithParam<VectorLevel> {
protected:
    const TranscodeTable& table = TranscodeFor(GetParam());
    const Arena inputs[2]{Arena(GuardBuffer::Flush::kEnd), Arena(GuardBuffer::Flush::kStart)};
    const Arena outputs[2]{Arena(GuardBuffer::Flush::kEnd), Arena(GuardBuffer::Flush::kStart)};
    uint64_t compared = 0;

    // One conversion into `room` units, all within guard pages; what lies behind the reported units must
    // stay.
    template <class In, class Out>
    void ExpectModels(Converted (*convert)(const In*, size_t, Out*, size_t), const In* src, size_t length,
                      size_t room, const Model<Out>& expected, unsigned side)
    {
        Out* const dst = outputs[side].Place<Out>(room);
        std::memset(static_cast<void*>(dst), 0xA5, room * sizeof(Out));
        const Converted done = convert(src, length, dst, room);
        const size_t written = expected.WrittenInto(room);
        ASSERT_EQ(done.written, written) << Show(src, length) << " room " << room;
        ASSERT_EQ(done.read == length, written == expected.units.size())
            << Show(src, length) << " room " << room;
        ASSERT_TRUE(std::equal(dst, dst + written, expected.units.begin())) << Show(src, length);
        Out untouched;
        std::memset(&untouched, 0xA5, sizeof untouched);
        for (size_t i = written; i < room; ++i)
            ASSERT_EQ(dst[i], untouched) << Show(src, length) << " at " << i;
        ++compared;
    }

    template <class In, class Out, class CountResult>
    void ExpectModels(Converted (*convert)(const In*, size_t, Out*, size_t),
                      CountResult (*count)(const In*, size_t), const Text<In>& text,
                      const Model<Out>& expected, const std::vector<size_t>& rooms)
    {
        const size_t length = text.size();
        for (unsigned side = 0; side < 2; ++side) {
            In* const src = inputs[side].Place<In>(length);
            if (!text.empty()) std::memcpy(src, text.data(), length * sizeof(In));
            const CountResult counted = count(src, length);
            ASSERT_EQ(Units(counted), expected.units.size()) << Show(src, length);
            if constexpr (std::is_same_v<CountResult, Utf8Count>) {
                ASSERT_EQ(counted.units - counted.beyond, expected.querySize) << Show(src, length);
            }
            ExpectModels(convert, src, length, expected.units.size(), expected, side);
            ExpectModels(convert, src, length, expected.units.size() + 9, expected, side);
            for (size_t room : rooms) ExpectModels(convert, src, length, room, expected, side);
            if (testing::Test::HasFatalFailure()) return;
        }
    }

    void ExpectModels(const Text<uint8_t>& text, const std::vector<size_t>& rooms = {})
    {
        ExpectModels(table.utf8ToUtf16, table.countUtf8ToUtf16, text, ModelConvert<wchar_t>(text), rooms);
        ExpectModels(table.utf8ToUtf32, table.countUtf8ToUtf32, text, ModelConvert<uint32_t>(text), rooms);
    }

    void ExpectModels(const Text<wchar_t>& text, const std::vector<size_t>& rooms = {})
    {
        ExpectModels(table.utf16ToUtf8, table.countUtf16ToUtf8, text, ModelConvert<uint8_t>(text), rooms);
        ExpectModels(table.utf16ToUtf32, table.countUtf16ToUtf32, text, ModelConvert<uint32_t>(text), rooms);
    }

    void ExpectModels(const Text<uint32_t>& text, const std::vector<size_t>& rooms = {})
    {
        ExpectModels(table.utf32ToUtf8, table.countUtf32ToUtf8, text, ModelConvert<uint8_t>(text), rooms);
        ExpectModels(table.utf32ToUtf16, table.countUtf32ToUtf16, text, ModelConvert<wchar_t>(text), rooms);
    }

    template <class Unit>
    static std::string Show(const Unit* text, size_t length)
    {
        std::string shown;
        char hex[16];
        for (size_t i = 0; i < length; ++i) {
            snprintf(hex, sizeof hex, "%X ", static_cast<unsigned>(text[i]));
            shown += hex;
        }
        return shown;
    }
};

}  // namespace

TEST_P(TranscodeEveryLevel, ReadsEveryTextOfOneAndTwoBytesAsTheModel)
{
    for (unsigned a = 0; a < 256; ++a) {
        ExpectModels(Text<uint8_t>{static_cast<uint8_t>(a)}, {0, 1, 2, 3});
        for (unsigned b = 0; b < 256; b += 1) {
            ExpectModels(Text<uint8_t>{static_cast<uint8_t>(a), static_cast<uint8_t>(b)});
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

TEST_P(TranscodeEveryLevel, ReadsEveryFourByteSequenceBetweenTheBordersOfTheRanges)
{
    const uint8_t borders[] = {0x00, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0,
                               0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF7, 0xF8, 0xFF};
    for (uint8_t a : borders) {
        for (uint8_t b : borders) {
            Text<uint8_t> text;
            for (uint8_t c : borders) {
                for (uint8_t d : borders) text.insert(text.end(), {a, b, c, d});
            }
            ExpectModels(text);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

TEST_P(TranscodeEveryLevel, ConvertsEveryCodePoint)
{
    for (uint32_t first = 0; first < 0x110000; first += 0x1000) {
        Text<uint8_t> utf8;
        Text<wchar_t> utf16;
        Text<uint32_t> utf32;
        for (uint32_t codePoint = first; codePoint < first + 0x1000; ++codePoint) {
            utf32.push_back(codePoint);
            if (codePoint >> 11 == 0x1B) continue;
            ModelWrite(codePoint, utf8);
            ModelWrite(codePoint, utf16);
        }
        ExpectModels(utf8);
        ExpectModels(utf16);
        ExpectModels(utf32);
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST_P(TranscodeEveryLevel, ConvertsEveryPairOfKindsOfUtf16Units)
{
    const wchar_t units[] = {0x0000, 0x007F, 0x0080, 0x07FF, 0x0800, 0xD7FF, 0xD800,
                             0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFFFD, 0xFFFF};
    for (size_t padding = 0; padding < 40; ++padding) {
        for (wchar_t a : units) {
            for (wchar_t b : units) {
                Text<wchar_t> text(padding, L'x');
                text.insert(text.end(), {a, b, a});
                ExpectModels(text);
                ASSERT_FALSE(HasFatalFailure());
            }
        }
    }
}

TEST_P(TranscodeEveryLevel, ConvertsValuesThatAreNoCodePoints)
{
    const uint32_t values[] = {0x0,      0x7F,     0x80,       0x7FF,      0x800,      0xD7FF,
                               0xD800,   0xDFFF,   0xE000,     0xFFFF,     0x10000,    0x10FFFF,
                               0x110000, 0x1FFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFD800, 0xFFFFFFFF};
    for (size_t padding = 0; padding < 20; ++padding) {
        for (uint32_t a : values) {
            for (uint32_t b : values) {
                Text<uint32_t> text(padding, 'x');
                text.insert(text.end(), {a, b});
                ExpectModels(text);
                ASSERT_FALSE(HasFatalFailure());
            }
        }
    }
}

TEST_P(TranscodeEveryLevel, StopsBeforeTheCharacterThatDoesNotFitForEveryCapacity)
{
    std::mt19937 random(11);
    for (int kind = 0; kind < 8; ++kind) {
        for (size_t length : {1, 2, 3, 5, 8, 17, 40, 70, 130}) {
            std::vector<size_t> rooms;
            for (size_t room = 0; room < 4 * length + 8; ++room) rooms.push_back(room);
            for (int damage = 0; damage < 3; ++damage) {
                Text<uint8_t> utf8 = RandomText<uint8_t>(random, kind, length);
                Text<wchar_t> utf16 = RandomText<wchar_t>(random, kind, length);
                Text<uint32_t> utf32 = RandomText<uint32_t>(random, kind, length);
                Damage(random, utf8, static_cast<size_t>(damage) * (1 + length / 20));
                Damage(random, utf16, static_cast<size_t>(damage) * (1 + length / 20));
                Damage(random, utf32, static_cast<size_t>(damage) * (1 + length / 20));
                ExpectModels(utf8, rooms);
                ExpectModels(utf16, rooms);
                ExpectModels(utf32, rooms);
                ASSERT_FALSE(HasFatalFailure());
            }
        }
    }
}

TEST_P(TranscodeEveryLevel, AgreesWithTheModelOnRandomTextOfEveryLength)
{
    std::mt19937 random(12);
    for (size_t length = 0; length < 300; ++length) {
        for (int kind = 0; kind < 8; ++kind) {
            Text<uint8_t> utf8 = RandomText<uint8_t>(random, kind, length);
            Text<wchar_t> utf16 = RandomText<wchar_t>(random, kind, length);
            Text<uint32_t> utf32 = RandomText<uint32_t>(random, kind, length);
            const size_t places = random() % 3 == 0 ? 0 : random() % (1 + length / 8);
            Damage(random, utf8, places);
            Damage(random, utf16, places);
            Damage(random, utf32, places);
            ExpectModels(utf8, {random() % (length + 2)});
            ExpectModels(utf16, {random() % (3 * length + 2)});
            ExpectModels(utf32, {random() % (4 * length + 2)});
            ASSERT_FALSE(HasFatalFailure());
        }
    }
    RecordProperty("compared", static_cast<int>(compared));
}

TEST_P(TranscodeEveryLevel, AgreesWithTheModelOnRandomBytes)
{
    std::mt19937 random(13);
    for (int round = 0; round < 3000; ++round) {
        Text<uint8_t> text(random() % 200);
        // Mostly bytes that begin or go on with a sequence.
        for (uint8_t& byte : text)
            byte = static_cast<uint8_t>(random() % 5 == 0 ? random() : 0x80 | random());
        ExpectModels(text, {random() % 200});
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST_P(TranscodeEveryLevel, CountsTextsOfAMillionCharacters)
{
    constexpr size_t kCount = 1000000;
    const Text<wchar_t> chinese(kCount, 0x4E2D);
    EXPECT_EQ(table.countUtf16ToUtf8(chinese.data(), kCount), 3 * kCount);
    EXPECT_EQ(table.countUtf16ToUtf32(chinese.data(), kCount), kCount);
    Text<wchar_t> pairs;
    Text<uint8_t> utf8;
    for (size_t i = 0; i < kCount; ++i) {
        ModelWrite(0x1F600, pairs);
        ModelWrite(0x1F600, utf8);
    }
    EXPECT_EQ(table.countUtf16ToUtf8(pairs.data(), pairs.size()), 4 * kCount);
    EXPECT_EQ(table.countUtf16ToUtf32(pairs.data(), pairs.size()), kCount);
    EXPECT_EQ(table.countUtf8ToUtf16(utf8.data(), utf8.size()).units, 2 * kCount);
    EXPECT_EQ(table.countUtf8ToUtf32(utf8.data(), utf8.size()).units, kCount);
    const Text<uint32_t> codePoints(kCount, 0x1F600);
    EXPECT_EQ(table.countUtf32ToUtf8(codePoints.data(), kCount), 4 * kCount);
    EXPECT_EQ(table.countUtf32ToUtf16(codePoints.data(), kCount), 2 * kCount);
    const Text<uint32_t> noCodePoints(kCount, 0xFFFFFFFF);
    EXPECT_EQ(table.countUtf32ToUtf8(noCodePoints.data(), kCount), 3 * kCount);
    EXPECT_EQ(table.countUtf32ToUtf16(noCodePoints.data(), kCount), kCount);
}

// Every text of three bytes, one behind the other in long texts, each closed by one ASCII byte.
TEST(Transcode, ReadsEverySequenceOfThreeBytesAsTheModelAtEveryLevel)
{
    std::vector<wchar_t> utf16;
    std::vector<uint32_t> utf32;
    for (unsigned a = 0; a < 256; ++a) {
        for (unsigned b = 0; b < 256; b += 16) {
            Text<uint8_t> text;
            for (unsigned c = 0; c < 16 * 256; ++c) {
                text.insert(text.end(), {static_cast<uint8_t>(a), static_cast<uint8_t>(b + c / 256),
                                         static_cast<uint8_t>(c % 256), 'x'});
            }
            utf16.assign(text.size(), 0);
            utf32.assign(text.size(), 0);
            const Text<uint32_t> expected = ModelConvert<uint32_t>(text).units;
            for (VectorLevel level : LevelsHere()) {
                const TranscodeTable& table = TranscodeFor(level);
                const size_t written =
                    table.utf8ToUtf32(text.data(), text.size(), utf32.data(), utf32.size()).written;
                ASSERT_EQ(written, expected.size()) << VectorLevelName(level) << " " << a << " " << b;
                ASSERT_TRUE(std::equal(expected.begin(), expected.end(), utf32.begin())) << a << " " << b;
                // Three bytes give no character beyond the basic plane: one unit each.
                ASSERT_EQ(table.utf8ToUtf16(text.data(), text.size(), utf16.data(), utf16.size()).written,
                          expected.size());
                ASSERT_TRUE(std::equal(expected.begin(), expected.end(), utf16.begin())) << a << " " << b;
                ASSERT_EQ(table.countUtf8ToUtf16(text.data(), text.size()).units, expected.size());
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, TranscodeEveryLevel, testing::ValuesIn(LevelsHere()), LevelTestName);
