// The converters that are kept open between calls.
#include "text/codepage_converter.h"

#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <thread>
#include <vector>

using vorn::detail::CloseKeptConverters;
using vorn::detail::CodepageConverter;

namespace {

std::string NameOf(UConverter* converter)
{
    UErrorCode status = U_ZERO_ERROR;
    return ucnv_getName(converter, &status);
}

}  // namespace

TEST(CodepageConverter, IsTheDefaultOne)
{
    const CodepageConverter converter;
    ASSERT_TRUE(converter);
    EXPECT_EQ(converter.Status(), U_ZERO_ERROR);
    UErrorCode status = U_ZERO_ERROR;
    UConverter* const fresh = ucnv_open(nullptr, &status);
    EXPECT_EQ(NameOf(converter.Get()), NameOf(fresh));
    ucnv_close(fresh);
}

TEST(CodepageConverter, TheSameOneServesOneCallAfterTheOther)
{
    UConverter* first = nullptr;
    {
        const CodepageConverter converter;
        first = converter.Get();
    }
    const CodepageConverter converter;
    EXPECT_EQ(converter.Get(), first);
}

TEST(CodepageConverter, UsersAtTheSameTimeHaveConvertersOfTheirOwn)
{
    CodepageConverter converters[9];  // more than are kept
    std::set<UConverter*> different;
    for (const CodepageConverter& converter : converters) {
        ASSERT_TRUE(converter);
        different.insert(converter.Get());
    }
    EXPECT_EQ(different.size(), 9u);
}

TEST(CodepageConverter, ClosingSparesTheOneInUse)
{
    const CodepageConverter converter;
    CloseKeptConverters();
    UErrorCode status = U_ZERO_ERROR;
    char bytes[8];
    EXPECT_EQ(ucnv_fromUChars(converter.Get(), bytes, 8, u"abc", 3, &status), 3);
    EXPECT_EQ(status, U_ZERO_ERROR);
    const CodepageConverter another;
    EXPECT_TRUE(another);
}

TEST(CodepageConverter, ThreadsTakeAndGiveBackWhileOthersClose)
{
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                if (t == 0) {
                    CloseKeptConverters();
                    continue;
                }
                const CodepageConverter converter;
                UErrorCode status = U_ZERO_ERROR;
                char16_t units[8];
                const int32_t n = ucnv_toUChars(converter.Get(), units, 8, "abc", 3, &status);
                if (n != 3 || U_FAILURE(status)) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong.load(), 0);
}
