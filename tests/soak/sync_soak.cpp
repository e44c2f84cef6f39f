// sync_soak.cpp - the stress runs of the synchronisation objects in full length.
#include "thread/barrier_run.h"
#include "thread/sync_stress.h"

using namespace vorn_test;

namespace {

class SyncSoak : public testing::Test {
protected:
    static void SetUpTestSuite() { patienceMs = 30 * 60 * 1000; }
};

}  // namespace

TEST_F(SyncSoak, AMillionItemsThroughABoundedBuffer)
{
    EXPECT_EQ(BoundedBufferRun(4, 4, 0, 1000000, GetTickCount64()), "");
}

TEST_F(SyncSoak, AHundredCancelledConsumers)
{
    EXPECT_EQ(BoundedBufferRun(3, 3, 100, 200000, GetTickCount64()), "");
}

TEST_F(SyncSoak, AHundredThousandWakeUps)
{
    EXPECT_EQ(WakeUpRun(8, 100000, GetTickCount64()), "");
}

TEST_F(SyncSoak, ReadersAndWriters)
{
    EXPECT_EQ(ReadersAndWritersRun(8, 4, 100000, GetTickCount64()), "");
}

TEST_F(SyncSoak, TenThousandPhasesOfEightThreads)
{
    EXPECT_EQ(BarrierRun(8, 10000), "");
}
