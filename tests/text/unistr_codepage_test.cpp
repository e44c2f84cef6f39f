// The two ways between UniStr and the default code page: construction, C_Str and the copy it keeps.
#include "text/unistr_support.h"

#include <cstring>
#include <string>
#include <thread>
#include <unicode/ucnv.h>
#include <vector>

using namespace unistr_test;
using vorn::UniStr;

namespace {

// Makes a converter the default one for a scope.
class DefaultConverter {
public:
    explicit DefaultConverter(const char* name) : previous_(ucnv_getDefaultName())
    {
        ucnv_setDefaultName(name);
    }
    DefaultConverter(const DefaultConverter&) = delete;
    DefaultConverter& operator=(const DefaultConverter&) = delete;
    ~DefaultConverter() { ucnv_setDefaultName(previous_.c_str()); }

private:
    std::string previous_;
};

class UniStrUtf8 : public testing::Test {
    DefaultConverter utf8_{"UTF-8"};
};

using UniStrCodepageConstruction = UniStrUtf8;
using UniStrCStr = UniStrUtf8;

UniStr Str(std::u16string_view text)
{
    return UniStr(text);
}

}  // namespace

TEST_F(UniStrCodepageConstruction, ConvertsAZeroTerminatedText)
{
    EXPECT_TEXT(UniStr("abc"), u"abc");
    EXPECT_TEXT(UniStr("stra\xC3\x9F"
                       "e"),
                u"stra\u00dfe");
    EXPECT_TEXT(UniStr("\xF0\x9F\x98\x80"), u"\U0001F600");
    EXPECT_EQ(UniStr("abc").Capacity(), 31u);
}

TEST_F(UniStrCodepageConstruction, ConvertsAGivenNumberOfBytesZerosIncluded)
{
    EXPECT_TEXT(UniStr("abcdef", 3), u"abc");
    EXPECT_TEXT(UniStr("a\0b", 3), (std::u16string_view(u"a\0b", 3)));
    EXPECT_TEXT(UniStr("abc", 0), u"abc");
}

TEST_F(UniStrCodepageConstruction, AnEmptyTextGivesAnEmptyStringWithABuffer)
{
    EXPECT_TEXT(UniStr(""), u"");
    EXPECT_EQ(UniStr("").Capacity(), 31u);
    EXPECT_EQ(UniStr("", 0).Capacity(), 31u);
    EXPECT_NE(UniStr("").S_Str(), nullptr);
}

TEST_F(UniStrCodepageConstruction, TheCapacityIsFreshForTheConvertedLength)
{
    const struct {
        uint32_t length;
        uint32_t capacity;
    } rows[] = {{1, 31},    {31, 31},   {32, 39},   {33, 47},     {100, 111},  {255, 263},
                {256, 263}, {257, 271}, {258, 271}, {1000, 1007}, {5000, 5007}};
    for (const auto& row : rows) {
        const UniStr narrow(std::string(row.length, 'a').c_str());
        EXPECT_TEXT(narrow, std::u16string(row.length, u'a'));
        EXPECT_EQ(narrow.Capacity(), row.capacity) << row.length;
        std::string bytes;  // two bytes for each unit
        for (uint32_t i = 0; i < row.length; ++i) bytes += "\xD0\xB6";
        const UniStr twoBytes(bytes.c_str());
        EXPECT_TEXT(twoBytes, std::u16string(row.length, u'\u0436'));
        EXPECT_EQ(twoBytes.Capacity(), row.capacity) << row.length;
    }
}

TEST_F(UniStrCodepageConstruction, ReplacesWhatIsIllFormed)
{
    EXPECT_TEXT(UniStr("a\xFFz"), u"a\ufffdz");
    EXPECT_TEXT(UniStr("a\xE2\x82"), u"a\ufffd");
}

TEST_F(UniStrCStr, GivesTheTextInTheDefaultCodePage)
{
    EXPECT_STREQ(UniStr(L"abc").C_Str(), "abc");
    EXPECT_STREQ(Str(u"stra\u00dfe \U0001F600").C_Str(),
                 "stra\xC3\x9F"
                 "e \xF0\x9F\x98\x80");
}

TEST_F(UniStrCStr, OfAnEmptyStringThatNeverHadACopyIsNull)
{
    EXPECT_EQ(UniStr().C_Str(), nullptr);
    EXPECT_EQ(UniStr(L"").C_Str(), nullptr);
    UniStr text(L"abc");
    text.Clear();
    EXPECT_EQ(text.C_Str(), nullptr);
}

TEST_F(UniStrCStr, OfAnEmptyStringThatHadACopyIsEmpty)
{
    UniStr text(L"abc");
    const char* const copy = text.C_Str();
    text.Clear();
    EXPECT_EQ(text.C_Str(), copy);
    EXPECT_STREQ(text.C_Str(), "");
}

TEST_F(UniStrCStr, UsesItsCopysMemoryAgainWhileTheTextFits)
{
    UniStr text(L"abc");  // 3 bytes need 8, and 8 more are kept
    const char* const copy = text.C_Str();
    text = L"0123456789abcde";
    EXPECT_EQ(text.C_Str(), copy);
    EXPECT_STREQ(copy, "0123456789abcde");
    text += L'f';  // 16 bytes would leave no room for the terminator
    EXPECT_STREQ(text.C_Str(), "0123456789abcdef");
}

TEST_F(UniStrCStr, ConvertsTextsOfEveryLength)
{
    UniStr grown;
    for (uint32_t length = 1; length <= 1100; ++length) {
        grown += L'g';
        ASSERT_EQ(std::string(grown.C_Str()), std::string(length, 'g'));
        const UniStr fresh = Filled(length, L'f');
        ASSERT_EQ(std::string(fresh.C_Str()), std::string(length, 'f'));
    }
    const UniStr wide = Filled(400, static_cast<wchar_t>(0x4E2D));
    std::string expected;
    for (int i = 0; i < 400; ++i) expected += "\xE4\xB8\xAD";
    EXPECT_EQ(std::string(wide.C_Str()), expected);
}

TEST_F(UniStrCStr, ConvertsByLength)
{
    const UniStr text(L"a\0b", 3);
    EXPECT_EQ(std::string(text.C_Str(), 3), std::string("a\0b", 3));
}

TEST_F(UniStrCStr, ReplacesALoneSurrogate)
{
    EXPECT_STREQ(Str(u"a\xD800").C_Str(), "a\xEF\xBF\xBD");
}

TEST_F(UniStrCStr, EditsLeaveTheCopyAsItIsUntilItIsAskedForAgain)
{
    const auto expectStale = [](auto&& edit, const char* fresh) {
        UniStr text(L"abcdef");
        const char* const copy = text.C_Str();
        edit(text);
        EXPECT_STREQ(copy, "abcdef");
        EXPECT_STREQ(text.C_Str(), fresh);
    };
    expectStale([](UniStr& t) { t += L'x'; }, "abcdefx");
    expectStale([](UniStr& t) { t += L"xy"; }, "abcdefxy");
    expectStale([](UniStr& t) { t += Filled(40); }, ("abcdef" + std::string(40, 'a')).c_str());
    expectStale([](UniStr& t) { t.Insert(0, L"xy"); }, "xyabcdef");
    expectStale([](UniStr& t) { t.Replace(0, 3, L"x"); }, "xdef");
    expectStale([](UniStr& t) { t.Erase(0, 1); }, "bcdef");
    expectStale([](UniStr& t) { t.Erase(0, kNpos); }, "");
    expectStale([](UniStr& t) { t.Resize(3, L'x'); }, "abc");
    expectStale([](UniStr& t) { t.Resize(0, L'x'); }, "");
    expectStale([](UniStr& t) { t.Resize(7, L'x'); }, "abcdefx");
    expectStale([](UniStr& t) { t.Reserve(100); }, "abcdef");
    expectStale([](UniStr& t) { t[0] = L'x'; }, "xbcdef");
    expectStale([](UniStr& t) { t.ToUpper(); }, "ABCDEF");
    expectStale([](UniStr& t) { t = L"xyz"; }, "xyz");
    expectStale([](UniStr& t) { t = UniStr(L"xyz").S_Str(); }, "xyz");
    expectStale([](UniStr& t) { t.Assign(L"xyz", 2); }, "xy");
    // The operators measure an empty text and assign it like any other; only Assign empties.
    expectStale([](UniStr& t) { t = L""; }, "");
    const UniStr empty;
    expectStale([&](UniStr& t) { t = empty; }, "");
}

TEST_F(UniStrCStr, EmptyingTheStringEmptiesTheCopy)
{
    const UniStr other(L"xyz");
    const auto expectEmptied = [](auto&& edit) {
        UniStr text(L"abcdef");
        const char* const copy = text.C_Str();
        edit(text);
        EXPECT_STREQ(copy, "");
    };
    expectEmptied([](UniStr& t) { t.Clear(); });
    expectEmptied([](UniStr& t) { t.Assign(L"xyz", 0); });
    expectEmptied([](UniStr& t) { t.Assign(UniStr()); });
    expectEmptied([&](UniStr& t) { t.Assign(other, 1, 0); });
    expectEmptied([](UniStr& t) { t.Assign(0, L'x'); });
    expectEmptied([](UniStr& t) { t.Assign(3, L'x'); });
    expectEmptied([](UniStr& t) { t.Assign(40, L'x'); });
    expectEmptied([&](UniStr& t) { t.Assign(other.Begin(), other.Begin()); });
    expectEmptied([&](UniStr& t) { t.Assign(other.Begin(), other.End()); });
    expectEmptied([](UniStr& t) { t.Assign(std::wstring_view()); });
}

TEST_F(UniStrCStr, AnAssignmentThatReallocatesDiscardsTheCopy)
{
    const auto expectDiscarded = [](auto&& edit) {
        UniStr text(L"abcdef");
        EXPECT_STREQ(text.C_Str(), "abcdef");
        edit(text);
        text.Clear();
        EXPECT_EQ(text.C_Str(), nullptr);  // as of a string that never had a copy
    };
    const UniStr longer = Filled(32);
    expectDiscarded([&](UniStr& t) { t = longer; });
    expectDiscarded([&](UniStr& t) { t = longer.S_Str(); });
    expectDiscarded([&](UniStr& t) { t.Assign(longer); });
    expectDiscarded([&](UniStr& t) { t.Assign(longer.S_Str(), 32); });
    expectDiscarded([&](UniStr& t) { t.Assign(longer, 0, kNpos); });
}

TEST_F(UniStrCStr, GrowthKeepsTheCopy)
{
    const auto expectKept = [](auto&& edit) {
        UniStr text(L"abcdef");
        const char* const copy = text.C_Str();
        edit(text);
        text.Clear();
        EXPECT_EQ(text.C_Str(), copy);
    };
    const UniStr longer = Filled(32);
    expectKept([&](UniStr& t) { t += longer; });
    expectKept([](UniStr& t) { t.Assign(40, L'x'); });
    expectKept([&](UniStr& t) { t.Assign(longer.Begin(), longer.End()); });
    expectKept([&](UniStr& t) { t.Insert(0, longer); });
    expectKept([&](UniStr& t) { t.Replace(0, 6, longer); });
    expectKept([](UniStr& t) { t.Resize(100, L'x'); });
    expectKept([](UniStr& t) { t.Reserve(100); });
    expectKept([](UniStr& t) { t.ToUpper(); });
}

TEST_F(UniStrCStr, TheCopyIsNotCopiedAndGoesAlongWithSwap)
{
    UniStr a(L"abc");
    UniStr b(L"xyz");
    const char* const copy = a.C_Str();
    UniStr copied(a);
    copied.Clear();
    EXPECT_EQ(copied.C_Str(), nullptr);
    a.Swap(b);
    EXPECT_STREQ(b.C_Str(), "abc");
    EXPECT_EQ(b.C_Str(), copy);
    a.Clear();
    EXPECT_EQ(a.C_Str(), nullptr);
}

TEST_F(UniStrCStr, ThreadsConvertAtTheSameTime)
{
    std::vector<std::thread> threads;
    std::vector<int> wrong(8);
    for (size_t t = 0; t < wrong.size(); ++t) {
        threads.emplace_back([&, t] {
            const std::string bytes = "\xD0\xB6 of thread " + std::to_string(t);
            for (int i = 0; i < 500; ++i) {
                const UniStr text(bytes.c_str());
                if (bytes != text.C_Str() || text.Size() != 13) ++wrong[t];
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, std::vector<int>(8));
}

// Where the host has fixed UTF-8 as the default code page, no other can be chosen.
#if !U_CHARSET_IS_UTF8

TEST_F(UniStrCodepageConstruction, FollowsTheDefaultConverter)
{
    EXPECT_TEXT(UniStr("\xC3\xA9"), u"\u00e9");
    {
        const DefaultConverter latin("windows-1252");
        EXPECT_TEXT(UniStr("\xC3\xA9\x80"), u"\u00c3\u00a9\u20ac");
        const DefaultConverter japanese("Shift_JIS");
        EXPECT_TEXT(UniStr("\x82\xA0"), u"\u3042");
    }
    EXPECT_TEXT(UniStr("\xC3\xA9"), u"\u00e9");
}

TEST_F(UniStrCodepageConstruction, AStatefulConverterBeginsAnewEachTime)
{
    const DefaultConverter japanese("ISO-2022-JP");
    for (int i = 0; i < 3; ++i) {
        EXPECT_TEXT(UniStr("\x1B$B$\""), u"\u3042");  // ends in the two-byte state
        EXPECT_TEXT(UniStr("$\""), u"$\"");
    }
}

TEST_F(UniStrCodepageConstruction, ATextThatConvertsToNothingLeavesNoBuffer)
{
    const DefaultConverter utf16("UTF-16");
    UniStr text("\xFE\xFF", 2);  // a byte order mark and nothing else
    EXPECT_EQ(text.Size(), 0u);
    EXPECT_EQ(text.S_Str(), nullptr);
    EXPECT_EQ(text.U_Str(), nullptr);
    EXPECT_EQ(text.Capacity(), 0u);
    EXPECT_TRUE(text.Empty());
    EXPECT_TEXT(UniStr(text), u"");
    EXPECT_TEXT(text.Substring(0, kNpos), u"");
    EXPECT_EQ(text.Find(wchar_t{0}), 0u);
    EXPECT_EQ(text.Compare(L"", false, false), 0);
    EXPECT_EQ(text, UniStr());
    EXPECT_OUT_OF_RANGE(text.At(0));
    text.Clear();
    text.Resize(0, L'x');
    EXPECT_EQ(text.S_Str(), nullptr);
    UniStr moved(std::move(text));
    EXPECT_EQ(moved.S_Str(), nullptr);
    UniStr swapped(L"abc");
    swapped.Swap(moved);
    EXPECT_TEXT(moved, u"abc");
    swapped += L'x';
    EXPECT_TEXT(swapped, u"x");
    EXPECT_EQ(swapped.Capacity(), 31u);
    UniStr upper("\xFE\xFF", 2);
    upper.ToUpper();
    EXPECT_TEXT(upper, u"");
    EXPECT_EQ(upper.Capacity(), 15u);
}

TEST_F(UniStrCStr, FollowsTheDefaultConverter)
{
    const UniStr text = Str(u"\u00e9");
    EXPECT_STREQ(text.C_Str(), "\xC3\xA9");
    const DefaultConverter latin("windows-1252");
    EXPECT_STREQ(text.C_Str(), "\xE9");
}

TEST_F(UniStrCStr, ReplacesWhatTheCodePageLacks)
{
    const DefaultConverter latin("windows-1252");
    EXPECT_STREQ(Str(u"a\u4e2d\u20ac").C_Str(), "a\x1A\x80");
}

#endif
