#include "core/pointer_set.h"

#include <gtest/gtest.h>
#include <random>
#include <set>

using vorn::detail::PointerSet;

namespace {

const void* Pointer(uintptr_t value)
{
    return reinterpret_cast<const void*>(value);
}

}  // namespace

TEST(PointerSet, NeverContainsNull)
{
    PointerSet set;
    EXPECT_FALSE(set.Contains(nullptr));
    EXPECT_FALSE(set.Insert(nullptr));
    EXPECT_FALSE(set.Erase(nullptr));
}

TEST(PointerSet, InsertingAValueTwiceKeepsOne)
{
    PointerSet set;
    EXPECT_TRUE(set.Insert(Pointer(0x1000)));
    EXPECT_TRUE(set.Insert(Pointer(0x1000)));
    EXPECT_EQ(set.Size(), 1u);
    EXPECT_TRUE(set.Erase(Pointer(0x1000)));
    EXPECT_FALSE(set.Erase(Pointer(0x1000)));
}

TEST(PointerSet, FindsAValueByWhatItIsLike)
{
    PointerSet set;
    const auto any = [](const void*) { return true; };
    EXPECT_EQ(set.FindIf(any), nullptr);
    for (uintptr_t value = 1; value <= 100; ++value) ASSERT_TRUE(set.Insert(Pointer(16 * value)));
    for (uintptr_t value = 1; value <= 100; ++value) {
        const auto isIt = [value](const void* found) { return found == Pointer(16 * value); };
        EXPECT_EQ(set.FindIf(isIt), Pointer(16 * value));
        EXPECT_TRUE(set.Erase(Pointer(16 * value)));
        EXPECT_EQ(set.FindIf(isIt), nullptr);
    }
    EXPECT_EQ(set.FindIf(any), nullptr);
}

TEST(PointerSet, GivesUpOneValueAfterTheOther)
{
    PointerSet set;
    std::set<const void*> left;
    EXPECT_EQ(set.TakeAny(), nullptr);
    for (uintptr_t value = 1; value <= 100; ++value) {
        ASSERT_TRUE(set.Insert(Pointer(16 * value)));
        left.insert(Pointer(16 * value));
    }
    while (const void* const taken = set.TakeAny()) {
        EXPECT_EQ(left.erase(taken), 1u);
        EXPECT_FALSE(set.Contains(taken));
    }
    EXPECT_TRUE(left.empty());
    EXPECT_EQ(set.Size(), 0u);
}

TEST(PointerSet, AgreesWithAnOrderedSetOverARandomSequence)
{
    std::mt19937 random(20261121);
    PointerSet set;
    std::set<uintptr_t> model;
    for (int step = 0; step < 200000; ++step) {
        const uintptr_t value = 16 * (1 + random() % 3000);
        if (random() % 2 == 0) {
            ASSERT_TRUE(set.Insert(Pointer(value)));
            model.insert(value);
        } else {
            ASSERT_EQ(set.Erase(Pointer(value)), model.erase(value) == 1) << step;
        }
        const uintptr_t probe = 16 * (1 + random() % 3000);
        ASSERT_EQ(set.Contains(Pointer(probe)), model.count(probe) == 1) << step;
        ASSERT_EQ(set.Size(), model.size());
    }
}
