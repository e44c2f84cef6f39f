// Failing allocations in UniStr and in ICU, on the host: the program's own operator new fails where it is
// told to, and so do ICU's memory functions.
#include "text/codepage_converter.h"
#include "text/unistr_failure_cases.h"

#include <cstdlib>
#include <functional>
#include <new>
#include <sstream>
#include <unicode/uclean.h>

namespace {

int failAfter = 0;  // the allocation that fails, counted down; 0: none
bool failed = false;

void* Allocate(size_t size)
{
    if (failAfter != 0 && --failAfter == 0) {
        failed = true;
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

bool FailNth(int nth, const std::function<void()>& body)
{
    failed = false;
    failAfter = nth;
    body();
    failAfter = 0;
    return failed;
}

bool icuFails = false;

void* IcuAllocate(const void*, size_t size)
{
    return icuFails ? nullptr : std::malloc(size);
}
void* IcuReallocate(const void*, void* memory, size_t size)
{
    return icuFails ? nullptr : std::realloc(memory, size);
}
void IcuFree(const void*, void* memory)
{
    std::free(memory);
}

}  // namespace

void* operator new(size_t size)
{
    return Allocate(size);
}
void* operator new[](size_t size)
{
    return Allocate(size);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept
{
    std::free(memory);
}

using namespace unistr_test;
using vorn::UniStr;

TEST(UniStrFailure, AnAllocationThatFailsLeavesTheStringAsItWas)
{
    const int delivered = RunFailureCases(FailNth);
    EXPECT_GE(delivered, 50);
    std::printf("%d failures delivered\n", delivered);
}

TEST(UniStrFailure, TheCapacityDoesNotGrowWhenTheCopyOfAPartFails)
{
    RunFailureOfTheCopyOfAPart(FailNth);
}

TEST(UniStrFailure, AnExtractionThatRunsOutOfMemoryThrowsAndAppendsNothing)
{
    std::istringstream prepared(std::string(300, 'r') + "\nnext");
    int delivered = 0;
    for (int nth = 1;; ++nth) {
        std::istringstream in(prepared.str());
        UniStr text = Filled(31);
        bool thrown = false;
        const bool delivers = FailNth(nth, [&] {
            try {
                in >> text;
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
        });
        EXPECT_EQ(thrown, delivers);
        if (!delivers) {
            EXPECT_EQ(text.Size(), 331u);
            break;
        }
        ++delivered;
        EXPECT_TEXT(text, std::u16string(31, u'a'));
    }
    EXPECT_GE(delivered, 3);
}

class UniStrIcuFailure : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        UErrorCode status = U_ZERO_ERROR;
        u_setMemoryFunctions(nullptr, IcuAllocate, IcuReallocate, IcuFree, &status);
        ASSERT_TRUE(U_SUCCESS(status));
    }
    void SetUp() override
    {
        vorn::detail::CloseKeptConverters();
        icuFails = true;
    }
    void TearDown() override { icuFails = false; }
};

TEST_F(UniStrIcuFailure, NoConverterForConstruction)
{
    EXPECT_THROWS(UniStr("abc"), RuntimeError, "Error converting to UTF-16");
    EXPECT_THROWS(UniStr("abc", 2), RuntimeError, "Error converting to UTF-16");
    EXPECT_TEXT(UniStr(""), u"");  // needs none
    icuFails = false;
    EXPECT_TEXT(UniStr("abc"), u"abc");
}

TEST_F(UniStrIcuFailure, NoConverterForTheCodepageText)
{
    UniStr text(L"abc");
    EXPECT_THROWS(text.C_Str(), RuntimeError, "Error converting to codepage");
    EXPECT_THROWS(UniStr().C_Str(), RuntimeError, "Error converting to codepage");
    std::ostringstream out;
    EXPECT_THROWS(out << text, RuntimeError, "Error converting to codepage");
    EXPECT_EQ(out.str(), "");
    EXPECT_TEXT(text, u"abc");
    icuFails = false;
    EXPECT_STREQ(text.C_Str(), "abc");
}

TEST_F(UniStrIcuFailure, AFailureDiscardsTheCopy)
{
    icuFails = false;
    UniStr text(L"abc");
    EXPECT_STREQ(text.C_Str(), "abc");
    vorn::detail::CloseKeptConverters();
    icuFails = true;
    EXPECT_THROWS(text.C_Str(), RuntimeError, "Error converting to codepage");
    icuFails = false;
    text.Clear();
    EXPECT_EQ(text.C_Str(), nullptr);
}

TEST_F(UniStrIcuFailure, ALineThatCannotBeConvertedIsDropped)
{
    std::istringstream in("abc\nnext\n");
    UniStr text(L"x");
    in >> text;
    EXPECT_TEXT(text, u"x");
    EXPECT_TRUE(in.good());
    icuFails = false;
    in >> text;
    EXPECT_TEXT(text, u"xnext");
}
