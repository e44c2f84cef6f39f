#include "file/wildcard.h"

#include "file/unit_text.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using Text = vorn_test::UnitText;

namespace {

bool Matches(const Text& pattern, const Text& name)
{
    return vorn::detail::WildcardMatches(pattern.data(), pattern.size(), name.data(), name.size());
}

// The definition, word for word: the set of pattern positions that can be reached after each unit.
bool ModelMatches(const Text& pattern, const Text& name)
{
    if (pattern.empty() || name.empty()) return false;
    std::vector<bool> reached(pattern.size() + 1, false);
    const auto passStars = [&] {
        for (size_t i = 0; i < pattern.size(); ++i) {
            if (reached[i] && pattern[i] == L'*') reached[i + 1] = true;
        }
    };
    reached[0] = true;
    passStars();
    for (const wchar_t unit : name) {
        std::vector<bool> next(pattern.size() + 1, false);
        for (size_t i = 0; i < pattern.size(); ++i) {
            if (!reached[i]) continue;
            if (pattern[i] == L'*') next[i] = true;
            if (pattern[i] == L'?' || (pattern[i] == unit && pattern[i] != L'*')) next[i + 1] = true;
        }
        reached = next;
        passStars();
    }
    return reached[pattern.size()];
}

// Every text of up to `longest` units over the alphabet, the empty one included.
std::vector<Text> AllTexts(const Text& alphabet, size_t longest)
{
    std::vector<Text> texts{Text()};
    for (size_t begin = 0, length = 0; length < longest; ++length) {
        const size_t end = texts.size();
        for (; begin < end; ++begin) {
            for (const wchar_t unit : alphabet) texts.push_back(texts[begin] + unit);
        }
    }
    return texts;
}

}  // namespace

TEST(WildcardMatches, AnEmptyPatternAndAnEmptyNameMatchNothing)
{
    EXPECT_FALSE(Matches(L"", L""));
    EXPECT_FALSE(Matches(L"*", L""));
    EXPECT_FALSE(Matches(L"**", L""));
    EXPECT_FALSE(Matches(L"", L"a"));
}

TEST(WildcardMatches, AStarMatchesAnyRunTheEmptyOneIncluded)
{
    EXPECT_TRUE(Matches(L"*", L"a"));
    EXPECT_TRUE(Matches(L"*", L"any name"));
    EXPECT_TRUE(Matches(L"a*", L"a"));
    EXPECT_TRUE(Matches(L"a*b", L"ab"));
    EXPECT_TRUE(Matches(L"a*b", L"axxb"));
    EXPECT_TRUE(Matches(L"*a*", L"banana"));
    EXPECT_FALSE(Matches(L"a*b", L"abc"));
}

TEST(WildcardMatches, AQuestionMarkMatchesExactlyOneUnit)
{
    EXPECT_TRUE(Matches(L"?", L"a"));
    EXPECT_FALSE(Matches(L"?", L"ab"));
    EXPECT_FALSE(Matches(L"a?", L"a"));
    EXPECT_TRUE(Matches(L"a?c", L"abc"));
    EXPECT_FALSE(Matches(L"?", L"\xD83D\xDE00"));
    EXPECT_TRUE(Matches(L"??", L"\xD83D\xDE00"));
}

TEST(WildcardMatches, CaseMatters)
{
    EXPECT_TRUE(Matches(L"Name", L"Name"));
    EXPECT_FALSE(Matches(L"Name", L"name"));
    EXPECT_FALSE(Matches(L"*:$DATA", L"name:$data"));
}

TEST(WildcardMatches, TheWholeNameMustMatch)
{
    EXPECT_FALSE(Matches(L"name", L"names"));
    EXPECT_FALSE(Matches(L"names", L"name"));
    EXPECT_TRUE(Matches(L"name*:$DATA", L"names:$DATA"));
}

TEST(WildcardMatches, AfterAMismatchTheStarTakesOneUnitMore)
{
    EXPECT_TRUE(Matches(L"*ab", L"aab"));
    EXPECT_TRUE(Matches(L"*aab", L"aaab"));
    EXPECT_TRUE(Matches(L"a*bc*d", L"abbcbcxd"));
    EXPECT_FALSE(Matches(L"a*bc*d", L"abbcbcx"));
}

TEST(WildcardMatches, StarsAndQuestionMarksInANameAreOrdinaryUnits)
{
    EXPECT_TRUE(Matches(L"a*", L"a*b"));
    EXPECT_FALSE(Matches(L"ab", L"a*"));
    EXPECT_FALSE(Matches(L"ab", L"a?"));
}

TEST(WildcardMatches, ReadsNothingBehindTheLengthsGiven)
{
    // Exactly sized heap blocks: the address sanitizer sees a unit too many.
    const std::vector<wchar_t> pattern{L'a', L'*', L'*'};
    const std::vector<wchar_t> name{L'a', L'b', L'c'};
    EXPECT_TRUE(vorn::detail::WildcardMatches(pattern.data(), pattern.size(), name.data(), name.size()));
    EXPECT_FALSE(vorn::detail::WildcardMatches(pattern.data(), 1, name.data(), name.size()));
}

TEST(WildcardMatches, AgreesWithTheModelOnAllShortPatternsAndNames)
{
    const std::vector<Text> patterns = AllTexts(L"ab*?", 6);
    const std::vector<Text> names = AllTexts(L"ab", 6);
    size_t compared = 0;
    for (const Text& pattern : patterns) {
        for (const Text& name : names) {
            ASSERT_EQ(Matches(pattern, name), ModelMatches(pattern, name))
                << testing::PrintToString(pattern) << " against " << testing::PrintToString(name);
            ++compared;
        }
    }
    EXPECT_EQ(compared, 5461u * 127u);
}

TEST(WildcardMatches, ManyStarsAgainstALongNameTakeNoExponentialTime)
{
    // Each star may take many units before the next part of the pattern fits, and nothing fits in the end.
    Text pattern;
    for (int i = 0; i < 500; ++i) pattern += L"*a";
    pattern += L"*" + Text(200, L'a') + L"b";
    const Text name(30000, L'a');
    // Some 6 million steps; with a second try for each of 500 stars this would never return.
    EXPECT_FALSE(Matches(pattern, name));
}
