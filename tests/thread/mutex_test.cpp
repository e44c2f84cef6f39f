#include <vorn/vorn.h>

#include <gtest/gtest.h>

TEST(MutexLock, CreatesANormalMutexFromItsInitializer)
{
    VornMutex* mutex = VORN_MUTEX_INITIALIZER;
    EXPECT_EQ(VornMutexLock(&mutex), VORN_OK);
    EXPECT_NE(mutex, VORN_MUTEX_INITIALIZER);
    EXPECT_EQ(VornMutexTryLock(&mutex), VORN_E_BUSY);
    EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
    EXPECT_EQ(mutex, nullptr);
}

TEST(MutexLock, RecursiveThreeTimesNeedsThreeUnlocks)
{
    VornMutex* mutex = VORN_RECURSIVE_MUTEX_INITIALIZER;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(VornMutexLock(&mutex), VORN_OK);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(VornMutexUnlock(&mutex), VORN_OK);
    EXPECT_EQ(VornMutexUnlock(&mutex), VORN_E_NOT_PERMITTED);
    EXPECT_EQ(VornMutexDestroy(&mutex), VORN_OK);
}
