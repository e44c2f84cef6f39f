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

TEST(UniStrConstruction, ANullTextIsEmpty)
{
    EXPECT_TEXT(UniStr(static_cast<const wchar_t*>(nullptr)), u"");
    EXPECT_TEXT(UniStr(static_cast<const char*>(nullptr)), u"");
}

TEST(UniStrMove, ConstructionTakesTheBufferTheCapacityAndTheCodepageCopy)
{
    UniStr text(L"abc");
    text.Reserve(100);
    const wchar_t* const buffer = text.S_Str();
    const char* const narrow = text.C_Str();
    const UniStr moved(std::move(text));
    EXPECT_TEXT(moved, u"abc");
    EXPECT_EQ(moved.S_Str(), buffer);
    EXPECT_EQ(moved.Capacity(), 167u);
    EXPECT_EQ(moved.C_Str(), narrow);
    static_assert(std::is_nothrow_move_constructible_v<UniStr> && std::is_nothrow_move_assignable_v<UniStr>);
}

TEST(UniStrMove, AssignmentReplacesTheTargetsText)
{
    UniStr text(L"abc");
    UniStr target(L"previous");
    EXPECT_STREQ(target.C_Str(), "previous");
    const wchar_t* const buffer = text.S_Str();
    target = std::move(text);
    EXPECT_TEXT(target, u"abc");
    EXPECT_EQ(target.S_Str(), buffer);
    EXPECT_STREQ(target.C_Str(), "abc");
}

TEST(UniStrMove, OntoItselfChangesNothing)
{
    UniStr text(L"abc");
    UniStr& alias = text;
    text = std::move(alias);
    EXPECT_TEXT(text, u"abc");
}

TEST(UniStrMove, MovesThroughAGrowingVector)
{
    std::vector<UniStr> texts;
    for (int i = 0; i < 100; ++i) texts.emplace_back(L"abc");
    const wchar_t* const buffer = texts[0].S_Str();
    texts.reserve(texts.capacity() + 1);
    EXPECT_EQ(texts[0].S_Str(), buffer);
    EXPECT_TEXT(texts[99], u"abc");
}

TEST(UniStrAssign, FromAnotherStringKeepsTheBufferWhenTheTextFits)
{
    UniStr text(L"abc");
    const wchar_t* const buffer = text.S_Str();
    text = UniStr(Filled(31));  // moves; the rest of the test wants a copy
    UniStr target(L"abc");
    const wchar_t* const targetBuffer = target.S_Str();
    EXPECT_NE(text.S_Str(), buffer);
    EXPECT_EQ(&(target = text), &target);
    EXPECT_TEXT(target, std::u16string(31, u'a'));
    EXPECT_EQ(target.S_Str(), targetBuffer);
    EXPECT_EQ(target.Capacity(), 31u);
}

TEST(UniStrAssign, ATextThatDoesNotFitGetsFreshCapacity)
{
    const UniStr longer = Filled(40);
    UniStr text(L"abc");
    text = longer;
    EXPECT_EQ(text.Size(), 40u);
    EXPECT_EQ(text.Capacity(), 47u);
    text = Filled(100).S_Str();
    EXPECT_EQ(text.Size(), 100u);
    EXPECT_EQ(text.Capacity(), 111u);
    text = L"x";
    EXPECT_TEXT(text, u"x");
    EXPECT_EQ(text.Capacity(), 111u);
}

TEST(UniStrAssign, ReplacementOfTheBufferDependsOnTheCapacityNotTheLength)
{
    UniStr text(L"abc");  // 32 units
    text.Assign(Filled(31), 0, 31);
    EXPECT_EQ(text.Capacity(), 31u);
    text.Assign(Filled(32), 0, 32);
    EXPECT_EQ(text.Capacity(), 39u);
}

TEST(UniStrAssign, ItselfChangesNothing)
{
    UniStr text(L"abcdef");
    const UniStr& alias = text;
    text = alias;
    EXPECT_TEXT(text, u"abcdef");
    text = text.S_Str();
    EXPECT_TEXT(text, u"abcdef");
    text.Assign(alias);
    EXPECT_TEXT(text, u"abcdef");
}

TEST(UniStrAssign, APartOfItself)
{
    UniStr text(L"abcdef");
    text = text.S_Str() + 2;
    EXPECT_TEXT(text, u"cdef");
    text.Assign(text, 1, 2);
    EXPECT_TEXT(text, u"de");
    text.Assign(text.Begin() + 1, text.End());
    EXPECT_TEXT(text, u"e");
}

TEST(UniStrAssign, ANumberOfZeroEmptiesAndMeasuresNothing)
{
    UniStr text(L"abc");
    EXPECT_EQ(&text.Assign(L"xyz", 0), &text);
    EXPECT_TEXT(text, u"");
    EXPECT_EQ(text.Capacity(), 31u);
    text.Assign(L"xyz", 2);
    EXPECT_TEXT(text, u"xy");
}

TEST(UniStrAssign, AnEmptyStringEmpties)
{
    UniStr text(L"abc");
    EXPECT_EQ(&text.Assign(UniStr()), &text);
    EXPECT_TEXT(text, u"");
    text = L"abc";
    text = UniStr();
    EXPECT_TEXT(text, u"");
    text = L"abc";
    text = L"";
    EXPECT_TEXT(text, u"");
}

TEST(UniStrAssign, KeepsEmbeddedZerosOfAString)
{
    const UniStr source(L"a\0b", 3);
    UniStr text;
    text.Assign(source);
    EXPECT_TEXT(text, (std::u16string_view(u"a\0b", 3)));
    text = L"x";
    text = source;
    EXPECT_TEXT(text, (std::u16string_view(u"a\0b", 3)));
}

TEST(UniStrAssign, PartOfAStringIsCutAtItsEnd)
{
    const UniStr source(L"abcdef");
    UniStr text(L"previous");
    text.Assign(source, 2, 3);
    EXPECT_TEXT(text, u"cde");
    text.Assign(source, 2, 100);
    EXPECT_TEXT(text, u"cdef");
    text.Assign(source, 2, kNpos);
    EXPECT_TEXT(text, u"cdef");
    text.Assign(source, 2, 0);
    EXPECT_TEXT(text, u"");
}

TEST(UniStrAssign, APartMustBeginBelowTheLength)
{
    const UniStr source(L"abcdef");
    UniStr text(L"previous");
    EXPECT_OUT_OF_RANGE(text.Assign(source, 6, 1));
    EXPECT_OUT_OF_RANGE(text.Assign(source, 6, 0));
    EXPECT_OUT_OF_RANGE(text.Assign(source, 7, 1));
    EXPECT_OUT_OF_RANGE(text.Assign(source, kNpos, kNpos));
    EXPECT_OUT_OF_RANGE(text.Assign(UniStr(), 0, 0));
    EXPECT_TEXT(text, u"previous");
}

TEST(UniStrAssign, RepeatedUnitsGrowTheCapacityInStepsOf32)
{
    const struct {
        uint32_t n;
        uint32_t capacity;
    } rows[] = {{0, 31}, {1, 31}, {31, 31}, {32, 63}, {63, 63}, {64, 95}, {95, 95}, {96, 127}, {1000, 1023}};
    for (const auto& row : rows) {
        UniStr text(L"previous");
        EXPECT_EQ(&text.Assign(row.n, L'z'), &text);
        EXPECT_TEXT(text, std::u16string(row.n, u'z'));
        EXPECT_EQ(text.Capacity(), row.capacity) << row.n;
    }
}

TEST(UniStrAssign, ALiteralZeroAndAUnitMeanNoUnits)
{
    UniStr text(L"abc");
    text.Assign(0, L'x');
    EXPECT_TEXT(text, u"");
}

TEST(UniStrAssign, ARangeGrowsTheCapacityInStepsOf32)
{
    const UniStr source = Filled(40, L'q');
    UniStr text(L"previous");
    EXPECT_EQ(&text.Assign(source.Begin(), source.End()), &text);
    EXPECT_TEXT(text, std::u16string(40, u'q'));
    EXPECT_EQ(text.Capacity(), 63u);
    text.Assign(source.Begin() + 3, source.Begin() + 3);
    EXPECT_TEXT(text, u"");
    EXPECT_EQ(text.Capacity(), 63u);
}

TEST(UniStrReserve, AddsToTheCapacityWhenItIsExceeded)
{
    const struct {
        uint32_t n;
        uint32_t capacity;
    } rows[] = {{0, 31}, {5, 31}, {31, 31}, {32, 95}, {33, 103}, {40, 103}, {41, 111}, {100, 167}};
    for (const auto& row : rows) {
        UniStr text(L"abc");
        EXPECT_EQ(&text.Reserve(row.n), &text);
        EXPECT_EQ(text.Capacity(), row.capacity) << row.n;
        EXPECT_TEXT(text, u"abc");
    }
}

TEST(UniStrReserve, MoreThanAStringCanHoldIsRefused)
{
    UniStr text(L"abc");
    EXPECT_THROWS(text.Reserve(0x7FFFFFC0), LengthError, "Length error");
    for (const uint32_t n : {0x80000000u, 0xFFFFFFBFu, 0xFFFFFFFFu}) {
        EXPECT_THROWS(text.Reserve(n), LengthError, "Length error");
        EXPECT_THROWS(text.Resize(n, L'x'), LengthError, "Length error");
        EXPECT_THROWS(text.Assign(n, L'x'), LengthError, "Length error");
        EXPECT_THROWS(text.Insert(0, n, L'x'), LengthError, "Length error");
        EXPECT_THROWS(text.Append(L"x", n), LengthError, "Length error");
        EXPECT_THROWS(text.Insert(0, L"x", n), LengthError, "Length error");
        EXPECT_THROWS(text.Replace(0, 1, L"x", n), LengthError, "Length error");
        EXPECT_THROWS(text.Replace(0, 1, n, L'x'), LengthError, "Length error");
        EXPECT_THROWS(text.Assign(L"x", n), LengthError, "Length error");
        EXPECT_THROWS(UniStr(L"x", n), LengthError, "Length error");
        EXPECT_THROWS(UniStr("x", n), LengthError, "Length error");
    }
    EXPECT_TEXT(text, u"abc");
    EXPECT_EQ(text.Capacity(), 31u);
}

TEST(UniStrClear, EmptiesAndKeepsTheCapacity)
{
    UniStr text = Filled(100);
    const uint32_t capacity = text.Capacity();
    EXPECT_EQ(&text.Clear(), &text);
    EXPECT_TEXT(text, u"");
    EXPECT_TRUE(text.Empty());
    EXPECT_EQ(text.Capacity(), capacity);
}

TEST(UniStrSwap, ExchangesTextsBuffersAndCapacities)
{
    UniStr a(L"abc");
    UniStr b = Filled(50, L'b');
    const wchar_t* const bufferA = a.S_Str();
    const wchar_t* const bufferB = b.S_Str();
    EXPECT_EQ(&a.Swap(b), &a);
    EXPECT_EQ(a.S_Str(), bufferB);
    EXPECT_EQ(b.S_Str(), bufferA);
    EXPECT_EQ(a.Capacity(), 63u);
    EXPECT_EQ(b.Capacity(), 31u);
    EXPECT_TEXT(a, std::u16string(50, u'b'));
    EXPECT_TEXT(b, u"abc");
    a.Swap(a);
    EXPECT_TEXT(a, std::u16string(50, u'b'));
}

TEST(UniStrAccess, AtChecksItsIndex)
{
    UniStr text(L"abc");
    const UniStr& constant = text;
    EXPECT_EQ(text.At(0), L'a');
    EXPECT_EQ(constant.At(2), L'c');
    text.At(1) = L'x';
    EXPECT_TEXT(text, u"axc");
    EXPECT_OUT_OF_RANGE(text.At(3));
    EXPECT_OUT_OF_RANGE(constant.At(3));
    EXPECT_OUT_OF_RANGE(text.At(kNpos));
    EXPECT_OUT_OF_RANGE(UniStr().At(0));
}

TEST(UniStrAccess, IndexingReachesTheTerminator)
{
    UniStr text(L"abc");
    const UniStr& constant = text;
    text[0] = L'x';
    EXPECT_EQ(constant[0], L'x');
    EXPECT_EQ(constant[3], 0);
    EXPECT_EQ(&text[0], text.S_Str());
}

TEST(UniStrAccess, BothNamesGiveTheSameBuffer)
{
    const UniStr text(L"abc");
    EXPECT_EQ(text.S_Str(), text.U_Str());
    EXPECT_EQ(text.S_Str()[3], 0);
}

TEST(UniStrViews, AreConvertedToImplicitly)
{
    const UniStr text(L"a\0b", 3);
    const std::wstring_view wide = text;
    EXPECT_EQ(wide.data(), text.S_Str());
    EXPECT_EQ(wide.size(), 3u);
    const std::u16string_view units = text;
    EXPECT_EQ(units, std::u16string_view(u"a\0b", 3));
    static_assert(std::is_convertible_v<UniStr, std::wstring_view>);
    static_assert(std::is_convertible_v<UniStr, std::u16string_view>);
}

TEST(UniStrViews, AreConstructedFromByLength)
{
    const std::wstring_view wide(L"abcdef", 3);
    EXPECT_TEXT(UniStr(wide), u"abc");
    EXPECT_TEXT(UniStr(std::u16string_view(u"a\0b", 3)), (std::u16string_view(u"a\0b", 3)));
    EXPECT_TEXT(UniStr(std::u16string(u"text")), u"text");
    EXPECT_TEXT(UniStr(u"literal"), u"literal");
    EXPECT_EQ(UniStr(std::u16string(40, u'x')).Capacity(), 47u);
    // Unlike a length of 0 with a pointer, an empty view is empty.
    EXPECT_TEXT(UniStr(std::wstring_view(L"abc", 0)), u"");
    EXPECT_TEXT(UniStr(std::wstring_view{}), u"");
}

TEST(UniStrViews, AreAssignedAndAppended)
{
    UniStr text(L"previous");
    text = std::u16string_view(u"abc");
    EXPECT_TEXT(text, u"abc");
    text += std::u16string(u"de");
    EXPECT_TEXT(text, u"abcde");
    text.Append(std::wstring_view(L"fg", 1));
    EXPECT_TEXT(text, u"abcdef");
    text.Append(std::wstring_view(L"fg", 0));
    EXPECT_TEXT(text, u"abcdef");
    text.Assign(std::wstring_view(text).substr(2, 3));
    EXPECT_TEXT(text, u"cde");
    text.Append(std::wstring_view(text));
    EXPECT_TEXT(text, u"cdecde");
    text.Assign(std::wstring_view());
    EXPECT_TEXT(text, u"");
}

TEST(UniStrViews, AreComparedByTheStandardsOperators)
{
    const UniStr text(L"abc");
    EXPECT_TRUE(text == std::u16string_view(u"abc"));
    EXPECT_TRUE(std::u16string_view(u"abd") > text);
}

TEST(UniStrViews, LeaveTheMeaningOfPointersAndBracesAlone)
{
    UniStr text({L"abcdef", 2});  // number and pointer, not a view
    EXPECT_TEXT(text, u"ab");
    text = {L"abcdef", 3};
    EXPECT_TEXT(text, u"abc");
    text.Assign({L"abcdef", 1});
    EXPECT_TEXT(text, u"a");
    text = "narrow";
    EXPECT_TEXT(text, u"narrow");
    text = {};
    EXPECT_TEXT(text, u"");
    EXPECT_EQ(UniStr(L"abc").Find(L"c"), 2u);
    static_assert(!std::is_convertible_v<std::wstring_view, UniStr>);
    static_assert(!std::is_constructible_v<UniStr, int> && !std::is_constructible_v<UniStr, wchar_t>);
    static_assert(!std::is_assignable_v<UniStr&, double>);
}

TEST(UniStrHash, IsThatOfTheText)
{
    const UniStr text(L"abc");
    UniStr same(L"ab");
    same.Reserve(100);
    same += L'c';
    EXPECT_EQ(std::hash<UniStr>()(text), std::hash<UniStr>()(same));
    EXPECT_EQ(std::hash<UniStr>()(text), std::hash<std::wstring_view>()(std::wstring_view(L"abc", 3)));
    EXPECT_NE(std::hash<UniStr>()(text), std::hash<UniStr>()(UniStr(L"abd")));
    std::unordered_set<UniStr> set;
    set.insert(text);
    set.insert(same);
    set.insert(UniStr(L"other"));
    EXPECT_EQ(set.size(), 2u);
    EXPECT_EQ(set.count(UniStr(L"abc")), 1u);
}

TEST(UniStrPrinting, ShowsTheTextInAFailedExpectation)
{
    EXPECT_EQ(testing::PrintToString(UniStr(L"abc")), "abc");
}

namespace {

// Every member once, on strings whose buffer is not their own; `make` gives a new one each time.
template <typename Make>
void UseWithoutABuffer(Make make)
{
    const UniStr other(L"xyz");
    {
        const UniStr text = make();
        EXPECT_EQ(text.Size(), 0u);
        EXPECT_EQ(text.Capacity(), 0u);
        EXPECT_TRUE(text.Empty());
        EXPECT_EQ(text[0], 0);
        EXPECT_EQ(text.Begin(), text.End());
        EXPECT_OUT_OF_RANGE(text.At(0));
        EXPECT_TEXT(text, u"");
        EXPECT_EQ(text.C_Str(), nullptr);
        EXPECT_TEXT(text.Substring(0, 0), u"");
        EXPECT_TEXT(text.Substring(0, kNpos), u"");
        EXPECT_OUT_OF_RANGE(text.Substring(0, 1));
        EXPECT_EQ(text.Compare(UniStr(), true, true), 0);
        EXPECT_LT(text.Compare(other, true, true), 0);
        EXPECT_GT(other.Compare(text, false, false), 0);
        EXPECT_EQ(text.Compare(L"", false, true), 0);
        EXPECT_EQ(text, UniStr());
        EXPECT_EQ(text, L"");
        EXPECT_LT(text, other);
        EXPECT_EQ(text.Find(UniStr()), 0u);
        EXPECT_EQ(text.Find(other), kNpos);
        EXPECT_EQ(other.Find(text), 0u);
        EXPECT_EQ(text.Find(wchar_t{0}), 0u);
        EXPECT_EQ(text.Find(L'a'), kNpos);
        EXPECT_EQ(text.RFind(other), kNpos);
        EXPECT_EQ(text.RFind(wchar_t{0}), kNpos);
        EXPECT_EQ(text.FindFirstOf(L"a"), kNpos);
        EXPECT_EQ(text.FindFirstNotOf(L"a"), kNpos);
        EXPECT_EQ(text.FindLastOf(L"a"), kNpos);
        EXPECT_EQ(text.FindLastNotOf(L"a"), kNpos);
        EXPECT_EQ(text.CountCodePoints(), 0u);
        EXPECT_EQ(std::hash<UniStr>()(text), std::hash<UniStr>()(UniStr()));
        EXPECT_TEXT(UniStr(text), u"");
        EXPECT_TEXT(text + other, u"xyz");
        EXPECT_TEXT(other + text, u"xyz");
        EXPECT_TEXT(text + L"q", u"q");
    }
    const auto expect = [&](auto&& edit, std::u16string_view expected, uint32_t capacity) {
        UniStr text = make();
        edit(text);
        EXPECT_EQ(Units(text), expected);
        EXPECT_EQ(text[text.Size()], 0);
        EXPECT_EQ(text.Capacity(), capacity);
        EXPECT_NE(text.Capacity() != 0 ? text.S_Str() : L"", nullptr);
        text += L"abc";
        EXPECT_EQ(Units(text), std::u16string(expected) + u"abc");
    };
    expect([](UniStr& t) { t = L"abc"; }, u"abc", 31);
    expect([&](UniStr& t) { t = other; }, u"xyz", 31);
    expect([](UniStr& t) { t = L""; }, u"", 31);
    expect([](UniStr& t) { t = UniStr(L"q"); }, u"q", 31);
    expect([](UniStr& t) { t.Assign(L"abc", 0); }, u"", 0);
    expect([](UniStr& t) { t.Assign(L"abc", 2); }, u"ab", 31);
    expect([&](UniStr& t) { t.Assign(other); }, u"xyz", 31);
    expect([](UniStr& t) { t.Assign(0, L'c'); }, u"", 0);
    expect([](UniStr& t) { t.Assign(2, L'c'); }, u"cc", 31);
    expect([&](UniStr& t) { t.Assign(other.Begin(), other.End()); }, u"xyz", 31);
    expect([](UniStr& t) { t += L'c'; }, u"c", 31);
    expect([](UniStr& t) { t += L"abc"; }, u"abc", 39);
    expect([](UniStr& t) { t += L""; }, u"", 0);
    expect([&](UniStr& t) { t.Append(other.Begin(), other.End()); }, u"xyz", 31);
    expect([](UniStr& t) { t.Insert(0, L"abc"); }, u"abc", 39);
    expect([](UniStr& t) { t.Insert(0, 2, L'c'); }, u"cc", 31);
    expect([](UniStr& t) { t.Insert(t.Begin(), L'c'); }, u"c", 31);
    expect([&](UniStr& t) { t.Replace(0, 0, other); }, u"xyz", 39);
    expect([&](UniStr& t) { t.Replace(t.Begin(), t.End(), other); }, u"xyz", 39);
    expect([](UniStr& t) { t.Replace(0, 0, L""); }, u"", 0);
    expect([](UniStr& t) { t.Erase(t.Begin(), t.End()); }, u"", 0);
    expect([](UniStr& t) { EXPECT_OUT_OF_RANGE(t.Erase(0, 0)); }, u"", 0);
    expect([](UniStr& t) { EXPECT_OUT_OF_RANGE(t.Erase(t.Begin())); }, u"", 0);
    expect([](UniStr& t) { EXPECT_OUT_OF_RANGE(t.Insert(1, L"a")); }, u"", 0);
    expect([](UniStr& t) { t.Resize(0, L'c'); }, u"", 0);
    expect([](UniStr& t) { t.Resize(3, L'c'); }, u"ccc", 39);
    expect([](UniStr& t) { t.Reserve(0); }, u"", 39);
    expect([](UniStr& t) { t.Clear(); }, u"", 0);
    expect([](UniStr& t) { t.ToUpper(); }, u"", 15);
    expect([](UniStr& t) { t.ToLower(); }, u"", 15);
    expect([&](UniStr& t) { UniStr(other).Swap(t); }, u"xyz", 31);
    expect([](UniStr& t) { UniStr(std::move(t)); }, u"", 0);
    {
        UniStr text(L"abc");
        UniStr without = make();
        text = without;
        EXPECT_TEXT(text, u"");
        text = std::move(without);
        EXPECT_TEXT(text, u"");
        EXPECT_EQ(text.Capacity(), 0u);
    }
}

}  // namespace

TEST(UniStrMove, LeavesAnEmptyStringThatMayBeUsedLikeAnyOther)
{
    UseWithoutABuffer([] {
        UniStr text(L"abc");
        const UniStr moved(std::move(text));
        EXPECT_NE(text.S_Str(), nullptr);
        EXPECT_EQ(text.S_Str()[0], 0);
        return text;
    });
}
