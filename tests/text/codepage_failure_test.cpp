// Failing calls of ICU behind the code-page functions and the case mappings, in the module.

#include <vorn/vorn.h>

#include "support/failing_call.h"

#include <gtest/gtest.h>
#include <string>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

using vorn_test::FailingCall;
using vorn_test::ImportRedirect;

namespace {

#define IMPORT_NAME_OF(function) #function
#define IMPORT_NAME(function) IMPORT_NAME_OF(function)

int opened = 0;

UConverter* OpenNothing(const char*, UErrorCode* error)
{
    ++opened;
    *error = U_FILE_ACCESS_ERROR;
    return nullptr;
}

UErrorCode conversionError = U_ZERO_ERROR;

int32_t FailToUChars(UConverter*, UChar*, int32_t, const char*, int32_t, UErrorCode* error)
{
    *error = conversionError;
    return 7;
}

int32_t FailFromUChars(UConverter*, char*, int32_t, const UChar*, int32_t, UErrorCode* error)
{
    *error = conversionError;
    return 7;
}

// A default converter that no call before has left open.
class CodepageFailure : public testing::Test {
protected:
    CodepageFailure() : before_(ucnv_getDefaultName())
    {
        static int turn = 0;
        ucnv_setDefaultName(++turn % 2 != 0 ? "ISO-8859-2" : "ISO-8859-7");
    }
    ~CodepageFailure() override { ucnv_setDefaultName(before_.c_str()); }

    wchar_t units_[8] = L"???????";
    char bytes_[8] = "???????";
    uint32_t size_ = 8;

private:
    std::string before_;
};

}  // namespace

TEST_F(CodepageFailure, WithoutAConverterTheSizeIsUntouched)
{
    const ImportRedirect open(IMPORT_NAME(ucnv_open), OpenNothing);
    ASSERT_TRUE(open.Found());
    opened = 0;
    EXPECT_EQ(VornCodepageToUtf16("abc", 3, units_, &size_), VORN_E_CONVERSION);
    EXPECT_EQ(size_, 8u);
    EXPECT_EQ(units_[0], L'?');
    EXPECT_EQ(VornUtf16ToCodepage(L"abc", 3, bytes_, &size_), VORN_E_CONVERSION);
    EXPECT_EQ(size_, 8u);
    EXPECT_EQ(bytes_[0], '?');
    EXPECT_EQ(opened, 2);
}

TEST_F(CodepageFailure, ConvertsAgainOnceAConverterCanBeOpened)
{
    {
        const ImportRedirect open(IMPORT_NAME(ucnv_open), OpenNothing);
        EXPECT_EQ(VornCodepageToUtf16("abc", 3, units_, &size_), VORN_E_CONVERSION);
    }
    EXPECT_EQ(VornCodepageToUtf16("abc", 3, units_, &size_), VORN_OK);
    EXPECT_EQ(size_, 3u);
}

TEST_F(CodepageFailure, EachErrorOfTheConversionHasItsStatusAndSetsTheSize)
{
    const ImportRedirect toUnits(IMPORT_NAME(ucnv_toUChars), FailToUChars);
    const ImportRedirect fromUnits(IMPORT_NAME(ucnv_fromUChars), FailFromUChars);
    ASSERT_TRUE(toUnits.Found() && fromUnits.Found());
    const struct {
        UErrorCode error;
        VornStatus status;
    } cases[] = {
        {U_BUFFER_OVERFLOW_ERROR, VORN_E_BUFFER_TOO_SMALL},
        {U_ILLEGAL_ARGUMENT_ERROR, VORN_E_CONVERTER},
        {U_MEMORY_ALLOCATION_ERROR, VORN_E_CONVERTER},
        {U_INVALID_CHAR_FOUND, VORN_E_CONVERTER},
        {U_TRUNCATED_CHAR_FOUND, VORN_E_CONVERTER},
        {U_STRING_NOT_TERMINATED_WARNING, VORN_OK},
        {U_USING_DEFAULT_WARNING, VORN_OK},
    };
    for (const auto& c : cases) {
        conversionError = c.error;
        size_ = 8;
        EXPECT_EQ(VornCodepageToUtf16("abc", 3, units_, &size_), c.status) << c.error;
        EXPECT_EQ(size_, 7u);
        size_ = 8;
        EXPECT_EQ(VornUtf16ToCodepage(L"abc", 3, bytes_, &size_), c.status) << c.error;
        EXPECT_EQ(size_, 7u);
    }
}

TEST(StrDupFailure, GivesNullAndLeavesTheLastErrorAlone)
{
    ASSERT_EQ(VornInitialize(), VORN_OK);
    VornSetLastError(VORN_E_SEEK);
    {
        const FailingCall fail(vorn_test::kMalloc);
        ASSERT_TRUE(fail.Found());
        EXPECT_EQ(VornStrDup(L"text"), nullptr);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(VornGetLastError(), VORN_E_SEEK);
    VornTerminate();
}
