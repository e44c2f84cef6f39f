#include "core/base64.h"
#include "support/guard_buffer.h"
#include "support/vector_levels.h"

#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>
#include <vector>

using namespace vorn::detail;
using vorn_test::GuardBuffer;

namespace {

using Bytes = std::vector<uint8_t>;

// The decoding rules, one character at a time.
std::optional<Bytes> ModelDecode(std::string text)
{
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
        if (!text.empty() && text.back() == '\r') text.pop_back();
    }
    if (text.empty()) return std::nullopt;
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<bool> bits;
    size_t significant = 0;
    size_t padding = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\n') continue;
        if (c == '\r') {
            if (i + 1 == text.size() || text[i + 1] != '\n') return std::nullopt;
            continue;
        }
        ++significant;
        if (c == '=') {
            if (i + 1 != text.size() && (i + 2 != text.size() || text.back() != '=')) return std::nullopt;
            ++padding;
            continue;
        }
        const size_t value = c == '\0' ? std::string::npos : alphabet.find(c);
        if (value == std::string::npos) return std::nullopt;
        for (int bit = 5; bit >= 0; --bit) bits.push_back((value >> bit & 1) != 0);
    }
    if (significant % 4 != 0) return std::nullopt;
    Bytes data(significant / 4 * 3 - padding);
    for (size_t bit = 0; bit < data.size() * 8; ++bit) {
        data[bit / 8] = static_cast<uint8_t>(data[bit / 8] << 1 | (bits[bit] ? 1 : 0));
    }
    return data;
}

class Base64EveryCodec : public testing::TestWithParam<VectorLevel> {
protected:
    const Base64Codec& codec = Base64CodecFor(GetParam());

    void ExpectModelsResult(const std::string& text, GuardBuffer::Flush flush) const
    {
        const GuardBuffer input = GuardBuffer::Of(text.data(), text.size(), flush);
        const GuardBuffer output(Base64DecodedBound(text.data(), text.size()), flush);
        size_t written = 0;
        const bool ok = Base64Decode(codec, input.As<char>(), text.size(), output.Data(), &written);
        const std::optional<Bytes> expected = ModelDecode(text);
        ASSERT_EQ(ok, expected.has_value()) << testing::PrintToString(text);
        if (ok) {
            ASSERT_EQ(Bytes(output.Data(), output.Data() + written), *expected);
        }
    }
};

std::string RandomText(std::mt19937& random, size_t groups)
{
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < groups * 4; ++i) text += alphabet[random() % 64];
    return text;
}

}  // namespace

TEST(VectorLevel, ThePlainLevelIsAlwaysThere)
{
    EXPECT_GE(WidestVectorLevel(), VectorLevel::kPlain);
    for (VectorLevel level : kAllVectorLevels) EXPECT_STRNE(VectorLevelName(level), "?");
}

TEST_P(Base64EveryCodec, EncodesAsThePlainCodecDoes)
{
    std::mt19937 random(1);
    for (size_t length = 1; length <= 1200; ++length) {
        Bytes data(length);
        for (uint8_t& byte : data) byte = static_cast<uint8_t>(random());
        const GuardBuffer::Flush flush = length % 2 ? GuardBuffer::Flush::kEnd : GuardBuffer::Flush::kStart;
        const GuardBuffer input = GuardBuffer::Of(data.data(), length, flush);
        const GuardBuffer output(Base64EncodedSize(length), flush);
        std::string expected(Base64EncodedSize(length), '?');
        Base64Encode(codec, input.Data(), length, output.As<char>());
        Base64Encode(Base64CodecFor(VectorLevel::kPlain), data.data(), length, expected.data());
        ASSERT_EQ(std::string(output.As<char>(), output.Size()), expected) << length;
    }
}

TEST_P(Base64EveryCodec, EncodesEveryPairOfNeighbouringBytes)
{
    Bytes data;
    for (unsigned a = 0; a < 256; ++a) {
        for (unsigned b = 0; b < 256; ++b)
            data.insert(data.end(), {static_cast<uint8_t>(a), static_cast<uint8_t>(b)});
    }
    std::string text(Base64EncodedSize(data.size()), '?');
    std::string expected = text;
    Base64Encode(codec, data.data(), data.size(), text.data());
    Base64Encode(Base64CodecFor(VectorLevel::kPlain), data.data(), data.size(), expected.data());
    EXPECT_EQ(text, expected);
}

TEST_P(Base64EveryCodec, DecodesLinesOfEveryLength)
{
    std::mt19937 random(2);
    for (size_t line = 1; line <= 200; ++line) {
        std::string text = RandomText(random, 100);
        for (size_t at = line; at < text.size(); at += line + 2) text.insert(at, "\r\n");
        ExpectModelsResult(text, line % 2 ? GuardBuffer::Flush::kEnd : GuardBuffer::Flush::kStart);
    }
}

TEST_P(Base64EveryCodec, FindsEveryWrongByteAtEveryPositionOfALongRun)
{
    std::mt19937 random(3);
    const std::string good = RandomText(random, 48);
    for (int value = 0; value < 256; ++value) {
        for (size_t at = static_cast<size_t>(value) % 3; at < good.size(); at += 3) {
            std::string text = good;
            text[at] = static_cast<char>(value);
            size_t written = 0;
            Bytes output(Base64DecodedBound(text.data(), text.size()));
            const bool ok = Base64Decode(codec, text.data(), text.size(), output.data(), &written);
            ASSERT_EQ(ok, ModelDecode(text).has_value()) << value << " at " << at;
        }
    }
}

TEST_P(Base64EveryCodec, AgreesWithTheModelOnRandomDamagedText)
{
    std::mt19937 random(4);
    for (int round = 0; round < 6000; ++round) {
        std::string text = RandomText(random, random() % 80);
        const char insertions[] = {'\n', '\r', '=', '\n', 'A', ' ', '\0', '\x80', '\n', '-'};
        for (unsigned count = random() % 6; count > 0; --count) {
            const size_t at = random() % (text.size() + 1);
            if (random() % 2) {
                text.insert(at, "\r\n");
            } else {
                text.insert(at, 1, insertions[random() % sizeof insertions]);
            }
        }
        if (random() % 4 == 0 && text.size() > 2) text.back() = '=';
        if (text.empty()) continue;
        ExpectModelsResult(text, round % 2 ? GuardBuffer::Flush::kEnd : GuardBuffer::Flush::kStart);
    }
}

TEST_P(Base64EveryCodec, LeavesWhatLiesBehindTheResultAlone)
{
    std::mt19937 random(5);
    for (size_t groups = 1; groups <= 120; ++groups) {
        const std::string text = RandomText(random, groups);
        Bytes output(groups * 3 + 128, 0x5A);
        size_t written = 0;
        ASSERT_TRUE(Base64Decode(codec, text.data(), text.size(), output.data(), &written));
        ASSERT_EQ(written, groups * 3);
        for (size_t i = written; i < output.size(); ++i) ASSERT_EQ(output[i], 0x5A) << groups << " " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, Base64EveryCodec, testing::ValuesIn(vorn_test::LevelsHere()),
                         vorn_test::LevelTestName);
