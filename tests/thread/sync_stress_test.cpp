#include "thread/sync_stress.h"

using namespace vorn_test;

TEST(SyncStress, ABoundedBufferLosesNothingAndDoublesNothing)
{
    EXPECT_EQ(BoundedBufferRun(4, 4, 0, 50000, GetTickCount64()), "");
}

TEST(SyncStress, ABoundedBufferSurvivesCancelledConsumers)
{
    EXPECT_EQ(BoundedBufferRun(2, 2, 10, 10000, GetTickCount64()), "");
}

TEST(SyncStress, EveryWakeUpFindsAWaiter)
{
    EXPECT_EQ(WakeUpRun(6, 5000, GetTickCount64()), "");
}

TEST(SyncStress, WritersAreAloneAndReadersSeeWholeRecords)
{
    EXPECT_EQ(ReadersAndWritersRun(5, 3, 20000, GetTickCount64()), "");
}
