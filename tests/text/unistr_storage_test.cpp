// Construction, assignment, capacity and access of UniStr.
#include "text/unistr_support.h"

#include <array>
#include <cstring>
#include <type_traits>
#include <unordered_set>
#include <vector>

using namespace unistr_test;
using vorn::UniStr;

TEST(UniStrLayout, HoldsThreePointersAndACapacityForEachOfTheTwoTexts)
{
    struct Fields {
        wchar_t* buffer;
        wchar_t* end;
        uint32_t capacity;
        char* narrow;
        char* narrowEnd;
        uint32_t narrowCapacity;
    };
    static_assert(sizeof(UniStr) == sizeof(Fields) && sizeof(UniStr) == 48);
    static_assert(!std::is_polymorphic_v<UniStr>);
    UniStr text(L"abc");
    const char* const narrow = text.C_Str();
    Fields fields;
    std::memcpy(&fields, static_cast<const void*>(&text), sizeof fields);
    EXPECT_EQ(fields.buffer, text.S_Str());
    EXPECT_EQ(fields.end, text.S_Str() + 3);
    EXPECT_EQ(fields.capacity, 32u);
    EXPECT_EQ(fields.narrow, narrow);
    EXPECT_EQ(fields.narrowEnd, narrow + 3);
    EXPECT_EQ(fields.narrowCapacity, 16u);
}

TEST(UniStrLayout, AnIteratorHoldsANullWordTheBufferAndThePosition)
{
    const UniStr text(L"abc");
    const auto end = text.End();
    static_assert(sizeof end == 3 * sizeof(void*));
    static_assert(sizeof(UniStr::unistr_iterator<wchar_t>) == 3 * sizeof(void*));
    std::array<const void*, 3> words;
    std::memcpy(words.data(), &end, sizeof end);
    EXPECT_EQ(words[0], nullptr);
    EXPECT_EQ(words[1], text.S_Str());
    EXPECT_EQ(words[2], text.S_Str() + 3);
}

TEST(UniStrConstruction, ADefaultStringIsEmptyWithCapacity31)
{
    const UniStr text;
    EXPECT_TEXT(text, u"");
    EXPECT_TRUE(text.Empty());
    EXPECT_EQ(text.Capacity(), 31u);
}

TEST(UniStrConstruction, CopiesAZeroTerminatedText)
{
    const UniStr text(L"abcdef");
    EXPECT_TEXT(text, u"abcdef");
    EXPECT_EQ(text.Size(), 6u);
    EXPECT_EQ(text.Length(), 6u);
    EXPECT_FALSE(text.Empty());
}

TEST(UniStrConstruction, FreshCapacityIs32BelowThatLengthAndThenAMultipleOf8Plus8)
{
    const struct {
        uint32_t length;
        uint32_t capacity;
    } rows[] = {{1, 31},  {30, 31}, {31, 31}, {32, 39}, {33, 47},   {39, 47},    {40, 47},
                {41, 55}, {47, 55}, {48, 55}, {49, 63}, {100, 111}, {1000, 1007}};
    for (const auto& row : rows) {
        const std::vector<wchar_t> units(row.length + 1, L'a');
        EXPECT_EQ(UniStr(units.data(), row.length).Capacity(), row.capacity) << row.length;
    }
}

TEST(UniStrConstruction, CopiesAGivenNumberOfUnitsZerosIncluded)
{
    EXPECT_TEXT(UniStr(L"abcdef", 4), u"abcd");
    EXPECT_TEXT(UniStr(L"a\0b", 3), (std::u16string_view(u"a\0b", 3)));
}

TEST(UniStrConstruction, ANumberOfZeroMeansZeroTerminated)
{
    EXPECT_TEXT(UniStr(L"abc", 0), u"abc");
}

TEST(UniStrConstruction, ACopyHasFreshCapacityForItsLength)
{
    UniStr text(L"abc");
    text.Reserve(100);
    const UniStr copy(text);
    EXPECT_TEXT(copy, u"abc");
    EXPECT_EQ(text.Capacity(), 167u);
    EXPECT_EQ(copy.Capacity(), 31u);
    EXPECT_NE(copy.S_Str(), text.S_Str());
}

TEST(UniStrConstruction, ACopyKeepsEmbeddedZeros)
{
    const UniStr text(L"\0b", 2);
    EXPECT_TEXT(UniStr(text), (std::u16string_view(u"\0b", 2)));
}
