#include <vorn/vorn.h>

#include "support/guard_buffer.h"
#include "text/unit_string.h"

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <unicode/ustdio.h>
#include <unicode/ustring.h>

using vorn_test::GuardBuffer;

namespace {

using String = vorn_test::UnitString;

// Text flush against an inaccessible page: at its end, so that nothing behind the terminator may be read.
class Guarded {
public:
    explicit Guarded(const String& text, size_t roomBefore = 0)
        : buffer_((text.size() + 1 + roomBefore) * sizeof(wchar_t)), text_(buffer_.As<wchar_t>() + roomBefore)
    {
        std::memcpy(text_, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    }

    wchar_t* Text() const { return text_; }
    operator wchar_t*() const { return text_; }

private:
    GuardBuffer buffer_;
    wchar_t* text_;
};

// Text flush against an inaccessible page at its start.
class GuardedStart {
public:
    explicit GuardedStart(const String& text, size_t shift = 0)
        : buffer_(8192, GuardBuffer::Flush::kStart), text_(buffer_.As<wchar_t>() + shift)
    {
        for (size_t i = 0; i < 4096; ++i) buffer_.As<wchar_t>()[i] = 0x5C5C;
        std::memcpy(text_, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    }

    operator wchar_t*() const { return text_; }

private:
    GuardBuffer buffer_;
    wchar_t* text_;
};

String RandomString(std::mt19937& random, size_t length, unsigned kinds)
{
    String text;
    while (text.size() < length) text += static_cast<wchar_t>(1 + random() % kinds * 0x3F1);
    return text;
}

}  // namespace

TEST(StrLen, CountsTheUnitsBeforeTheTerminator)
{
    EXPECT_EQ(VornStrLen(L""), 0u);
    EXPECT_EQ(VornStrLen(L"abc"), 3u);
    EXPECT_EQ(VornStrLen(L"\xD83D\xDE00"), 2u);
}

TEST(StrLen, ReadsNothingOutsideTheText)
{
    for (size_t length = 0; length < 70; ++length) {
        EXPECT_EQ(VornStrLen(Guarded(String(length, L'x'))), length);
        for (size_t shift = 0; shift < 9; ++shift) {
            EXPECT_EQ(VornStrLen(GuardedStart(String(length, 0xFF00), shift)), length);
        }
    }
}

TEST(StrCpy, CopiesTheTerminatorAndNothingBehindIt)
{
    for (size_t length = 0; length < 300; ++length) {
        std::mt19937 random(static_cast<unsigned>(length));
        const String text = RandomString(random, length, 50);
        const Guarded source(text);
        String target(length + 40, L'?');
        EXPECT_EQ(VornStrCpy(target.data(), source), target.data());
        EXPECT_EQ(target.substr(0, length), text);
        EXPECT_EQ(target[length], 0);
        EXPECT_EQ(target.substr(length + 1), String(39, L'?'));
        const GuardBuffer exact((length + 1) * sizeof(wchar_t));
        EXPECT_EQ(String(VornStrCpy(exact.As<wchar_t>(), source)), text);
    }
}

TEST(StrNCpy, FillsUpWithZeros)
{
    wchar_t target[] = L"???????";
    EXPECT_EQ(VornStrNCpy(target, L"ab", 5), target);
    EXPECT_EQ(String(target, 7), String(L"ab\0\0\0??", 7));
}

TEST(StrNCpy, WritesNoTerminatorWhenTheTextIsCut)
{
    wchar_t target[] = L"?????";
    VornStrNCpy(target, L"abcdef", 3);
    EXPECT_EQ(String(target), L"abc??");
    VornStrNCpy(target, L"xyz", 3);
    EXPECT_EQ(String(target), L"xyz??");
    VornStrNCpy(target, L"q", 0);
    EXPECT_EQ(String(target), L"xyz??");
}

TEST(StrNCpy, ReadsNoMoreThanNUnitsOfATextWithoutTerminator)
{
    for (size_t length = 1; length < 40; ++length) {
        const GuardBuffer source(length * sizeof(wchar_t));
        for (size_t i = 0; i < length; ++i) source.As<wchar_t>()[i] = static_cast<wchar_t>(L'a' + i);
        String target(length + 2, L'?');
        VornStrNCpy(target.data(), source.As<wchar_t>(), static_cast<uint32_t>(length));
        EXPECT_EQ(target, String(source.As<wchar_t>(), length) + L"??");
    }
}

TEST(StrNCpy, AgreesWithTheModelForEveryLengthAndCount)
{
    for (size_t length = 0; length < 40; ++length) {
        for (size_t n = 0; n < 50; ++n) {
            const String text(length, L'x');
            String target(60, L'?');
            String expected = target;
            for (size_t i = 0; i < n; ++i) expected[i] = i < length ? L'x' : 0;
            VornStrNCpy(target.data(), Guarded(text), static_cast<uint32_t>(n));
            ASSERT_EQ(target, expected) << length << " " << n;
        }
    }
}

TEST(StrCat, AppendsWithTheTerminator)
{
    wchar_t target[8] = L"ab";
    EXPECT_EQ(VornStrCat(target, L"cd"), target);
    EXPECT_EQ(String(target), L"abcd");
    EXPECT_EQ(String(VornStrCat(target, L"")), L"abcd");
    wchar_t empty[4] = L"";
    EXPECT_EQ(String(VornStrCat(empty, L"xyz")), L"xyz");
}

TEST(StrNCat, AppendsAtMostNUnitsAndATerminator)
{
    String target = L"xy???????";
    target[2] = 0;
    EXPECT_EQ(VornStrNCat(target.data(), L"abcdef", 3), target.data());
    EXPECT_EQ(target, String(L"xyabc\0???", 9));
    VornStrNCat(target.data(), L"d", 100);
    EXPECT_EQ(target, String(L"xyabcd\0??", 9));
    VornStrNCat(target.data(), L"e", 0);
    EXPECT_EQ(target, String(L"xyabcd\0??", 9));
}

TEST(StrNCat, ReadsNoMoreThanNUnits)
{
    const GuardBuffer source(3 * sizeof(wchar_t));
    for (int i = 0; i < 3; ++i) source.As<wchar_t>()[i] = L'z';
    wchar_t target[8] = L"a";
    EXPECT_EQ(String(VornStrNCat(target, source.As<wchar_t>(), 3)), L"azzz");
}

TEST(StrCmp, GivesExactlyMinusOneZeroOrOne)
{
    EXPECT_EQ(VornStrCmp(L"a", L"b"), -1);
    EXPECT_EQ(VornStrCmp(L"b", L"a"), 1);
    EXPECT_EQ(VornStrCmp(L"", L""), 0);
    EXPECT_EQ(VornStrCmp(L"abc", L"abc"), 0);
    EXPECT_EQ(VornStrCmp(L"abc", L"ab"), 1);
    EXPECT_EQ(VornStrCmp(L"ab", L"abc"), -1);
    EXPECT_EQ(VornStrCmp(L"", L"z"), -1);
}

TEST(StrCmp, ComparesUnitsAsUnsignedNumbers)
{
    EXPECT_EQ(VornStrCmp(L"\xFFFF", L"A"), 1);
    EXPECT_EQ(VornStrCmp(L"\x7FFF", L"\x8000"), -1);
    EXPECT_EQ(VornStrCmp(L"\xD83D\xDE00", L"\xFF01"), -1);
}

TEST(StrCmp, FindsTheFirstDifferenceAtEveryPositionAndAlignment)
{
    for (size_t length = 0; length < 60; ++length) {
        for (size_t at = 0; at <= length; ++at) {
            String left(length, L'm');
            String right = left;
            if (at < length) right[at] = L'n';
            const Guarded a(left);
            const Guarded b(right, length % 5);
            const GuardedStart c(right, at % 9);
            ASSERT_EQ(VornStrCmp(a, b), at < length ? -1 : 0);
            ASSERT_EQ(VornStrCmp(b, a), at < length ? 1 : 0);
            ASSERT_EQ(VornStrCmp(a, c), at < length ? -1 : 0);
            ASSERT_EQ(VornStrCmp(c, b), 0);
        }
    }
}

TEST(StrCmp, IgnoresWhatLiesBehindTheTerminators)
{
    EXPECT_EQ(VornStrCmp(L"abc\0x", L"abc\0y"), 0);
}

TEST(StrICmp, GivesTheResultOfCaseFolding)
{
    EXPECT_EQ(VornStrICmp(L"HeLLo", L"hEllO"), 0);
    EXPECT_EQ(VornStrICmp(L"STRASSE",
                          L"stra\xDF"
                          L"e"),
              0);
    EXPECT_LT(VornStrICmp(L"A", L"b"), 0);
    EXPECT_GT(VornStrICmp(L"B", L"a"), 0);
    UErrorCode error = U_ZERO_ERROR;
    const int32_t expected = u_strCaseCompare(u"apple", -1, u"Zebra", -1, 0, &error);
    EXPECT_EQ(VornStrICmp(L"apple", L"Zebra"), expected);
    EXPECT_NE(expected, -1);  // so a result cut down to a sign would show
}

TEST(StrICmp, OrdersByCodeUnits)
{
    EXPECT_LT(VornStrICmp(L"\xD83D\xDE00", L"\xFF01"), 0);
}

TEST(StrChr, FindsTheFirstUnit)
{
    const wchar_t* const text = L"abcabc";
    EXPECT_EQ(VornStrChr(text, L'b'), text + 1);
    EXPECT_EQ(VornStrChr(text, L'z'), nullptr);
    EXPECT_EQ(VornStrChr(text, 0), text + 6);
    const wchar_t* const empty = L"";
    EXPECT_EQ(VornStrChr(empty, 0), empty);
    EXPECT_EQ(VornStrChr(empty, L'a'), nullptr);
}

TEST(StrRChr, FindsTheLastUnit)
{
    const wchar_t* const text = L"abcabc";
    EXPECT_EQ(VornStrRChr(text, L'b'), text + 4);
    EXPECT_EQ(VornStrRChr(text, L'z'), nullptr);
    EXPECT_EQ(VornStrRChr(text, 0), text + 6);
    const wchar_t* const empty = L"";
    EXPECT_EQ(VornStrRChr(empty, 0), empty);
    EXPECT_EQ(VornStrRChr(empty, L'a'), nullptr);
}

TEST(StrChr, IgnoresWhatLiesOutsideTheText)
{
    const wchar_t text[] = {L'x', L'x', L'a', L'b', 0, L'x', L'x'};
    EXPECT_EQ(VornStrChr(text + 2, L'x'), nullptr);
    EXPECT_EQ(VornStrRChr(text + 2, L'x'), nullptr);
    EXPECT_EQ(VornStrRChr(text + 2, 0), text + 4);
}

TEST(StrSearch, AgreesWithTheModelForRandomTexts)
{
    std::mt19937 random(9);
    for (int round = 0; round < 3000; ++round) {
        const String text = RandomString(random, random() % 90, 6);
        const Guarded guarded(text, random() % 4);
        const GuardedStart start(text, random() % 9);
        const wchar_t c = static_cast<wchar_t>(1 + random() % 7 * 0x3F1);
        const String set = RandomString(random, random() % 14, 7);
        const String sub = random() % 2 && text.size() > 4 ? text.substr(random() % 4, random() % text.size())
                                                           : RandomString(random, random() % 4, 6);
        for (wchar_t* s : {static_cast<wchar_t*>(guarded), static_cast<wchar_t*>(start)}) {
            const auto pointer = [&](size_t at) { return at == String::npos ? nullptr : s + at; };
            ASSERT_EQ(VornStrChr(s, c), pointer(text.find(c)));
            ASSERT_EQ(VornStrRChr(s, c), pointer(text.rfind(c)));
            ASSERT_EQ(VornStrStr(s, Guarded(sub)), pointer(text.find(sub)));
            const size_t inside = text.find_first_not_of(set);
            ASSERT_EQ(VornStrSpn(s, Guarded(set)), inside == String::npos ? text.size() : inside);
            const size_t outside = text.find_first_of(set);
            ASSERT_EQ(VornStrCSpn(s, Guarded(set)), outside == String::npos ? text.size() : outside);
        }
    }
}

TEST(StrStr, FindsAnEmptyTextAtTheStart)
{
    const wchar_t* const text = L"abc";
    EXPECT_EQ(VornStrStr(text, L""), text);
    const wchar_t* const empty = L"";
    EXPECT_EQ(VornStrStr(empty, L""), empty);
    EXPECT_EQ(VornStrStr(L"", L"a"), nullptr);
}

TEST(StrStr, FindsTheFirstOccurrence)
{
    const wchar_t* const text = L"ababac";
    EXPECT_EQ(VornStrStr(text, L"abac"), text + 2);
    EXPECT_EQ(VornStrStr(text, L"c"), text + 5);
    EXPECT_EQ(VornStrStr(text, L"acx"), nullptr);
}

TEST(StrSpn, MeasuresTheInitialRunInsideTheSet)
{
    EXPECT_EQ(VornStrSpn(L"aabbc", L"ab"), 4u);
    EXPECT_EQ(VornStrSpn(L"abc", L""), 0u);
    EXPECT_EQ(VornStrSpn(L"", L"abc"), 0u);
    EXPECT_EQ(VornStrSpn(L"abc", L"cba"), 3u);
}

TEST(StrCSpn, MeasuresTheInitialRunOutsideTheSet)
{
    EXPECT_EQ(VornStrCSpn(L"abc,d", L",;"), 3u);
    EXPECT_EQ(VornStrCSpn(L"abc", L""), 3u);
    EXPECT_EQ(VornStrCSpn(L"", L"abc"), 0u);
    EXPECT_EQ(VornStrCSpn(L"", L""), 0u);
}

TEST(StrSpn, TellsApartUnitsThatShareTheirLowByteInLargeSets)
{
    const wchar_t* const set = L"abcdefghij\x0441";
    EXPECT_EQ(VornStrSpn(L"a\x0441"
                         L"b\x0541"
                         L"A",
                         set),
              3u);
    EXPECT_EQ(VornStrSpn(L"jihA", L"abcdefghijklm"), 3u);
    EXPECT_EQ(VornStrSpn(L"j\x0161", L"abcdefghijklm"), 1u);
    EXPECT_EQ(VornStrCSpn(L"\x0161\x0461"
                          L"a",
                          L"abcdefghijklm"),
              2u);
}

TEST(StrDup, CopiesIntoMemoryOfItsOwn)
{
    wchar_t text[] = L"copy";
    wchar_t* const copy = VornStrDup(text);
    ASSERT_NE(copy, nullptr);
    text[0] = L'X';
    EXPECT_EQ(String(copy), L"copy");
    VornStrFree(copy);
    wchar_t* const empty = VornStrDup(L"");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(*empty, 0);
    VornStrFree(empty);
}

TEST(StrDup, TakesNull)
{
    EXPECT_EQ(VornStrDup(nullptr), nullptr);
    VornStrFree(nullptr);
}

TEST(StrRev, ReversesUnits)
{
    wchar_t two[] = L"ab";
    EXPECT_EQ(VornStrRev(two), two);
    EXPECT_EQ(String(two), L"ba");
    wchar_t three[] = L"abc";
    EXPECT_EQ(String(VornStrRev(three)), L"cba");
    wchar_t pair[] = {0xD83D, 0xDE00, 0};
    VornStrRev(pair);
    EXPECT_EQ(pair[0], 0xDE00);
    EXPECT_EQ(pair[1], 0xD83D);
    wchar_t empty[] = L"";
    EXPECT_EQ(String(VornStrRev(empty)), L"");
    wchar_t one[] = L"x";
    EXPECT_EQ(String(VornStrRev(one)), L"x");
}

TEST(StrSet, OverwritesEveryUnit)
{
    wchar_t text[] = L"abc";
    EXPECT_EQ(VornStrSet(text, L'x'), text);
    EXPECT_EQ(String(text), L"xxx");
    wchar_t empty[] = L"";
    EXPECT_EQ(String(VornStrSet(empty, L'x')), L"");
}

TEST(StrNSet, StopsAtTheTerminatorAndAfterNUnits)
{
    wchar_t text[] = L"abc\0d";
    EXPECT_EQ(VornStrNSet(text, L'x', 10), text);
    EXPECT_EQ(String(text, 5), String(L"xxx\0d", 5));
    VornStrNSet(text, L'y', 2);
    EXPECT_EQ(String(text), L"yyx");
    VornStrNSet(text, L'z', 0);
    EXPECT_EQ(String(text), L"yyx");
}

TEST(StrCase, AnswersTheNeededSizeWhenTheBufferIsTooSmall)
{
    uint32_t size = 0;
    EXPECT_EQ(VornStrToUpper(nullptr, &size, L"abc"), 0u);
    EXPECT_EQ(size, 4u);
    wchar_t target[8] = L"???????";
    size = 3;
    EXPECT_EQ(VornStrToLower(target, &size, L"ABC"), 0u);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(String(target), L"???????");
}

TEST(StrCase, MapsIntoABufferWithRoomForTheTerminator)
{
    wchar_t target[8] = L"???????";
    uint32_t size = 4;
    EXPECT_EQ(VornStrToUpper(target, &size, L"abc"), 3u);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(String(target), L"ABC");
    EXPECT_EQ(target[4], L'?');
    size = 8;
    EXPECT_EQ(VornStrToLower(target, &size,
                             L"\x0410\x0411"
                             L"C"),
              3u);
    EXPECT_EQ(String(target),
              L"\x0430\x0431"
              L"c");
    EXPECT_EQ(size, 8u);
}

TEST(StrCase, MayMakeTheTextLonger)
{
    wchar_t target[4];
    uint32_t size = 0;
    EXPECT_EQ(VornStrToUpper(target, &size, L"\xDF"), 0u);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(VornStrToUpper(target, &size, L"\xDF"), 2u);
    EXPECT_EQ(String(target), L"SS");
}

TEST(StrCase, TellsAnEmptyResultFromASmallBufferByTheSize)
{
    wchar_t target[2] = {L'?', L'?'};
    uint32_t size = 0;
    EXPECT_EQ(VornStrToLower(target, &size, L""), 0u);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(target[0], L'?');
    EXPECT_EQ(VornStrToLower(target, &size, L""), 0u);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(target[0], 0);
}

TEST(StrTok, GivesOneTokenAfterTheOther)
{
    wchar_t text[] = L",,a,,b";
    wchar_t* context = nullptr;
    EXPECT_EQ(VornStrTok(text, L",", &context), text + 2);
    EXPECT_EQ(String(text + 2), L"a");
    EXPECT_EQ(context, text + 4);
    EXPECT_EQ(VornStrTok(nullptr, L",", &context), text + 5);
    EXPECT_EQ(context, text + 6);
    EXPECT_EQ(VornStrTok(nullptr, L",", &context), nullptr);
    EXPECT_EQ(VornStrTok(nullptr, L",", &context), nullptr);
    EXPECT_EQ(context, text + 6);
}

TEST(StrTok, FindsNoTokenAmongDelimiters)
{
    wchar_t text[] = L",,,";
    wchar_t* context = nullptr;
    EXPECT_EQ(VornStrTok(text, L",", &context), nullptr);
    EXPECT_EQ(context, text + 3);
    wchar_t empty[] = L"";
    EXPECT_EQ(VornStrTok(empty, L",", &context), nullptr);
    EXPECT_EQ(context, empty);
}

TEST(StrTok, TakesOtherDelimitersWithEachCall)
{
    wchar_t text[] = L"key=a b;rest";
    wchar_t* context = nullptr;
    EXPECT_EQ(String(VornStrTok(text, L"=", &context)), L"key");
    EXPECT_EQ(String(VornStrTok(nullptr, L";", &context)), L"a b");
    EXPECT_EQ(String(VornStrTok(nullptr, L"", &context)), L"rest");
    EXPECT_EQ(VornStrTok(nullptr, L"", &context), nullptr);
}

TEST(StrTok, KeepsTwoTextsApart)
{
    wchar_t first[] = L"a b";
    wchar_t second[] = L"x y";
    wchar_t* firstContext = nullptr;
    wchar_t* secondContext = nullptr;
    EXPECT_EQ(String(VornStrTok(first, L" ", &firstContext)), L"a");
    EXPECT_EQ(String(VornStrTok(second, L" ", &secondContext)), L"x");
    EXPECT_EQ(String(VornStrTok(nullptr, L" ", &firstContext)), L"b");
    EXPECT_EQ(String(VornStrTok(nullptr, L" ", &secondContext)), L"y");
}

TEST(StrFormat, WritesAndCountsUnits)
{
    wchar_t buffer[16] = {};
    EXPECT_EQ(VornStrFormat(buffer, 16, "%d", 42), 2);
    EXPECT_EQ(String(buffer), L"42");
    EXPECT_EQ(VornStrFormatU(buffer, 16, L"%d|%s|%S", -7, "narrow", L"wide"), 14);
    EXPECT_EQ(String(buffer), L"-7|narrow|wide");
}

TEST(StrFormat, GivesIcusResultForTextThatIsCut)
{
    for (int32_t capacity : {1, 4, 5, 6}) {
        wchar_t buffer[16] = L"???????????????";
        UChar expected[16];
        std::memcpy(expected, buffer, sizeof buffer);
        const int32_t length = u_snprintf(expected, capacity, "%s", "hello");
        EXPECT_EQ(VornStrFormat(buffer, capacity, "%s", "hello"), length);
        EXPECT_EQ(std::memcmp(buffer, expected, sizeof buffer), 0);
        std::fill_n(buffer, 15, L'?');
        EXPECT_EQ(VornStrFormatU(buffer, capacity, L"%s", "hello"), length);
        EXPECT_EQ(std::memcmp(buffer, expected, sizeof buffer), 0);
        EXPECT_EQ(buffer[capacity], L'?');
    }
}

#ifdef _WIN32  // the host build has no last error
TEST(Str, LeavesTheLastErrorAlone)
{
    ASSERT_EQ(VornInitialize(), VORN_OK);
    VornSetLastError(VORN_E_SEEK);
    EXPECT_EQ(VornStrDup(nullptr), nullptr);
    EXPECT_EQ(VornStrChr(L"abc", L'z'), nullptr);
    wchar_t buffer[4];
    uint32_t size = 0;
    VornStrToUpper(buffer, &size, L"abc");
    VornStrFormat(buffer, 4, "%d", 123456);
    size = 0;
    VornUtf8ToUtf16("abc", 3, buffer, &size);
    EXPECT_EQ(VornGetLastError(), VORN_E_SEEK);
    VornTerminate();
}
#endif
