// Failing allocations and failing calls of ICU in UniStr, in the module.
#include <vorn/runtime.h>

#include "support/failing_call.h"
#include "support/import_redirect.h"
#include "text/unistr_failure_cases.h"

#include <functional>
#include <sstream>
#include <string>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

using namespace unistr_test;
using vorn::UniStr;
using vorn_test::ImportRedirect;

namespace {

#define IMPORT_NAME_OF(function) #function
#define IMPORT_NAME(function) IMPORT_NAME_OF(function)

// Which calls of a redirected function fail, counted down; 0: none. And with what.
int failAfter = 0;
UErrorCode failure = U_ZERO_ERROR;

bool FailsNow(UErrorCode* status)
{
    if (failAfter == 0 || --failAfter != 0) return false;
    *status = failure;
    return true;
}

UConverter* OpenNothing(const char*, UErrorCode* status)
{
    *status = U_FILE_ACCESS_ERROR;
    return nullptr;
}

int opened = 0;
int closed = 0;

UConverter* OpenCounted(const char* name, UErrorCode* status)
{
    ++opened;
    return ucnv_open(name, status);
}

void CloseCounted(UConverter* converter)
{
    if (converter != nullptr) ++closed;
    ucnv_close(converter);
}

int32_t ToUCharsOrFail(UConverter* converter, UChar* to, int32_t capacity, const char* from, int32_t length,
                       UErrorCode* status)
{
    if (FailsNow(status)) return 0;
    return ucnv_toUChars(converter, to, capacity, from, length, status);
}

int32_t FromUCharsOrFail(UConverter* converter, char* to, int32_t capacity, const UChar* from, int32_t length,
                         UErrorCode* status)
{
    if (FailsNow(status)) return failure == U_BUFFER_OVERFLOW_ERROR ? capacity + 1 : 0;
    return ucnv_fromUChars(converter, to, capacity, from, length, status);
}

int32_t ToUpperOrFail(UChar* to, int32_t capacity, const UChar* from, int32_t length, const char* locale,
                      UErrorCode* status)
{
    if (FailsNow(status)) return 0;
    return u_strToUpper(to, capacity, from, length, locale, status);
}

int32_t ToLowerOrFail(UChar* to, int32_t capacity, const UChar* from, int32_t length, const char* locale,
                      UErrorCode* status)
{
    if (FailsNow(status)) return 0;
    return u_strToLower(to, capacity, from, length, locale, status);
}

bool FailNthArray(int nth, const std::function<void()>& body)
{
    const vorn_test::FailingCall fail(vorn_test::kNewArray, nth);
    EXPECT_TRUE(fail.Found());
    body();
    return fail.Failures() != 0;
}

class UniStrModuleFailure : public testing::Test {
protected:
    void SetUp() override { ucnv_setDefaultName("UTF-8"); }
    void TearDown() override { failAfter = 0; }

    static void Fail(int nth, UErrorCode code)
    {
        failAfter = nth;
        failure = code;
    }
};

}  // namespace

TEST_F(UniStrModuleFailure, AnAllocationThatFailsLeavesTheStringAsItWas)
{
    const int delivered = RunFailureCases(FailNthArray);
    EXPECT_GE(delivered, 50);
}

TEST_F(UniStrModuleFailure, TheCapacityDoesNotGrowWhenTheCopyOfAPartFails)
{
    RunFailureOfTheCopyOfAPart(FailNthArray);
}

TEST_F(UniStrModuleFailure, AConverterThatCannotBeOpened)
{
    UniStr text(L"abc");
    EXPECT_STREQ(text.C_Str(), "abc");
    ucnv_setDefaultName("windows-1252");  // no converter that is kept serves
    const ImportRedirect open(IMPORT_NAME(ucnv_open), &OpenNothing);
    ASSERT_TRUE(open.Found());
    EXPECT_THROWS(UniStr("abc"), RuntimeError, "Error converting to UTF-16");
    EXPECT_THROWS(text.C_Str(), RuntimeError, "Error converting to codepage");
    std::ostringstream out;
    EXPECT_THROWS(out << text, RuntimeError, "Error converting to codepage");
    std::istringstream in("abc\nnext");
    in >> text;
    EXPECT_TEXT(text, u"abc");
    EXPECT_TRUE(in.good());
    EXPECT_EQ(in.get(), 'n');
}

TEST_F(UniStrModuleFailure, AConversionToUnitsThatFailsAtEachCall)
{
    const ImportRedirect convert(IMPORT_NAME(ucnv_toUChars), &ToUCharsOrFail);
    ASSERT_TRUE(convert.Found());
    const std::string bytes(5000, 'b');
    Fail(1, U_INVALID_CHAR_FOUND);
    EXPECT_THROWS(UniStr("abc"), RuntimeError, "Error converting to UTF-16");
    Fail(1, U_ILLEGAL_ARGUMENT_ERROR);
    EXPECT_THROWS(UniStr(bytes.c_str()), RuntimeError, "Error converting to UTF-16");
    for (const UErrorCode code : {U_BUFFER_OVERFLOW_ERROR, U_TRUNCATED_CHAR_FOUND}) {
        Fail(2, code);
        EXPECT_THROWS(UniStr(bytes.c_str()), RuntimeError, "Error converting to UTF-16");
        EXPECT_EQ(failAfter, 0);
    }
    UniStr text(L"x");
    std::istringstream in("abc\n" + bytes + "\nlast");
    Fail(1, U_INVALID_CHAR_FOUND);
    in >> text;
    EXPECT_TEXT(text, u"x");
    Fail(2, U_INVALID_CHAR_FOUND);
    in >> text;
    EXPECT_TEXT(text, u"x");
    EXPECT_TRUE(in.good());
    in >> text;
    EXPECT_TEXT(text, u"xlast");
}

TEST_F(UniStrModuleFailure, AConversionToTheCodePageThatFailsAtEachCall)
{
    const ImportRedirect convert(IMPORT_NAME(ucnv_fromUChars), &FromUCharsOrFail);
    ASSERT_TRUE(convert.Found());
    const auto expectFailure = [](UniStr& text, const std::u16string& expected) {
        EXPECT_THROWS(text.C_Str(), RuntimeError, "Error converting to codepage");
        EXPECT_EQ(failAfter, 0);
        EXPECT_TEXT(text, expected);
        text.Clear();
        EXPECT_EQ(text.C_Str(), nullptr);  // the copy is gone
    };
    UniStr first(L"abc");
    Fail(1, U_INVALID_CHAR_FOUND);
    expectFailure(first, u"abc");

    UniStr withCopy(L"abc");
    EXPECT_STREQ(withCopy.C_Str(), "abc");
    Fail(1, U_INVALID_CHAR_FOUND);
    expectFailure(withCopy, u"abc");

    for (const UErrorCode code : {U_BUFFER_OVERFLOW_ERROR, U_INVALID_CHAR_FOUND}) {
        UniStr longer = Filled(5000);
        Fail(2, code);
        expectFailure(longer, std::u16string(5000, u'a'));
        UniStr grown(L"abc");
        EXPECT_STREQ(grown.C_Str(), "abc");
        grown = Filled(5000);
        Fail(2, code);
        expectFailure(grown, std::u16string(5000, u'a'));
    }
}

TEST_F(UniStrModuleFailure, ACaseMappingThatFailsLeavesTheString)
{
    const ImportRedirect upper(IMPORT_NAME(u_strToUpper), &ToUpperOrFail);
    const ImportRedirect lower(IMPORT_NAME(u_strToLower), &ToLowerOrFail);
    ASSERT_TRUE(upper.Found() && lower.Found());
    for (const UErrorCode code : {U_MEMORY_ALLOCATION_ERROR, U_INDEX_OUTOFBOUNDS_ERROR}) {
        for (const int nth : {1, 2}) {
            UniStr text(L"aBc");
            text.Reserve(100);
            const wchar_t* const buffer = text.S_Str();
            Fail(nth, code);
            text.ToUpper();
            EXPECT_EQ(failAfter, 0);
            Fail(nth, code);
            text.ToLower();
            EXPECT_EQ(failAfter, 0);
            EXPECT_TEXT(text, u"aBc");
            EXPECT_EQ(text.S_Str(), buffer);
            EXPECT_EQ(text.Capacity(), 167u);
        }
    }
}

TEST_F(UniStrModuleFailure, OneConverterServesUntilTheLibraryIsTerminated)
{
    ASSERT_EQ(VornInitialize(), VORN_OK);
    VornTerminate();  // whatever was kept is closed
    const ImportRedirect open(IMPORT_NAME(ucnv_open), &OpenCounted);
    const ImportRedirect close(IMPORT_NAME(ucnv_close), &CloseCounted);
    ASSERT_TRUE(open.Found() && close.Found());
    opened = 0;
    closed = 0;
    ASSERT_EQ(VornInitialize(), VORN_OK);
    for (int i = 0; i < 100; ++i) {
        const UniStr text("abc");
        EXPECT_STREQ(text.C_Str(), "abc");
        std::istringstream in("line");
        UniStr line;
        in >> line;
    }
    EXPECT_EQ(opened, 1);
    EXPECT_EQ(closed, 0);
    VornTerminate();
    EXPECT_EQ(closed, 1);
    EXPECT_STREQ(UniStr(L"abc").C_Str(), "abc");  // and is opened again where it is wanted
    EXPECT_EQ(opened, 2);
}
