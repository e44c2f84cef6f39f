// Comparison, search, code points and case mapping of UniStr.
#include "text/unistr_support.h"

#include <string>
#include <unicode/ustring.h>
#include <vector>

using namespace unistr_test;
using vorn::UniStr;

namespace {

UniStr Str(std::u16string_view text)
{
    return UniStr(text);
}

// Checks the six operators in all three forms for a pair whose order is known.
void ExpectOrder(const UniStr& a, const UniStr& b, int order)
{
    EXPECT_EQ(a == b, order == 0);
    EXPECT_EQ(a != b, order != 0);
    EXPECT_EQ(a < b, order < 0);
    EXPECT_EQ(a <= b, order <= 0);
    EXPECT_EQ(a > b, order > 0);
    EXPECT_EQ(a >= b, order >= 0);
    EXPECT_EQ(a == b.S_Str(), order == 0);
    EXPECT_EQ(a != b.S_Str(), order != 0);
    EXPECT_EQ(a < b.S_Str(), order < 0);
    EXPECT_EQ(a <= b.S_Str(), order <= 0);
    EXPECT_EQ(a > b.S_Str(), order > 0);
    EXPECT_EQ(a >= b.S_Str(), order >= 0);
    EXPECT_EQ(a.S_Str() == b, order == 0);
    EXPECT_EQ(a.S_Str() != b, order != 0);
    EXPECT_EQ(a.S_Str() < b, order < 0);
    EXPECT_EQ(a.S_Str() <= b, order <= 0);
    EXPECT_EQ(a.S_Str() > b, order > 0);
    EXPECT_EQ(a.S_Str() >= b, order >= 0);
}

int Sign(int value)
{
    return (value > 0) - (value < 0);
}

}  // namespace

TEST(UniStrCompare, CaseDecidesOnlyWhereAskedFor)
{
    const UniStr a(L"a");
    for (const bool codeUnitOrder : {false, true}) {
        EXPECT_LT(a.Compare(L"B", false, codeUnitOrder), 0);
        EXPECT_GT(a.Compare(L"B", true, codeUnitOrder), 0);
        EXPECT_LT(a.Compare(UniStr(L"B"), false, codeUnitOrder), 0);
        EXPECT_GT(a.Compare(UniStr(L"B"), true, codeUnitOrder), 0);
        EXPECT_EQ(a.Compare(L"A", false, codeUnitOrder), 0);
        EXPECT_NE(a.Compare(L"A", true, codeUnitOrder), 0);
        EXPECT_EQ(a.Compare(L"a", true, codeUnitOrder), 0);
    }
}

TEST(UniStrCompare, GivesTheDifferenceOfUnitsThatIcuGives)
{
    EXPECT_EQ(UniStr(L"a").Compare(L"B", true, true), 0x61 - 0x42);
    EXPECT_EQ(UniStr(L"xyzb").Compare(L"xyzA", true, false), 0x62 - 0x41);
    EXPECT_EQ(Str(u"\u4e00").Compare(UniStr(L"a"), true, true), 0x4e00 - 0x61);
    EXPECT_EQ(UniStr(L"a").Compare(L"C", false, true), 0x61 - 0x63);
}

TEST(UniStrCompare, CodeUnitAndCodePointOrderDifferForSupplementaryCharacters)
{
    const UniStr unit = Str(u"\ufffd");
    const UniStr pair = Str(u"\U00010000");
    for (const bool caseSensitive : {false, true}) {
        EXPECT_GT(unit.Compare(pair, caseSensitive, true), 0);
        EXPECT_LT(unit.Compare(pair, caseSensitive, false), 0);
        EXPECT_LT(pair.Compare(unit.S_Str(), caseSensitive, true), 0);
        EXPECT_GT(pair.Compare(unit.S_Str(), caseSensitive, false), 0);
    }
}

TEST(UniStrCompare, FoldsCaseFully)
{
    EXPECT_EQ(Str(u"stra\u00dfe").Compare(UniStr(L"STRASSE"), false, true), 0);
    EXPECT_EQ(Str(u"\u03a3").Compare(Str(u"\u03c2"), false, false), 0);
    // The default folding, not the one for Turkic languages.
    EXPECT_EQ(UniStr(L"I").Compare(L"i", false, true), 0);
    EXPECT_NE(UniStr(L"I").Compare(Str(u"\u0131"), false, true), 0);
}

TEST(UniStrCompare, APrefixComesFirst)
{
    EXPECT_LT(UniStr(L"ab").Compare(L"abc", true, true), 0);
    EXPECT_GT(UniStr(L"abc").Compare(L"ab", true, true), 0);
    EXPECT_LT(UniStr().Compare(L"a", true, true), 0);
    EXPECT_GT(UniStr(L"a").Compare(L"", true, true), 0);
    EXPECT_EQ(UniStr().Compare(L"", true, true), 0);
    EXPECT_EQ(UniStr().Compare(UniStr(), false, false), 0);
    EXPECT_EQ(UniStr().Compare(static_cast<const wchar_t*>(nullptr), true, true), 0);
}

TEST(UniStrCompare, TakesEmbeddedZerosOfStringsIntoAccount)
{
    const UniStr text(L"a\0b", 3);
    EXPECT_GT(text.Compare(L"a", true, true), 0);
    EXPECT_LT(text.Compare(UniStr(L"a\0c", 3), true, true), 0);
    EXPECT_EQ(text.Compare(UniStr(L"A\0B", 3), false, true), 0);
}

TEST(UniStrOperators, CompareCaseSensitivelyInCodeUnitOrder)
{
    ExpectOrder(UniStr(L"abc"), UniStr(L"abc"), 0);
    ExpectOrder(UniStr(L"abc"), UniStr(L"abd"), -1);
    ExpectOrder(UniStr(L"abd"), UniStr(L"abc"), 1);
    ExpectOrder(UniStr(L"ab"), UniStr(L"abc"), -1);
    ExpectOrder(UniStr(L"a"), UniStr(L"B"), 1);
    ExpectOrder(UniStr(), UniStr(), 0);
    ExpectOrder(UniStr(), UniStr(L"a"), -1);
    ExpectOrder(Str(u"\ufffd"), Str(u"\U00010000"), 1);
    ExpectOrder(Str(u"\ue000"), Str(u"\U0010ffff"), 1);
}

TEST(UniStrOperators, CompareWholeTexts)
{
    const UniStr text(L"a\0b", 3);
    EXPECT_NE(text, UniStr(L"a"));
    EXPECT_NE(text, UniStr(L"a\0c", 3));
    EXPECT_EQ(text, UniStr(L"a\0b", 3));
    EXPECT_NE(text, L"a");
    EXPECT_GT(text, L"a");
    EXPECT_LT(L"a", text);
    EXPECT_TRUE(UniStr(L"abc") == "abc");
}

TEST(UniStrOperators, AgreeWithCompareOnEveryPairOfAFewUnits)
{
    const char16_t units[] = {u'A', u'b', 0xD7FF, 0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFFFF};
    std::vector<UniStr> texts{UniStr()};
    for (const char16_t first : units) {
        texts.push_back(Str(std::u16string(1, first)));
        for (const char16_t second : units) texts.push_back(Str(std::u16string{first, second}));
    }
    for (const UniStr& a : texts) {
        for (const UniStr& b : texts) {
            const int byUnits = Sign(Units(a).compare(Units(b)));
            ASSERT_EQ(Sign(a.Compare(b, true, true)), byUnits);
            ExpectOrder(a, b, byUnits);
        }
    }
}

TEST(UniStrFind, TheFirstOccurrenceOfAText)
{
    const UniStr text(L"abcabcabd");
    EXPECT_EQ(text.Find(UniStr(L"abd")), 6u);
    EXPECT_EQ(text.Find(UniStr(L"bca")), 1u);
    EXPECT_EQ(text.Find(UniStr(L"abe")), kNpos);
    EXPECT_EQ(text.Find(UniStr(L"abcabcabdx")), kNpos);
    EXPECT_EQ(text.Find(L"cab", 3), 2u);
    EXPECT_EQ(text.Find(L"abdxyz", 3), 6u);
    EXPECT_EQ(text.Find(L"abcabcabd", 9), 0u);
}

TEST(UniStrFind, ANumberOfZeroMeansZeroTerminated)
{
    const UniStr text(L"abcabd");
    EXPECT_EQ(text.Find(L"abd", 0), 3u);
    EXPECT_EQ(text.RFind(L"ab", 0), 3u);
    EXPECT_EQ(text.Find(L"abx", 0), kNpos);
}

TEST(UniStrFind, AnEmptyTextIsFoundAtTheBeginningFromBehindToo)
{
    const UniStr text(L"abc");
    EXPECT_EQ(text.Find(UniStr()), 0u);
    EXPECT_EQ(text.Find(L"", 0), 0u);
    EXPECT_EQ(UniStr().Find(UniStr()), 0u);
    EXPECT_EQ(text.RFind(UniStr()), 0u);
    EXPECT_EQ(text.RFind(L"", 0), 0u);
}

TEST(UniStrFind, MatchesWholeCharactersOnly)
{
    const UniStr text = Str(u"\U0001F600\U0001F601");  // D83D DE00 D83D DE01
    EXPECT_EQ(text.Find(Str(u"\xDE00")), kNpos);
    EXPECT_EQ(text.Find(Str(u"\xD83D")), kNpos);
    EXPECT_EQ(text.RFind(Str(u"\xD83D")), kNpos);
    EXPECT_EQ(text.Find(Str(u"\U0001F601")), 2u);
    EXPECT_EQ(text.Find(static_cast<wchar_t>(0xDE00)), 1u);  // units are looked for as such
    EXPECT_EQ(text.RFind(static_cast<wchar_t>(0xD83D)), 2u);
}

TEST(UniStrFind, EmbeddedZeros)
{
    const UniStr text(L"a\0b\0c", 5);
    EXPECT_EQ(text.Find(UniStr(L"\0c", 2)), 3u);
    EXPECT_EQ(text.Find(L"\0b", 2), 1u);
    EXPECT_EQ(text.Find(wchar_t{0}), 1u);
    EXPECT_EQ(text.RFind(wchar_t{0}), 3u);
}

TEST(UniStrFind, AUnitOrTheTerminator)
{
    const UniStr text(L"abca");
    EXPECT_EQ(text.Find(L'a'), 0u);
    EXPECT_EQ(text.Find(L'c'), 2u);
    EXPECT_EQ(text.Find(L'x'), kNpos);
    EXPECT_EQ(UniStr(L"abc").Find(0), 3u);
    EXPECT_EQ(UniStr().Find(0), 0u);
}

TEST(UniStrFind, AUnitInEveryPlaceOfTextsOfEveryLength)
{
    for (uint32_t length = 1; length <= 70; ++length) {
        for (uint32_t at = 0; at < length; ++at) {
            UniStr text = Filled(length, L'.');
            text[at] = L'#';
            ASSERT_EQ(text.Find(L'#'), at);
            ASSERT_EQ(text.RFind(L'#'), at);
            ASSERT_EQ(text.Find(L"#", 1), at);
            ASSERT_EQ(text.FindFirstOf(L"#"), at);
            ASSERT_EQ(text.FindLastOf(L"#"), at);
            ASSERT_EQ(text.FindFirstNotOf(L"."), at);
        }
    }
}

TEST(UniStrRFind, TheLastOccurrenceOfATextOrAUnit)
{
    const UniStr text(L"abcabcab");
    EXPECT_EQ(text.RFind(UniStr(L"abc")), 3u);
    EXPECT_EQ(text.RFind(UniStr(L"ab")), 6u);
    EXPECT_EQ(text.RFind(UniStr(L"x")), kNpos);
    EXPECT_EQ(text.RFind(L"bcxyz", 2), 4u);
    EXPECT_EQ(text.RFind(L'c'), 5u);
    EXPECT_EQ(text.RFind(L'a'), 6u);
    EXPECT_EQ(text.RFind(L'x'), kNpos);
    EXPECT_EQ(UniStr().RFind(L'x'), kNpos);
}

TEST(UniStrRFind, TheTerminatorTakesNoPart)
{
    EXPECT_EQ(UniStr(L"abc").RFind(0), kNpos);
    EXPECT_EQ(UniStr().RFind(0), kNpos);
}

TEST(UniStrFind, MoreUnitsThanTheTextHasAreNotRead)
{
    EXPECT_EQ(UniStr(L"abc").Find(L"abc", kNpos), kNpos);
    EXPECT_EQ(UniStr(L"abc").RFind(L"abc", 0x80000000), kNpos);
}

TEST(UniStrFindOf, MembersOfASet)
{
    const UniStr text(L"hello world");
    EXPECT_EQ(text.FindFirstOf(L"ol"), 2u);
    EXPECT_EQ(text.FindFirstOf(L"xyz"), kNpos);
    EXPECT_EQ(text.FindFirstOf(L""), kNpos);
    EXPECT_EQ(text.FindFirstNotOf(L"hel"), 4u);
    EXPECT_EQ(text.FindFirstNotOf(L"helo wrd"), kNpos);
    EXPECT_EQ(text.FindFirstNotOf(L""), 0u);
    EXPECT_EQ(text.FindLastOf(L"ol"), 9u);
    EXPECT_EQ(text.FindLastOf(L"xyz"), kNpos);
    EXPECT_EQ(text.FindLastOf(L""), kNpos);
}

TEST(UniStrFindOf, NothingInAnEmptyString)
{
    EXPECT_EQ(UniStr().FindFirstOf(L"a"), kNpos);
    EXPECT_EQ(UniStr().FindFirstNotOf(L"a"), kNpos);
    EXPECT_EQ(UniStr().FindLastOf(L"a"), kNpos);
    EXPECT_EQ(UniStr().FindLastNotOf(L"a"), kNpos);
}

TEST(UniStrFindOf, AZeroUnitOfTheTextIsInNoSet)
{
    const UniStr text(L"a\0a", 3);
    EXPECT_EQ(text.FindFirstNotOf(L"a"), 1u);
    EXPECT_EQ(text.FindLastOf(L"a"), 2u);
}

TEST(UniStrFindOf, LastNotOfIsTheIndexBeforeTheFirstMember)
{
    const UniStr text(L"abc");
    EXPECT_EQ(text.FindLastNotOf(L"b"), 0u);
    EXPECT_EQ(text.FindLastNotOf(L"c"), 1u);
    EXPECT_EQ(text.FindLastNotOf(L"x"), 2u);
    EXPECT_EQ(text.FindLastNotOf(L""), 2u);
    EXPECT_EQ(text.FindLastNotOf(L"a"), kNpos);
    EXPECT_EQ(UniStr(L"abcb").FindLastNotOf(L"b"), 0u);
}

TEST(UniStrCountCodePoints, PairsAndLoneSurrogatesCountOne)
{
    EXPECT_EQ(UniStr().CountCodePoints(), 0u);
    EXPECT_EQ(UniStr(L"abc").CountCodePoints(), 3u);
    EXPECT_EQ(Str(u"a\U0001F600b").CountCodePoints(), 3u);
    EXPECT_EQ(Str(u"\xD800").CountCodePoints(), 1u);
    EXPECT_EQ(Str(u"\xDC00\xD800").CountCodePoints(), 2u);
    EXPECT_EQ(Str(u"\xD800\xD800\xDC00\xDC00").CountCodePoints(), 3u);
    EXPECT_EQ(UniStr(L"a\0b", 3).CountCodePoints(), 3u);
}

TEST(UniStrCase, MapsTheText)
{
    UniStr text(L"Hello, World 1");
    text.ToUpper();
    EXPECT_TEXT(text, u"HELLO, WORLD 1");
    text.ToLower();
    EXPECT_TEXT(text, u"hello, world 1");
}

TEST(UniStrCase, MayChangeTheLength)
{
    UniStr text = Str(u"stra\u00dfe");
    text.ToUpper();
    EXPECT_TEXT(text, u"STRASSE");
    text = Str(u"\u0130");  // i with a dot above, two units in lower case
    text.ToLower();
    EXPECT_TEXT(text, u"i\u0307");
}

TEST(UniStrCase, MapsTheFinalSigmaAndSupplementaryLetters)
{
    UniStr text = Str(u"\u039f\u03a3");
    text.ToLower();
    EXPECT_TEXT(text, u"\u03bf\u03c2");
    text = Str(u"\U00010428");
    text.ToUpper();
    EXPECT_TEXT(text, u"\U00010400");
}

TEST(UniStrCase, TheCapacityFollowsFromTheMappedLength)
{
    const struct {
        uint32_t length;
        uint32_t capacity;
    } rows[] = {{0, 15}, {1, 15}, {7, 15}, {8, 23}, {15, 23}, {16, 31}, {31, 39}, {32, 47}, {100, 111}};
    for (const auto& row : rows) {
        UniStr upper = Filled(row.length);
        upper.Reserve(1000);
        upper.ToUpper();
        EXPECT_TEXT(upper, std::u16string(row.length, u'A'));
        EXPECT_EQ(upper.Capacity(), row.capacity) << row.length;
        UniStr lower = Filled(row.length, L'A');
        lower.ToLower();
        EXPECT_TEXT(lower, std::u16string(row.length, u'a'));
        EXPECT_EQ(lower.Capacity(), row.capacity) << row.length;
    }
}

TEST(UniStrCase, TheTextEndsAtItsFirstZeroUnit)
{
    UniStr text(L"ab\0cd", 5);
    text.ToUpper();
    EXPECT_TEXT(text, u"AB");
}

TEST(UniStrCase, AStringWithASmallBufferGrowsOnByTheSameRules)
{
    UniStr text(L"ab");
    text.ToUpper();
    ASSERT_EQ(text.Capacity(), 15u);
    text += L"0123456789abc";  // 15 units fit
    EXPECT_EQ(text.Capacity(), 15u);
    text += L'x';
    EXPECT_EQ(text.Capacity(), 47u);
    EXPECT_TEXT(text, u"AB0123456789abcx");
}

TEST(UniStrCompare, IsIcusOwnWhereverTheFirstDifferenceLies)
{
    const char16_t units[] = {u'a', 0xD83D, 0xDE00, 0xDE01, 0xE000};
    for (uint32_t common = 0; common <= 20; ++common) {
        for (const char16_t last : {u'a', char16_t{0xD83D}}) {
            std::u16string prefix(common, u'p');
            if (common != 0) prefix.back() = last;
            for (const char16_t first : units) {
                for (const char16_t second : units) {
                    for (const char16_t after : {u'x', char16_t{0xDC00}}) {
                        const std::u16string a = prefix + first + after;
                        const std::u16string b = prefix + second;
                        for (const bool byCodePoints : {false, true}) {
                            const int expected =
                                u_strCompare(a.data(), static_cast<int32_t>(a.size()), b.data(),
                                             static_cast<int32_t>(b.size()), byCodePoints);
                            ASSERT_EQ(Str(a).Compare(Str(b), true, !byCodePoints), expected);
                            ASSERT_EQ(Str(a).Compare(Wide(b.c_str()), true, !byCodePoints), expected);
                        }
                    }
                }
            }
        }
    }
}

TEST(UniStrFind, IsIcusOwnForTextsOfHalvesOfPairs)
{
    const char16_t units[] = {u'a', u'b', 0xD83D, 0xDE00};
    uint32_t number = 1;
    const auto next = [&number, &units] {
        number = number * 1664525 + 1013904223;
        return units[number >> 30];
    };
    for (int round = 0; round < 20000; ++round) {
        std::u16string text;
        std::u16string part;
        for (int n = round % 37; n != 0; --n) text.push_back(next());
        for (int n = round % 4; n != 0; --n) part.push_back(next());
        const int32_t length = static_cast<int32_t>(text.size());
        const int32_t partLength = static_cast<int32_t>(part.size());
        const UChar* const first = u_strFindFirst(text.data(), length, part.data(), partLength);
        const UChar* const last = u_strFindLast(text.data(), length, part.data(), partLength);
        ASSERT_EQ(Str(text).Find(Str(part)), first == nullptr ? kNpos : first - text.data());
        ASSERT_EQ(Str(text).Find(Wide(part.c_str()), 0), first == nullptr ? kNpos : first - text.data());
        ASSERT_EQ(Str(text).RFind(Str(part)), last == nullptr ? kNpos : last - text.data());
    }
}
