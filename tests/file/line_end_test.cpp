#include "file/line_end.h"

#include "support/guard_buffer.h"

#include <gtest/gtest.h>
#include <random>
#include <string>

using vorn::detail::FindLineEnd;
using vorn::detail::LineEnd;
using vorn_test::GuardBuffer;

namespace {

LineEnd Find(const std::string& text)
{
    GuardBuffer bytes = GuardBuffer::Of(text.data(), text.size());
    return FindLineEnd(bytes.Data(), static_cast<uint32_t>(text.size()));
}

void ExpectEnd(const std::string& text, bool found, uint32_t offset, uint32_t length)
{
    const LineEnd end = Find(text);
    EXPECT_EQ(end.found, found) << text;
    EXPECT_EQ(end.offset, offset) << text;
    EXPECT_EQ(end.length, length) << text;
}

// Byte by byte, as one would say it.
LineEnd Model(const std::string& text)
{
    for (uint32_t i = 0; i < text.size(); ++i) {
        if (text[i] == 10) return {true, i, 1};
        if (text[i] == 13 && i + 1 < text.size() && text[i + 1] == 10) return {true, i, 2};
    }
    return {false, static_cast<uint32_t>(text.size()), 0};
}

}  // namespace

TEST(LineEnd, IsALineFeed)
{
    ExpectEnd("ab\ncd\n", true, 2, 1);
    ExpectEnd("\n", true, 0, 1);
}

TEST(LineEnd, IsACarriageReturnWithALineFeed)
{
    ExpectEnd("ab\r\ncd", true, 2, 2);
    ExpectEnd("\r\n", true, 0, 2);
}

TEST(LineEnd, IsNotACarriageReturnAlone)
{
    ExpectEnd("ab\rcd", false, 5, 0);
    ExpectEnd("ab\r", false, 3, 0);
    ExpectEnd("ab\rcd\n", true, 5, 1);
    ExpectEnd("ab\r\r\n", true, 3, 2);
}

TEST(LineEnd, IsNotThereInNothing)
{
    EXPECT_FALSE(FindLineEnd(nullptr, 0).found);
    ExpectEnd("", false, 0, 0);
}

TEST(LineEnd, IsTheFirstOfEveryTextOfUpToNineBytes)
{
    const char alphabet[] = {'a', '\r', '\n'};
    for (size_t length = 0; length <= 9; ++length) {
        std::string text(length, 'a');
        std::vector<int> digits(length, 0);
        while (true) {
            for (size_t i = 0; i < length; ++i) text[i] = alphabet[digits[i]];
            const LineEnd end =
                FindLineEnd(reinterpret_cast<const uint8_t*>(text.data()), static_cast<uint32_t>(length));
            const LineEnd expected = Model(text);
            ASSERT_EQ(end.found, expected.found) << testing::PrintToString(text);
            ASSERT_EQ(end.offset, expected.offset) << testing::PrintToString(text);
            ASSERT_EQ(end.length, expected.length) << testing::PrintToString(text);
            size_t place = 0;
            while (place < length && ++digits[place] == 3) digits[place++] = 0;
            if (place == length) break;
        }
    }
}

TEST(LineEnd, AgreesWithTheModelOnLongRandomTexts)
{
    std::mt19937 random(4711);
    for (int round = 0; round < 3000; ++round) {
        std::string text(random() % 600, 'x');
        for (char& c : text) {
            const uint32_t dice = random() % 300;
            c = dice == 0 ? '\n' : dice < 4 ? '\r' : static_cast<char>(dice);
        }
        const LineEnd end = Find(text);
        const LineEnd expected = Model(text);
        ASSERT_EQ(end.found, expected.found) << round;
        ASSERT_EQ(end.offset, expected.offset) << round;
        ASSERT_EQ(end.length, expected.length) << round;
    }
}
