// Conversion between UTF-16 and the default code page.

#include <vorn/vorn.h>

#include "support/guard_buffer.h"
#include "text/unit_string.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <unicode/ucnv.h>
#include <vector>

using String = vorn_test::UnitString;
using vorn_test::GuardBuffer;

namespace {

// Runs each test with a default converter of its choice.
class Codepage : public testing::Test {
protected:
    Codepage() : before_(ucnv_getDefaultName()) { ucnv_setDefaultName("UTF-8"); }
    ~Codepage() override { ucnv_setDefaultName(before_.c_str()); }

private:
    std::string before_;
};

}  // namespace

TEST_F(Codepage, ConvertsToUtf16WithATerminatorWhenThereIsRoom)
{
    wchar_t units[8] = L"???????";
    uint32_t size = 8;
    EXPECT_EQ(VornCodepageToUtf16("a\xC3\xA9", 3, units, &size), VORN_OK);
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(String(units, 4), String(L"a\xE9\0?", 4));
}

TEST_F(Codepage, ConvertsToBytesWithATerminatorWhenThereIsRoom)
{
    char bytes[8] = "???????";
    uint32_t size = 8;
    EXPECT_EQ(VornUtf16ToCodepage(L"a\xE9", 2, bytes, &size), VORN_OK);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(std::string(bytes, 5), std::string("a\xC3\xA9\0?", 5));
}

TEST_F(Codepage, TakesTerminatedText)
{
    wchar_t units[8];
    uint32_t size = 8;
    EXPECT_EQ(VornCodepageToUtf16("abc", -1, units, &size), VORN_OK);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(String(units), L"abc");
    char bytes[8];
    size = 8;
    EXPECT_EQ(VornUtf16ToCodepage(L"abc", -1, bytes, &size), VORN_OK);
    EXPECT_EQ(size, 3u);
    EXPECT_STREQ(bytes, "abc");
}

TEST_F(Codepage, ATextThatFillsTheBufferWithoutTerminatorIsWhole)
{
    const GuardBuffer units(3 * sizeof(wchar_t));
    uint32_t size = 3;
    EXPECT_EQ(VornCodepageToUtf16("abc", 3, units.As<wchar_t>(), &size), VORN_OK);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(String(units.As<wchar_t>(), 3), L"abc");
    const GuardBuffer bytes(3);
    size = 3;
    EXPECT_EQ(VornUtf16ToCodepage(L"abc", 3, bytes.As<char>(), &size), VORN_OK);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(std::string(bytes.As<char>(), 3), "abc");
}

TEST_F(Codepage, AnswersTheNeededSizeWhenTheBufferIsTooSmall)
{
    wchar_t units[2];
    uint32_t size = 2;
    EXPECT_EQ(VornCodepageToUtf16("abcde", 5, units, &size), VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 5u);
    char bytes[2];
    size = 2;
    EXPECT_EQ(VornUtf16ToCodepage(L"a\xE9"
                                  L"bc",
                                  4, bytes, &size),
              VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 5u);
}

TEST_F(Codepage, AsksForTheSizeWithCapacityZero)
{
    uint32_t size = 0;
    EXPECT_EQ(VornCodepageToUtf16("abc", 3, nullptr, &size), VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 3u);
    size = 0;
    EXPECT_EQ(VornUtf16ToCodepage(L"a\x20AC", -1, nullptr, &size), VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 4u);
}

TEST_F(Codepage, AnEmptyTextNeedsNoRoom)
{
    uint32_t size = 0;
    EXPECT_EQ(VornCodepageToUtf16("", 0, nullptr, &size), VORN_OK);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(VornCodepageToUtf16("", -1, nullptr, &size), VORN_OK);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(VornUtf16ToCodepage(L"", 0, nullptr, &size), VORN_OK);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(VornUtf16ToCodepage(L"", -1, nullptr, &size), VORN_OK);
    EXPECT_EQ(size, 0u);
}

TEST_F(Codepage, AnInvalidLengthIsAConverterError)
{
    wchar_t units[4];
    uint32_t size = 4;
    EXPECT_EQ(VornCodepageToUtf16("abc", -2, units, &size), VORN_E_CONVERTER);
    EXPECT_EQ(size, 0u);
    char bytes[4];
    size = 4;
    EXPECT_EQ(VornUtf16ToCodepage(L"abc", -2, bytes, &size), VORN_E_CONVERTER);
    EXPECT_EQ(size, 0u);
}

#ifdef _WIN32  // the host's ICU knows no default but UTF-8
TEST_F(Codepage, FollowsADefaultThatChangesBetweenCalls)
{
    wchar_t units[4];
    uint32_t size = 4;
    EXPECT_EQ(VornCodepageToUtf16("\xC3\xA9", 2, units, &size), VORN_OK);
    EXPECT_EQ(size, 1u);
    ucnv_setDefaultName("ISO-8859-1");
    size = 4;
    EXPECT_EQ(VornCodepageToUtf16("\xC3\xA9", 2, units, &size), VORN_OK);
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(String(units), L"\xC3\xA9");
    char bytes[4];
    size = 4;
    EXPECT_EQ(VornUtf16ToCodepage(L"\xE9", 1, bytes, &size), VORN_OK);
    EXPECT_EQ(std::string(bytes), "\xE9");
}
#endif

TEST_F(Codepage, ForgetsTheStateOfTheCallBefore)
{
    wchar_t units[4];
    uint32_t size = 4;
    // The beginning of a sequence must not be completed by the next text.
    EXPECT_EQ(VornCodepageToUtf16("\xE2\x82", 2, units, &size), VORN_OK);
    EXPECT_EQ(units[0], 0xFFFD);
    size = 4;
    EXPECT_EQ(VornCodepageToUtf16("\xAC", 1, units, &size), VORN_OK);
    EXPECT_EQ(units[0], 0xFFFD);
    EXPECT_EQ(size, 1u);
}

TEST_F(Codepage, TakesACapacityAboveTheLargestSignedNumber)
{
    wchar_t units[4];
    uint32_t size = 0x80000000;
    EXPECT_EQ(VornCodepageToUtf16("a", 1, units, &size), VORN_OK);
    EXPECT_EQ(size, 1u);
    char bytes[4];
    size = 0xFFFFFFFF;
    EXPECT_EQ(VornUtf16ToCodepage(L"a", 1, bytes, &size), VORN_OK);
    EXPECT_EQ(size, 1u);
}
