// UniStr on standard streams. The host's standard library has wide streams for another size of character,
// and its ICU one default code page, so the tests of both are not part of the host build.
#include "text/unistr_support.h"

#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <unicode/ucnv.h>

using namespace unistr_test;
using vorn::UniStr;

namespace {

class UniStrStream : public testing::Test {
protected:
    void SetUp() override
    {
        previous_ = ucnv_getDefaultName();
        ucnv_setDefaultName("UTF-8");
    }
    void TearDown() override { ucnv_setDefaultName(previous_.c_str()); }

private:
    std::string previous_;
};

using UniStrInsertion = UniStrStream;
using UniStrExtraction = UniStrStream;

// A buffer that delivers some characters and then throws.
template <typename Char>
class ThrowingBuffer : public std::basic_streambuf<Char> {
public:
    explicit ThrowingBuffer(std::basic_string_view<Char> text)
    {
        for (size_t i = 0; i < text.size(); ++i) characters_[i] = text[i];
        this->setg(characters_, characters_, characters_ + text.size());
    }

protected:
    typename std::basic_streambuf<Char>::int_type underflow() override
    {
        throw std::runtime_error("the device is gone");
    }

private:
    Char characters_[16];
};

// A buffer that takes a number of characters and then refuses.
class FullBuffer : public std::streambuf {
public:
    explicit FullBuffer(size_t room) : room_(room) {}
    std::string taken;

protected:
    int_type overflow(int_type c) override
    {
        if (taken.size() == room_) return traits_type::eof();
        taken.push_back(traits_type::to_char_type(c));
        return c;
    }

private:
    size_t room_;
};

}  // namespace

TEST_F(UniStrInsertion, WritesTheTextInTheDefaultCodePage)
{
    std::ostringstream out;
    EXPECT_EQ(&(out << UniStr(std::u16string_view(u"stra\u00dfe"))), &out);
    EXPECT_EQ(out.str(),
              "stra\xC3\x9F"
              "e");
}

TEST_F(UniStrInsertion, WritesEmbeddedZerosAndNothingForAnEmptyString)
{
    std::ostringstream out;
    out << UniStr(L"a\0b", 3) << UniStr();
    EXPECT_EQ(out.str(), std::string("a\0b", 3));
    EXPECT_TRUE(out.good());
}

TEST_F(UniStrInsertion, WritesTheTextAsItIsNow)
{
    UniStr text(L"abcdef");
    std::ostringstream out;
    out << text << '|';
    text.Erase(2, kNpos);
    out << text << '|';
    text.Clear();
    out << text << '|';
    EXPECT_EQ(out.str(), "abcdef|ab||");
}

TEST_F(UniStrInsertion, LeavesWidthAlone)
{
    std::ostringstream out;
    out.width(6);
    out << UniStr(L"ab");
    EXPECT_EQ(out.str(), "ab");
    EXPECT_EQ(out.width(), 6);
}

TEST_F(UniStrInsertion, WritesNothingToAStreamThatHasFailed)
{
    std::ostringstream out;
    out.setstate(std::ios_base::failbit);
    out << UniStr(L"abc");
    EXPECT_EQ(out.str(), "");
}

TEST_F(UniStrInsertion, ABufferThatRefusesMakesTheStreamBad)
{
    FullBuffer buffer(2);
    std::ostream out(&buffer);
    out << UniStr(L"abc");
    EXPECT_EQ(buffer.taken, "ab");
    EXPECT_TRUE(out.bad());
}

TEST_F(UniStrExtraction, AppendsOneLineWithoutItsLineFeed)
{
    std::istringstream in("ab cd\nnext");
    UniStr text(L"x");
    EXPECT_EQ(&(in >> text), &in);
    EXPECT_TEXT(text, u"xab cd");
    EXPECT_TRUE(in.good());
    EXPECT_EQ(in.get(), 'n');
}

TEST_F(UniStrExtraction, KeepsBlanksAndCarriageReturns)
{
    std::istringstream in("  \t ab\t \r\n");
    UniStr text;
    in >> text;
    EXPECT_TEXT(text, u"  \t ab\t \r");
}

TEST_F(UniStrExtraction, AnEmptyLineAppendsNothing)
{
    std::istringstream in("\n\nabc\n");
    UniStr text(L"x");
    in >> text;
    EXPECT_TEXT(text, u"x");
    EXPECT_TRUE(in.good());
    in >> text >> text;
    EXPECT_TEXT(text, u"xabc");
    EXPECT_TRUE(in.good());
}

TEST_F(UniStrExtraction, ALastLineWithoutALineFeedSetsOnlyTheEndBit)
{
    std::istringstream in("abc");
    UniStr text;
    in >> text;
    EXPECT_TEXT(text, u"abc");
    EXPECT_EQ(in.rdstate(), std::ios_base::eofbit);
}

TEST_F(UniStrExtraction, NothingLeftSetsTheFailureBitToo)
{
    std::istringstream in("");
    UniStr text(L"x");
    in >> text;
    EXPECT_TEXT(text, u"x");
    EXPECT_EQ(in.rdstate(), std::ios_base::eofbit | std::ios_base::failbit);
    std::istringstream ended("abc\n");
    ended >> text;
    EXPECT_TRUE(ended.good());
    ended >> text;
    EXPECT_TEXT(text, u"xabc");
    EXPECT_EQ(ended.rdstate(), std::ios_base::eofbit | std::ios_base::failbit);
}

TEST_F(UniStrExtraction, SetsTheSameBitsAsGetlineAfterEachLine)
{
    for (const char* input : {"", "\n", "a", "a\n", "a\nb", "a\nb\n", "\n\n", "\na"}) {
        std::istringstream ours(input);
        std::istringstream theirs(input);
        for (int i = 0; i < 4; ++i) {
            UniStr text;
            std::string line;
            ours >> text;
            std::getline(theirs, line);
            EXPECT_EQ(ours.rdstate(), theirs.rdstate()) << input << " line " << i;
            EXPECT_EQ(Units(text), std::u16string(line.begin(), line.end())) << input << " line " << i;
        }
    }
}

TEST_F(UniStrExtraction, ReadsLineAfterLineInALoop)
{
    std::istringstream in("one\ntwo\n\nfour");
    std::string all;
    for (UniStr line; in >> line; line.Clear()) {
        std::ostringstream part;
        part << line;
        all += part.str() + ";";
    }
    EXPECT_EQ(all, "one;two;;four;");
}

TEST_F(UniStrExtraction, AStreamThatIsNotGoodIsNotRead)
{
    std::istringstream in("abc\n");
    in.setstate(std::ios_base::failbit);
    UniStr text(L"x");
    in >> text;
    EXPECT_TEXT(text, u"x");
    in.clear();
    EXPECT_EQ(in.get(), 'a');
    std::istringstream ended("abc\n");
    ended.setstate(std::ios_base::eofbit);
    ended >> text;
    EXPECT_TEXT(text, u"x");
    EXPECT_EQ(ended.rdstate(), std::ios_base::eofbit | std::ios_base::failbit);
}

TEST_F(UniStrExtraction, ConvertsFromTheDefaultCodePageByLength)
{
    std::istringstream in(std::string("\xC3\x9F\0z\n", 5));
    UniStr text;
    in >> text;
    EXPECT_TEXT(text, (std::u16string_view(u"\u00df\0z", 3)));
}

TEST_F(UniStrExtraction, AppendsALineLikeAnyOtherText)
{
    UniStr text = Filled(30);
    std::istringstream in("xyz\n" + std::string(1000, 'l') + "\n");
    in >> text;
    EXPECT_EQ(text.Capacity(), 71u);
    in >> text;
    EXPECT_TEXT(text, std::u16string(30, u'a') + u"xyz" + std::u16string(1000, u'l'));
    EXPECT_EQ(text.Capacity(), 72u + 1000 + 32 - 1);
}

TEST_F(UniStrExtraction, ABufferThatThrowsMakesTheStreamBadAndKeepsWhatWasRead)
{
    ThrowingBuffer<char> buffer("abc");
    std::istream in(&buffer);
    UniStr text(L"x");
    in >> text;
    EXPECT_TEXT(text, u"xabc");
    EXPECT_EQ(in.rdstate(), std::ios_base::badbit);
}

TEST_F(UniStrExtraction, ABuffersExceptionPassesWhereTheStreamIsToldTo)
{
    ThrowingBuffer<char> buffer("abc");
    std::istream in(&buffer);
    in.exceptions(std::ios_base::badbit);
    UniStr text(L"x");
    EXPECT_THROW(in >> text, std::runtime_error);
    EXPECT_TEXT(text, u"xabc");
    EXPECT_TRUE(in.bad());
}

TEST_F(UniStrExtraction, TheEndOfTheInputThrowsWhereTheStreamIsToldTo)
{
    std::istringstream in("abc");
    in.exceptions(std::ios_base::eofbit);
    UniStr text;
    EXPECT_THROW(in >> text, std::ios_base::failure);
    EXPECT_TEXT(text, u"abc");
}

#ifdef _WIN32

TEST_F(UniStrExtraction, ALineThatConvertsToNothingAppendsNothing)
{
    ucnv_setDefaultName("UTF-16");
    std::istringstream in("\xFE\xFF\n");
    UniStr text(L"x");
    in >> text;
    EXPECT_TEXT(text, u"x");
    EXPECT_TRUE(in.good());
}

TEST_F(UniStrInsertion, WritesUnitsToAWideStream)
{
    std::wostringstream out;
    EXPECT_EQ(&(out << UniStr(L"a\0\xD800z", 4) << UniStr()), &out);
    EXPECT_EQ(out.str(), std::wstring(L"a\0\xD800z", 4));
}

TEST_F(UniStrExtraction, AppendsOneLineOfAWideStream)
{
    std::wistringstream in(L"  ab cd\r\n\nnext");
    UniStr text(L"x");
    EXPECT_EQ(&(in >> text), &in);
    EXPECT_TEXT(text, u"x  ab cd\r");
    in >> text;
    EXPECT_TEXT(text, u"x  ab cd\r");
    EXPECT_TRUE(in.good());
    in >> text;
    EXPECT_TEXT(text, u"x  ab cd\rnext");
    EXPECT_EQ(in.rdstate(), std::ios_base::eofbit);
    in.clear();
    in >> text;
    EXPECT_EQ(in.rdstate(), std::ios_base::eofbit | std::ios_base::failbit);
}

TEST_F(UniStrExtraction, AppendsWideCharactersOneAtATime)
{
    UniStr text;
    std::wistringstream in(std::wstring(40, L'w'));
    in >> text;
    EXPECT_EQ(text.Size(), 40u);
    EXPECT_EQ(text.Capacity(), 63u);
}

TEST_F(UniStrExtraction, AWideBufferThatThrowsMakesTheStreamBadAndKeepsWhatWasRead)
{
    ThrowingBuffer<wchar_t> buffer(L"abc");
    std::wistream in(&buffer);
    UniStr text(L"x");
    in >> text;
    EXPECT_TEXT(text, u"xabc");
    EXPECT_EQ(in.rdstate(), std::ios_base::badbit);
}

TEST_F(UniStrExtraction, AWideStreamThatIsNotGoodIsNotRead)
{
    std::wistringstream in(L"abc\n");
    in.setstate(std::ios_base::failbit);
    UniStr text(L"x");
    in >> text;
    EXPECT_TEXT(text, u"x");
}

#endif
