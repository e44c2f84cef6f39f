#include <vorn/vorn.h>

#include <gtest/gtest.h>

TEST(Atomic, AddReturnsTheValueBefore)
{
    int32_t value = 5;
    EXPECT_EQ(VornAtomicAdd32(&value, 3), 5);
    EXPECT_EQ(value, 8);
    EXPECT_EQ(VornAtomicAdd32(&value, -10), 8);
    EXPECT_EQ(value, -2);
}

TEST(Atomic, AddWrapsAroundAtTheLargestValue)
{
    int32_t value = INT32_MAX;
    EXPECT_EQ(VornAtomicAdd32(&value, 1), INT32_MAX);
    EXPECT_EQ(value, INT32_MIN);
}

TEST(Atomic, SubtractChangesTheTarget)
{
    int32_t value = 5;
    VornAtomicSub32(&value, 7);
    EXPECT_EQ(value, -2);
}

TEST(Atomic, IncrementAndDecrementReturnTheNewValue)
{
    int32_t value = 41;
    EXPECT_EQ(VornAtomicInc32(&value), 42);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(VornAtomicDec32(&value), 41);
    EXPECT_EQ(value, 41);
}

TEST(Atomic, ExchangeReturnsTheValueBefore)
{
    int32_t value = 1;
    EXPECT_EQ(VornAtomicExchange32(&value, 2), 1);
    EXPECT_EQ(value, 2);
}

TEST(Atomic, CompareExchangeStoresOnlyWhenTheComparandMatches)
{
    int32_t value = 1;
    EXPECT_EQ(VornAtomicCompareExchange32(&value, 9, 2), 1);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(VornAtomicCompareExchange32(&value, 9, 1), 1);
    EXPECT_EQ(value, 9);
}

TEST(Atomic, CompareExchangePointerStoresOnlyWhenTheComparandMatches)
{
    int a = 0;
    int b = 0;
    void* value = &a;
    EXPECT_EQ(VornAtomicCompareExchangePointer(&value, nullptr, &b), &a);
    EXPECT_EQ(value, &a);
    EXPECT_EQ(VornAtomicCompareExchangePointer(&value, &b, &a), &a);
    EXPECT_EQ(value, &b);
}
