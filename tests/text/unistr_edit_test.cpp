// Appending, insertion, replacement, erasure, resizing, substrings and iterators of UniStr.
#include "text/unistr_support.h"

#include <algorithm>
#include <iterator>
#include <type_traits>
#include <vector>

using namespace unistr_test;
using vorn::UniStr;
using Iterator = UniStr::unistr_iterator<wchar_t>;
using ConstIterator = UniStr::unistr_iterator_const<wchar_t>;

TEST(UniStrAppend, TheUnitThatDoesNotFitGrowsTheCapacityBy32)
{
    UniStr text;
    const wchar_t* const buffer = text.S_Str();
    for (int i = 0; i < 31; ++i) text += L'a';
    EXPECT_EQ(text.S_Str(), buffer);
    EXPECT_EQ(text.Capacity(), 31u);
    text += L'b';
    EXPECT_EQ(text.Capacity(), 63u);
    EXPECT_TEXT(text, std::u16string(31, u'a') + u"b");
}

TEST(UniStrAppend, AZeroUnitBecomesPartOfTheText)
{
    UniStr text(L"a");
    EXPECT_EQ(&(text += wchar_t{0}), &text);
    EXPECT_TEXT(text, (std::u16string_view(u"a\0", 2)));
}

TEST(UniStrAppend, AStringAPointerAndANumberOfUnits)
{
    UniStr text(L"a");
    EXPECT_EQ(&(text += UniStr(L"bc")), &text);
    EXPECT_TEXT(text, u"abc");
    EXPECT_EQ(&(text += L"de"), &text);
    EXPECT_TEXT(text, u"abcde");
    EXPECT_EQ(&text.Append(L"fghi", 2), &text);
    EXPECT_TEXT(text, u"abcdefg");
    text += UniStr();
    text += L"";
    EXPECT_TEXT(text, u"abcdefg");
}

TEST(UniStrAppend, ANumberOfZeroAppendsTheWholeZeroTerminatedText)
{
    UniStr text(L"a");
    text.Append(L"xyz", 0);
    EXPECT_TEXT(text, u"axyz");
}

TEST(UniStrAppend, KeepsEmbeddedZerosOfAString)
{
    UniStr text(L"a");
    text += UniStr(L"\0b", 2);
    EXPECT_TEXT(text, (std::u16string_view(u"a\0b", 3)));
}

TEST(UniStrAppend, ATextThatDoesNotFitGrowsTheCapacityByItsRoundedLengthAnd32)
{
    const struct {
        uint32_t length;  // before
        uint32_t n;
        uint32_t capacity;
    } rows[] = {{0, 31, 31},
                {0, 32, 32 + 32 + 31},
                {31, 1, 32 + 8 + 31},
                {31, 8, 32 + 8 + 31},
                {31, 9, 79},
                {30, 1, 31},
                {30, 2, 32 + 8 + 31},
                {24, 8, 32 + 8 + 31},
                {20, 16, 79},
                {20, 17, 32 + 24 + 31},
                {31, 100, 32 + 104 + 31}};
    for (const auto& row : rows) {
        UniStr text = Filled(row.length);
        text.Append(Filled(row.n, L'b').S_Str(), row.n);
        EXPECT_EQ(text.Capacity(), row.capacity) << row.length << " + " << row.n;
        EXPECT_TEXT(text, std::u16string(row.length, u'a') + std::u16string(row.n, u'b'));
    }
}

TEST(UniStrAppend, ARangeGrowsTheCapacityInStepsOf32)
{
    const UniStr source = Filled(40, L'q');
    UniStr text(L"abc");
    EXPECT_EQ(&text.Append(source.Begin(), source.End()), &text);
    EXPECT_TEXT(text, u"abc" + std::u16string(40, u'q'));
    EXPECT_EQ(text.Capacity(), 63u);
    text.Append(source.Begin(), source.Begin());
    EXPECT_EQ(text.Size(), 43u);
}

TEST(UniStrAppend, ManyTextsGrowTheCapacityEachTimeButMoveTheBufferOnlyAFewTimes)
{
    UniStr text;
    uint32_t capacity = 32;
    uint32_t moves = 0;
    for (uint32_t n = 0; n < 500; ++n) {
        const wchar_t* const buffer = text.S_Str();
        text.Append(L"the quick brown fox ", 20);
        if (20 * (n + 1) >= capacity) capacity += 24 + 32;
        ASSERT_EQ(text.Capacity(), capacity - 1);
        if (text.S_Str() != buffer) ++moves;
    }
    EXPECT_EQ(text.Substring(9980, kNpos), L"the quick brown fox ");
    EXPECT_LE(moves, 12u);
}

TEST(UniStrAppend, ItsOwnTextWithAndWithoutGrowth)
{
    UniStr text(L"abcdef");
    text += text;
    EXPECT_TEXT(text, u"abcdefabcdef");
    text += text.S_Str() + 8;
    EXPECT_TEXT(text, u"abcdefabcdefcdef");
    std::u16string expected = u"abcdefabcdefcdef";
    for (int i = 0; i < 5; ++i) {  // 32 units and more: grows
        text += text;
        expected += std::u16string(expected);
        EXPECT_TEXT(text, expected);
    }
    UniStr ranged = Filled(31, L'r');
    ranged.Append(ranged.Begin(), ranged.End());
    EXPECT_TEXT(ranged, std::u16string(62, u'r'));
    UniStr pointed = Filled(31, L'p');
    pointed.Append(pointed.S_Str(), 31);
    EXPECT_TEXT(pointed, std::u16string(62, u'p'));
}

TEST(UniStrInsert, AtTheBeginningTheMiddleAndTheEnd)
{
    UniStr text(L"abc");
    EXPECT_EQ(&text.Insert(0, L"xy"), &text);
    EXPECT_TEXT(text, u"xyabc");
    EXPECT_EQ(&text.Insert(3, UniStr(L"PQ")), &text);
    EXPECT_TEXT(text, u"xyaPQbc");
    EXPECT_EQ(&text.Insert(7, L"end", 2), &text);
    EXPECT_TEXT(text, u"xyaPQbcen");
    EXPECT_EQ(&text.Insert(1, 3, L'-'), &text);
    EXPECT_TEXT(text, u"x---yaPQbcen");
}

TEST(UniStrInsert, AboveTheLengthIsOutOfRange)
{
    UniStr text(L"abcdef");
    EXPECT_OUT_OF_RANGE(text.Insert(7, L"xy"));
    EXPECT_OUT_OF_RANGE(text.Insert(7, L"xy", 1));
    EXPECT_OUT_OF_RANGE(text.Insert(7, UniStr(L"xy")));
    EXPECT_OUT_OF_RANGE(text.Insert(7, UniStr(L"xy"), 0, 1));
    EXPECT_OUT_OF_RANGE(text.Insert(7, 1, L'x'));
    EXPECT_OUT_OF_RANGE(text.Insert(text.End() + 1, L'x'));
    EXPECT_OUT_OF_RANGE(text.Insert(text.End() + 1, 2, L'x'));
    EXPECT_OUT_OF_RANGE(text.Insert(text.End() + 1, text.Begin(), text.End()));
    EXPECT_OUT_OF_RANGE(text.Insert(kNpos, L"xy"));
    EXPECT_OUT_OF_RANGE(text.Insert(UniStr(L"other").Begin(), L'x'));
    EXPECT_TEXT(text, u"abcdef");
}

TEST(UniStrInsert, NoUnitsDoesNothingAndChecksNothing)
{
    UniStr text(L"abcdef");
    text.Insert(7, L"xyz", 0);
    text.Insert(7, L"");
    text.Insert(7, UniStr());
    text.Insert(7, 0, L'x');
    text.Insert(7, UniStr(L"xy"), 0, 0);
    text.Insert(text.End() + 1, text.Begin(), text.Begin());
    text.Insert(text.End() + 1, 0, L'x');
    EXPECT_TEXT(text, u"abcdef");
    EXPECT_EQ(text.Capacity(), 31u);
}

TEST(UniStrInsert, PartOfAStringIsCutAtItsEnd)
{
    const UniStr source(L"uvwxyz");
    UniStr text(L"ab");
    EXPECT_EQ(&text.Insert(1, source, 2, 3), &text);
    EXPECT_TEXT(text, u"awxyb");
    text.Insert(5, source, 4, 100);
    EXPECT_TEXT(text, u"awxybyz");
    text.Insert(0, source, 5, kNpos);
    EXPECT_TEXT(text, u"zawxybyz");
    text.Insert(0, source, 6, 1);  // nothing is left from there on
    text.Insert(0, source, 7, 1);
    EXPECT_TEXT(text, u"zawxybyz");
}

TEST(UniStrInsert, TextGrowsByItsRoundedLengthAnd32AndUnitsInStepsOf32)
{
    UniStr text = Filled(31);
    text.Insert(10, L"xyz");
    EXPECT_EQ(text.Capacity(), 71u);
    EXPECT_TEXT(text, std::u16string(10, u'a') + u"xyz" + std::u16string(21, u'a'));
    UniStr units = Filled(31);
    units.Insert(10, 3, L'x');
    EXPECT_EQ(units.Capacity(), 63u);
    EXPECT_TEXT(units, std::u16string(10, u'a') + u"xxx" + std::u16string(21, u'a'));
    UniStr one = Filled(31);
    const Iterator inserted = one.Insert(one.Begin() + 1, L'x');
    EXPECT_EQ(inserted - one.Begin(), 1);
    EXPECT_EQ(one.Capacity(), 63u);
    UniStr range = Filled(31);
    range.Insert(range.End(), text.Begin() + 10, text.Begin() + 13);
    EXPECT_EQ(range.Capacity(), 71u);
    EXPECT_TEXT(range, std::u16string(31, u'a') + u"xyz");
    UniStr many = Filled(31);
    many.Insert(0, 65, L'x');
    EXPECT_EQ(many.Capacity(), 127u);
}

TEST(UniStrInsert, ThroughIterators)
{
    UniStr text(L"abc");
    const Iterator it = text.Insert(text.Begin() + 1, L'x');
    EXPECT_TEXT(text, u"axbc");
    EXPECT_EQ(it, text.Begin() + 1);
    EXPECT_EQ(*it, L'x');
    text.Insert(text.End(), 2, L'!');
    EXPECT_TEXT(text, u"axbc!!");
    const UniStr source(L"0123");
    text.Insert(text.Begin(), source.Begin() + 1, source.End());
    EXPECT_TEXT(text, u"123axbc!!");
}

TEST(UniStrInsert, ItsOwnText)
{
    UniStr text(L"abcdef");
    text.Insert(3, text);  // the part from 3 on moves
    EXPECT_TEXT(text, u"abcabcdefdef");
    text = L"abcdef";
    text.Insert(0, text.S_Str() + 2, 3);
    EXPECT_TEXT(text, u"cdeabcdef");
    text = L"abcdef";
    text.Insert(6, text.S_Str(), 2);
    EXPECT_TEXT(text, u"abcdefab");
    text = L"abcdef";
    text.Insert(2, text, 1, 3);  // straddles the position
    EXPECT_TEXT(text, u"abbcdcdef");
    text = L"abcdef";
    text.Insert(text.Begin() + 2, text.Begin() + 1, text.Begin() + 4);
    EXPECT_TEXT(text, u"abbcdcdef");
    UniStr full = Filled(30);
    full += L'z';
    full.Insert(1, full);  // grows
    EXPECT_TEXT(full, u"a" + std::u16string(30, u'a') + u"z" + std::u16string(29, u'a') + u"z");
}

TEST(UniStrReplace, ByShorterEqualAndLongerTexts)
{
    UniStr text(L"abcdef");
    EXPECT_EQ(&text.Replace(1, 3, L"X"), &text);
    EXPECT_TEXT(text, u"aXef");
    EXPECT_EQ(&text.Replace(1, 1, UniStr(L"Y")), &text);
    EXPECT_TEXT(text, u"aYef");
    EXPECT_EQ(&text.Replace(2, 1, L"12345", 4), &text);
    EXPECT_TEXT(text, u"aY1234f");
    EXPECT_EQ(&text.Replace(0, 2, 5, L'-'), &text);
    EXPECT_TEXT(text, u"-----1234f");
    text.Replace(10, 0, L"end");
    EXPECT_TEXT(text, u"-----1234fend");
    text.Replace(0, 13, L"");
    EXPECT_TEXT(text, u"");
}

TEST(UniStrReplace, ByNothingErases)
{
    UniStr text(L"abcdef");
    text.Replace(1, 2, L"xyz", 0);
    EXPECT_TEXT(text, u"adef");
    text.Replace(0, 1, UniStr());
    EXPECT_TEXT(text, u"def");
    text.Replace(1, 1, 0, L'x');
    EXPECT_TEXT(text, u"df");
}

TEST(UniStrReplace, AboveTheLengthIsOutOfRange)
{
    UniStr text(L"abcdef");
    EXPECT_OUT_OF_RANGE(text.Replace(7, 0, L"x"));
    EXPECT_OUT_OF_RANGE(text.Replace(7, 0, L"xyz", 0));
    EXPECT_OUT_OF_RANGE(text.Replace(7, 0, L"x", 1));
    EXPECT_OUT_OF_RANGE(text.Replace(7, 1, UniStr(L"x")));
    EXPECT_OUT_OF_RANGE(text.Replace(7, 1, UniStr(L"x"), 0, 1));
    EXPECT_OUT_OF_RANGE(text.Replace(7, 1, 1, L'x'));
    EXPECT_OUT_OF_RANGE(text.Replace(text.End() + 1, text.End() + 1, L"x", 1));
    EXPECT_OUT_OF_RANGE(text.Replace(kNpos, kNpos, L"x"));
    EXPECT_TEXT(text, u"abcdef");
}

TEST(UniStrReplace, ACountThatReachesPastTheEndStopsThere)
{
    UniStr text(L"abcdef");
    text.Replace(4, 100, L"xyz");
    EXPECT_TEXT(text, u"abcdxyz");
    text.Replace(0, kNpos, L"q");
    EXPECT_TEXT(text, u"q");
}

TEST(UniStrReplace, PartOfAStringMustBeginBelowItsLength)
{
    const UniStr source(L"uvwxyz");
    UniStr text(L"abcdef");
    EXPECT_EQ(&text.Replace(1, 2, source, 2, 3), &text);
    EXPECT_TEXT(text, u"awxydef");
    EXPECT_OUT_OF_RANGE(text.Replace(0, 1, source, 6, 0));
    EXPECT_OUT_OF_RANGE(text.Replace(0, 1, source, 7, 1));
    EXPECT_OUT_OF_RANGE(text.Replace(0, 1, UniStr(), 0, 0));
    text.Replace(0, 1, source, 2, 0);
    EXPECT_TEXT(text, u"wxydef");
}

TEST(UniStrReplace, PartOfAStringIsNotCutAtItsEndButMustLieInItsBuffer)
{
    const UniStr source(L"uv");
    UniStr text(L"abc");
    text.Replace(0, 1, source, 1, 4);  // 'v', the terminator and two units that were never written
    EXPECT_EQ(text.Size(), 6u);
    EXPECT_EQ(text[0], L'v');
    EXPECT_EQ(text[1], 0);
    EXPECT_EQ(Units(text).substr(4), u"bc");
    EXPECT_OUT_OF_RANGE(text.Replace(0, 1, source, 1, 32));
    EXPECT_OUT_OF_RANGE(text.Replace(0, 1, source, 1, kNpos));
    EXPECT_EQ(text.Size(), 6u);
}

TEST(UniStrReplace, GrowsByTheTextsRoundedLengthAnd32)
{
    const struct {
        uint32_t count;
        uint32_t n;
        uint32_t capacity;
    } rows[] = {{0, 1, 71}, {1, 1, 31},  {1, 2, 71},   {5, 5, 31},
                {5, 6, 71}, {5, 20, 87}, {31, 31, 31}, {31, 32, 95}};
    for (const auto& row : rows) {
        UniStr text = Filled(31);
        text.Replace(0, row.count, Filled(row.n, L'b'));
        EXPECT_EQ(text.Capacity(), row.capacity) << row.count << " by " << row.n;
        EXPECT_TEXT(text, std::u16string(row.n, u'b') + std::u16string(31 - row.count, u'a'));
    }
}

TEST(UniStrReplace, ARangeByEachKindOfSource)
{
    const UniStr source(L"0123456789");
    UniStr text(L"abcdef");
    EXPECT_EQ(&text.Replace(text.Begin() + 1, text.Begin() + 3, UniStr(L"XYZ")), &text);
    EXPECT_TEXT(text, u"aXYZdef");
    EXPECT_EQ(&text.Replace(text.Begin(), text.Begin() + 4, L"pqr", 2), &text);
    EXPECT_TEXT(text, u"pqdef");
    EXPECT_EQ(&text.Replace(text.Begin() + 4, text.End(), 3, L'!'), &text);
    EXPECT_TEXT(text, u"pqde!!!");
    EXPECT_EQ(&text.Replace(text.Begin() + 2, text.Begin() + 2, source.Begin() + 3, source.Begin() + 6),
              &text);
    EXPECT_TEXT(text, u"pq345de!!!");
    text.Replace(text.Begin(), text.End(), source.Begin(), source.Begin());
    EXPECT_TEXT(text, u"");
}

TEST(UniStrReplace, ByItsOwnText)
{
    UniStr text(L"abcdef");
    text.Replace(1, 2, text);
    EXPECT_TEXT(text, u"aabcdefdef");
    text = L"abcdef";
    text.Replace(0, 4, text.S_Str() + 2, 3);
    EXPECT_TEXT(text, u"cdeef");
    text = L"abcdef";
    text.Replace(3, 1, text, 1, 5);
    EXPECT_TEXT(text, u"abcbcdefef");
    text = L"abcdef";
    text.Replace(2, 2, text.S_Str(), 2);
    EXPECT_TEXT(text, u"ababef");
    UniStr full = Filled(30);
    full += L'z';
    full.Replace(30, 1, full);  // grows
    EXPECT_TEXT(full, std::u16string(60, u'a') + u"z");
}

TEST(UniStrErase, UnitsOrEverythingFromAPosition)
{
    UniStr text(L"abcdef");
    EXPECT_EQ(&text.Erase(1, 2), &text);
    EXPECT_TEXT(text, u"adef");
    text.Erase(2, 0);
    EXPECT_TEXT(text, u"adef");
    text.Erase(3, 1);
    EXPECT_TEXT(text, u"ade");
    text.Erase(1, kNpos);
    EXPECT_TEXT(text, u"a");
    text = L"abcdef";
    text.Erase(2, 100);
    EXPECT_TEXT(text, u"ab");
    text.Erase(1, kNpos - 1);  // position and count together exceed 32 bits
    EXPECT_TEXT(text, u"a");
    EXPECT_EQ(text.Capacity(), 31u);
}

TEST(UniStrErase, MustBeginBelowTheLength)
{
    UniStr text(L"abcdef");
    EXPECT_OUT_OF_RANGE(text.Erase(6, 1));
    EXPECT_OUT_OF_RANGE(text.Erase(6, 0));
    EXPECT_OUT_OF_RANGE(text.Erase(kNpos, 1));
    EXPECT_OUT_OF_RANGE(text.Erase(text.End()));
    EXPECT_OUT_OF_RANGE(UniStr().Erase(0, 0));
    EXPECT_TEXT(text, u"abcdef");
}

TEST(UniStrErase, ThroughIterators)
{
    UniStr text(L"abcdef");
    Iterator it = text.Erase(text.Begin() + 2);
    EXPECT_TEXT(text, u"abdef");
    EXPECT_EQ(it - text.Begin(), 2);
    it = text.Erase(text.Begin() + 1, text.Begin() + 3);
    EXPECT_TEXT(text, u"aef");
    EXPECT_EQ(it - text.Begin(), 1);
    it = text.Erase(text.End(), text.End());
    EXPECT_EQ(it, text.End());
    it = text.Erase(text.Begin(), text.End());
    EXPECT_TEXT(text, u"");
    EXPECT_EQ(it, text.End());
}

TEST(UniStrResize, CutsOrFills)
{
    UniStr text(L"abcdef");
    EXPECT_EQ(&text.Resize(8, L'x'), &text);
    EXPECT_TEXT(text, u"abcdefxx");
    text.Resize(3, L'x');
    EXPECT_TEXT(text, u"abc");
    text.Resize(3, L'x');
    EXPECT_TEXT(text, u"abc");
    text.Resize(0, L'x');
    EXPECT_TEXT(text, u"");
    EXPECT_EQ(text.Capacity(), 31u);
}

TEST(UniStrResize, GrowsByTheMissingUnitsRoundedAnd32)
{
    const struct {
        uint32_t n;
        uint32_t capacity;
    } rows[] = {{31, 31},
                {32, 32 + 8 + 32 - 1},
                {39, 32 + 8 + 32 - 1},
                {40, 32 + 16 + 32 - 1},
                {47, 32 + 16 + 32 - 1},
                {48, 32 + 24 + 32 - 1},
                {100, 32 + 72 + 32 - 1}};
    for (const auto& row : rows) {
        UniStr text(L"abc");
        text.Resize(row.n, L'x');
        EXPECT_EQ(text.Capacity(), row.capacity) << row.n;
        EXPECT_TEXT(text, u"abc" + std::u16string(row.n - 3, u'x'));
    }
}

TEST(UniStrSubstring, UnitsOrTheRest)
{
    const UniStr text(L"abcdef");
    EXPECT_TEXT(text.Substring(2, 3), u"cde");
    EXPECT_TEXT(text.Substring(2, 4), u"cdef");
    EXPECT_TEXT(text.Substring(2, kNpos), u"cdef");
    EXPECT_TEXT(text.Substring(2, 0), u"cdef");
    EXPECT_TEXT(text.Substring(6, 0), u"");
    EXPECT_TEXT(text.Substring(6, kNpos), u"");
    EXPECT_EQ(text.Substring(2, 3).Capacity(), 31u);
    EXPECT_EQ(Filled(100).Substring(10, 40).Capacity(), 47u);
}

TEST(UniStrSubstring, MoreThanThereIsIsOutOfRange)
{
    const UniStr text(L"abcdef");
    EXPECT_OUT_OF_RANGE(text.Substring(2, 5));
    EXPECT_OUT_OF_RANGE(text.Substring(6, 1));
    EXPECT_OUT_OF_RANGE(text.Substring(7, 0));
    EXPECT_OUT_OF_RANGE(text.Substring(7, 1));
    EXPECT_OUT_OF_RANGE(text.Substring(7, kNpos));
    EXPECT_OUT_OF_RANGE(text.Substring(kNpos, kNpos));
    EXPECT_OUT_OF_RANGE(text.Substring(2, kNpos - 1));
}

TEST(UniStrSubstring, ANumberOfZeroStopsAtTheFirstZeroUnit)
{
    const UniStr text(L"ab\0cd", 5);
    EXPECT_TEXT(text.Substring(1, 0), u"b");
    EXPECT_TEXT(text.Substring(1, kNpos), (std::u16string_view(u"b\0cd", 4)));
}

TEST(UniStrConcatenation, TheLeftTextsFreshCapacityGrowsByTheRightText)
{
    EXPECT_TEXT(UniStr(L"ab") + UniStr(L"cd"), u"abcd");
    EXPECT_TEXT(UniStr(L"ab") + L"cd", u"abcd");
    EXPECT_TEXT(L"ab" + UniStr(L"cd"), u"abcd");
    EXPECT_TEXT(UniStr() + UniStr(), u"");
    EXPECT_TEXT(UniStr(L"a\0", 2) + UniStr(L"\0b", 2), (std::u16string_view(u"a\0\0b", 4)));
    UniStr reserved(L"ab");
    reserved.Reserve(1000);
    EXPECT_EQ((reserved + L"cd").Capacity(), 31u);
    EXPECT_EQ((Filled(31) + L"c").Capacity(), 71u);
    EXPECT_EQ((Filled(33) + Filled(20)).Capacity(), 48u + 24 + 32 - 1);
    EXPECT_EQ((L"a" + Filled(40)).Capacity(), 32u + 40 + 32 - 1);
}

TEST(UniStrIterator, HasTheTypesOfARandomAccessIterator)
{
    static_assert(
        std::is_same_v<std::iterator_traits<Iterator>::iterator_category, std::random_access_iterator_tag>);
    static_assert(std::is_same_v<std::iterator_traits<Iterator>::reference, wchar_t&>);
    static_assert(std::is_same_v<std::iterator_traits<Iterator>::pointer, wchar_t*>);
    static_assert(std::is_same_v<std::iterator_traits<Iterator>::value_type, wchar_t>);
    static_assert(std::is_same_v<std::iterator_traits<Iterator>::difference_type, ptrdiff_t>);
    static_assert(std::is_same_v<std::iterator_traits<ConstIterator>::reference, const wchar_t&>);
    static_assert(std::is_same_v<std::iterator_traits<ConstIterator>::pointer, const wchar_t*>);
    static_assert(std::is_convertible_v<Iterator, ConstIterator> &&
                  !std::is_convertible_v<ConstIterator, Iterator>);
    static_assert(std::is_trivially_copyable_v<Iterator> && std::is_trivially_copyable_v<ConstIterator>);
    static_assert(!std::is_convertible_v<wchar_t*, ConstIterator> && !std::is_convertible_v<int, Iterator>);
    EXPECT_EQ(Iterator(), Iterator());
}

template <typename It>
void StepThrough(It begin, It end)
{
    It it = begin;
    EXPECT_EQ(*it, L'a');
    EXPECT_EQ(*it++, L'a');
    EXPECT_EQ(*it, L'b');
    EXPECT_EQ(*++it, L'c');
    EXPECT_EQ(*it--, L'c');
    EXPECT_EQ(*--it, L'a');
    EXPECT_EQ(*(it += 3), L'd');
    EXPECT_EQ(*(it -= 2), L'b');
    EXPECT_EQ(*(it + 1), L'c');
    EXPECT_EQ(*(1 + it), L'c');
    EXPECT_EQ(*(it - 1), L'a');
    EXPECT_EQ(it[2], L'd');
    EXPECT_EQ(*it.operator->(), L'b');
    EXPECT_EQ(end - begin, 4);
    EXPECT_EQ(begin - end, -4);
    EXPECT_TRUE(begin == begin && !(begin == end) && begin != end && !(begin != begin));
    EXPECT_TRUE(begin < end && !(end < begin) && !(begin < begin));
    EXPECT_TRUE(begin <= end && begin <= begin && !(end <= begin));
    EXPECT_TRUE(end > begin && !(begin > end) && !(begin > begin));
    EXPECT_TRUE(end >= begin && begin >= begin && !(begin >= end));
}

TEST(UniStrIterator, StepsAndCompares)
{
    UniStr text(L"abcd");
    const UniStr& constant = text;
    StepThrough(text.Begin(), text.End());
    StepThrough(constant.Begin(), constant.End());
}

TEST(UniStrIterator, MutableAndConstMix)
{
    UniStr text(L"abcd");
    const UniStr& constant = text;
    ConstIterator it = text.Begin();
    it = text.Begin() + 1;
    EXPECT_TRUE(it > text.Begin() && text.Begin() < it && text.Begin() != it);
    EXPECT_EQ(constant.Begin(), text.Begin());
    EXPECT_EQ(text.End() - constant.Begin(), 4);
    EXPECT_EQ(constant.End() - text.Begin(), 4);
    static_assert(std::is_same_v<decltype(text.Begin() + 1), Iterator>);
    static_assert(std::is_same_v<decltype(1 + text.Begin()), Iterator>);
    static_assert(std::is_same_v<decltype(text.Begin()++), Iterator>);
    static_assert(std::is_same_v<decltype(constant.Begin() + 1), ConstIterator>);
}

TEST(UniStrIterator, ServesTheStandardAlgorithms)
{
    UniStr text(L"dbca");
    std::sort(text.Begin(), text.End());
    EXPECT_TEXT(text, u"abcd");
    std::reverse(text.Begin(), text.End());
    EXPECT_TEXT(text, u"dcba");
    const UniStr& constant = text;
    EXPECT_EQ(std::find(constant.Begin(), constant.End(), L'b') - constant.Begin(), 2);
    EXPECT_EQ(std::distance(text.Begin(), text.End()), 4);
    EXPECT_EQ(std::u16string(std::reverse_iterator<ConstIterator>(constant.End()),
                             std::reverse_iterator<ConstIterator>(constant.Begin())),
              u"abcd");
    std::vector<wchar_t> units;
    for (const wchar_t unit : constant) units.push_back(unit);
    for (wchar_t& unit : text) unit = static_cast<wchar_t>(unit + 1);
    EXPECT_EQ(units, (std::vector<wchar_t>{L'd', L'c', L'b', L'a'}));
    EXPECT_TEXT(text, u"edcb");
}
