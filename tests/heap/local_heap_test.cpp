// Heaps over memory of the caller, through the C interface.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "heap/layout_checker.h"
#include "support/child_process.h"
#include "support/failing_call.h"
#include "support/guard_buffer.h"
#include "support/leak_watch.h"

#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace heap_test;
using namespace vorn_test;

namespace {

constexpr uint64_t kFailed = ~uint64_t{0};

class LocalHeap : public testing::Test {
protected:
    LocalHeap() : area(4096)
    {
        VornInitialize();
        std::memset(area.Data(), 0xA5, area.Size());
        heap = VornHeapCreateLocal(area.Data(), area.Size(), 0);
    }
    ~LocalHeap() override
    {
        Write32(area.Data(), 36, 0);
        Write32(area.Data(), 40, 0);
        VornHeapDestroy(heap);
        VornTerminate();
    }

    GuardBuffer area;
    VornHeap* heap;
};

// Every operation that enters a heap, with the status that it gives.
std::vector<VornStatus> StatusesOfEntering(VornHeap* heap)
{
    std::vector<VornStatus> statuses;
    VornSetLastError(77);
    EXPECT_EQ(VornHeapAlloc(heap, 8), 0u);
    statuses.push_back(VornGetLastError());
    statuses.push_back(VornHeapFree(heap, 0));
    EXPECT_EQ(VornGetLastError(), statuses.back());
    statuses.push_back(VornHeapCheck(heap));
    EXPECT_EQ(VornGetLastError(), statuses.back());
    EXPECT_EQ(VornHeapAllocated(heap), 0u);
    statuses.push_back(VornGetLastError());
    EXPECT_EQ(VornHeapSize(heap), 0u);
    statuses.push_back(VornGetLastError());
    EXPECT_EQ(VornHeapFreeMax(heap), 0u);
    statuses.push_back(VornGetLastError());
    EXPECT_EQ(VornHeapFreeMaxBlk(heap), 0u);
    statuses.push_back(VornGetLastError());
    EXPECT_EQ(VornHeapFreeTotal(heap), kFailed);
    statuses.push_back(VornGetLastError());
    statuses.push_back(VornHeapEnumerate(
        heap, [](uint64_t, uint64_t, void*, uint64_t) { return 1; }, nullptr));
    EXPECT_EQ(VornGetLastError(), statuses.back());
    statuses.push_back(VornHeapSave(heap, L"never.image"));
    EXPECT_EQ(VornGetLastError(), statuses.back());
    statuses.push_back(VornHeapLoad(heap, L"never.image"));
    EXPECT_EQ(VornGetLastError(), statuses.back());
    statuses.push_back(VornHeapDestroy(heap));
    EXPECT_EQ(VornGetLastError(), statuses.back());
    return statuses;
}

void ExpectAll(const std::vector<VornStatus>& statuses, VornStatus expected)
{
    for (size_t i = 0; i < statuses.size(); ++i) EXPECT_EQ(statuses[i], expected) << "operation " << i;
}

struct Seen {
    uint64_t offset, size, preceding;
};

int32_t Collect(uint64_t offset, uint64_t size, void* context, uint64_t preceding)
{
    static_cast<std::vector<Seen>*>(context)->push_back({offset, size, preceding});
    return 1;
}

}  // namespace

TEST_F(LocalHeap, CreationLaysTheHeapOutAndClearsTheLastError)
{
    EXPECT_NE(heap, nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(LookAtHeap(area.Data(), area.Size()).problem, "");
    EXPECT_EQ(Read32(area.Data(), 32), 1u);
    EXPECT_EQ(Read32(area.Data(), 36), 0u);
}

TEST_F(LocalHeap, CreationRefusesNullAndSmallAreas)
{
    EXPECT_EQ(VornHeapCreateLocal(nullptr, 4096, 0), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    GuardBuffer small(268);
    std::memset(small.Data(), 0xA5, 268);
    for (uint64_t size : {0, 1, 268}) {
        EXPECT_EQ(VornHeapCreateLocal(small.Data(), size, 0), nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
    }
    for (size_t i = 0; i < 268; ++i) ASSERT_EQ(small.Data()[i], 0xA5);
}

TEST_F(LocalHeap, TheSmallestAreaAndEveryAlignmentOfItWork)
{
    for (size_t shift = 0; shift < 8; ++shift) {
        GuardBuffer bytes(269 + shift);
        VornHeap* smallest = VornHeapCreateLocal(bytes.Data() + shift, 269, 1);
        ASSERT_NE(smallest, nullptr);
        EXPECT_EQ(VornHeapSize(smallest), 268u);
        const uint64_t block = VornHeapAlloc(smallest, 32);
        EXPECT_EQ(block, 200u);
        EXPECT_EQ(VornHeapAlloc(smallest, 0), 0u);
        EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
        EXPECT_EQ(VornHeapFree(smallest, block), VORN_OK);
        EXPECT_EQ(VornHeapDestroy(smallest), VORN_OK);
    }
}

TEST_F(LocalHeap, HandlesThatAreNotOpenAreRefusedByEveryFunction)
{
    VornFile* file = VornFileCreate(L"handle.tmp", VORN_FILE_CREATE_ALWAYS, VORN_FILE_ACCESS_READ_WRITE,
                                    VORN_FALSE, nullptr, nullptr);
    ASSERT_NE(file, nullptr);
    int local = 0;
    for (void* handle : {static_cast<void*>(nullptr), static_cast<void*>(&local), static_cast<void*>(file)}) {
        VornHeap* none = static_cast<VornHeap*>(handle);
        ExpectAll(StatusesOfEntering(none), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornHeapGetBasePtr(none), nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornHeapGetUsrHdrOff(none), 0u);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornHeapGetUsrHdrSize(none), 0u);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    }
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    VornFileDelete(L"handle.tmp");
}

TEST_F(LocalHeap, ADestroyedHandleIsRefusedAndTheMemoryIsLeftAlone)
{
    GuardBuffer bytes(1024);
    VornHeap* other = VornHeapCreateLocal(bytes.Data(), 1024, 1);
    VornHeapAlloc(other, 10);
    const std::vector<uint8_t> before(bytes.Data(), bytes.Data() + 1024);
    EXPECT_EQ(VornHeapDestroy(other), VORN_OK);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(std::vector<uint8_t>(bytes.Data(), bytes.Data() + 1024), before);
    EXPECT_EQ(VornHeapDestroy(other), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornHeapAlloc(other, 1), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
}

TEST_F(LocalHeap, BaseAndUserHeaderAreReadWithoutEntering)
{
    Write32(area.Data(), 44, 123);
    Write64(area.Data(), 48, 456);
    Write32(area.Data(), 40, 1);  // state flag
    Write32(area.Data(), 36, 1);  // users
    EXPECT_EQ(VornHeapGetBasePtr(heap), area.Data());
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornHeapGetUsrHdrSize(heap), 123u);
    EXPECT_EQ(VornHeapGetUsrHdrOff(heap), 456u);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
}

TEST_F(LocalHeap, AllocationGivesOffsetsAndFreeTakesThem)
{
    const uint64_t block = VornHeapAlloc(heap, 100);
    EXPECT_EQ(block, 4064u - 104u);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornHeapFree(heap, block), VORN_OK);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornHeapFree(heap, block), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornGetLastError(), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapFree(heap, 0), VORN_OK);
    EXPECT_EQ(VornHeapFree(heap, 8), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornHeapFree(heap, 1u << 20), VORN_E_INVALID_ARG);
    EXPECT_EQ(LookAtHeap(area.Data(), area.Size()).problem, "");
}

TEST_F(LocalHeap, StatisticsOfANewHeap)
{
    EXPECT_EQ(VornHeapSize(heap), 4096u);
    EXPECT_EQ(VornHeapAllocated(heap), 200u);
    EXPECT_EQ(VornHeapFreeMax(heap), 3860u);
    EXPECT_EQ(VornHeapFreeMaxBlk(heap), 3860u);
    EXPECT_EQ(VornHeapFreeTotal(heap), 3896u);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
}

TEST_F(LocalHeap, StatisticsOfAFullHeap)
{
    ASSERT_EQ(VornHeapAlloc(heap, 3860), 200u);
    EXPECT_EQ(VornHeapAllocated(heap), 4064u);
    EXPECT_EQ(VornHeapFreeMax(heap), 3860u);
    EXPECT_EQ(VornHeapFreeMaxBlk(heap), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornHeapFreeTotal(heap), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornHeapAlloc(heap, 0), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
}

TEST_F(LocalHeap, OverwritingOneByteAfterABlockIsFoundByFreeAndCheck)
{
    const uint64_t block = VornHeapAlloc(heap, 10);
    area.Data()[block + 10] ^= 0xFF;
    EXPECT_EQ(VornHeapFree(heap, block), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapCheck(heap), VORN_E_HEAP_CORRUPT);
    area.Data()[block + 10] ^= 0xFF;
    EXPECT_EQ(VornHeapCheck(heap), VORN_OK);
}

TEST_F(LocalHeap, ADamagedTreeIsReportedByAllocationAndStatistics)
{
    Write64(area.Data(), 64, 4000000);
    EXPECT_EQ(VornHeapAlloc(heap, 10), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapFreeMaxBlk(heap), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapFreeTotal(heap), kFailed);
    EXPECT_EQ(VornGetLastError(), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(Read32(area.Data(), 36), 0u);
}

TEST_F(LocalHeap, ATotalSizeBeyondTheAreaIsReportedByEveryOperation)
{
    Write64(area.Data(), 8, 8192);
    EXPECT_EQ(VornHeapAlloc(heap, 10), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapFree(heap, 200), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapCheck(heap), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapSize(heap), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapFreeMax(heap), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapSave(heap, L"never.image"), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapEnumerate(heap, Collect, nullptr), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(Read32(area.Data(), 36), 0u);
    EXPECT_EQ(Read32(area.Data(), 40), 0u);
    Write64(area.Data(), 8, 4096);
    EXPECT_EQ(VornHeapCheck(heap), VORN_OK);
}

TEST_F(LocalHeap, ARaisedStateFlagTurnsEveryOperationAway)
{
    Write32(area.Data(), 40, 1);
    Write32(area.Data(), 36, 1);  // the flag is looked at first
    ExpectAll(StatusesOfEntering(heap), VORN_E_BAD_STATE);
    EXPECT_EQ(Read32(area.Data(), 36), 1u);
}

TEST_F(LocalHeap, ASecondCallerIsTurnedAwayFromAHeapWithoutALock)
{
    Write32(area.Data(), 36, 1);
    ExpectAll(StatusesOfEntering(heap), VORN_E_HEAP_LOCK);
    EXPECT_EQ(Read32(area.Data(), 36), 1u);
    Write32(area.Data(), 36, 0);
    EXPECT_NE(VornHeapAlloc(heap, 1), 0u);
}

TEST_F(LocalHeap, OnlyALockingArgumentOfOneMakesALock)
{
    GuardBuffer bytes(1024);
    for (int locking : {0, 2, -1}) {
        VornHeap* other = VornHeapCreateLocal(bytes.Data(), 1024, locking);
        Write32(bytes.Data(), 36, 1);
        EXPECT_EQ(VornHeapCheck(other), VORN_E_HEAP_LOCK);
        Write32(bytes.Data(), 36, 0);
        EXPECT_EQ(VornHeapDestroy(other), VORN_OK);
    }
    VornHeap* locked = VornHeapCreateLocal(bytes.Data(), 1024, 1);
    Write32(bytes.Data(), 36, 1);
    EXPECT_EQ(VornHeapCheck(locked), VORN_OK);
    EXPECT_EQ(Read32(bytes.Data(), 36), 1u);
    EXPECT_EQ(VornHeapDestroy(locked), VORN_OK);
}

TEST_F(LocalHeap, TheUserCountReturnsToWhatItWasOnEveryPath)
{
    const auto expectNobodyInside = [this](VornStatus expected) {
        EXPECT_EQ(VornGetLastError(), expected);
        EXPECT_EQ(Read32(area.Data(), 36), 0u);
    };
    const uint64_t block = VornHeapAlloc(heap, 10);
    expectNobodyInside(VORN_OK);
    VornHeapAlloc(heap, 100000);
    expectNobodyInside(VORN_E_NO_MEMORY);
    VornHeapFree(heap, 7);
    expectNobodyInside(VORN_E_INVALID_ARG);
    VornHeapCheck(heap);
    expectNobodyInside(VORN_OK);
    VornHeapLoad(heap, L"no-such.image");
    expectNobodyInside(VORN_E_NOT_FOUND);
    VornHeapFree(heap, block);
    expectNobodyInside(VORN_OK);
    // While a call is inside, it is counted.
    VornHeapAlloc(heap, 10);
    uint8_t* const base = area.Data();
    EXPECT_EQ(VornHeapEnumerate(
                  heap,
                  [](uint64_t, uint64_t, void* context, uint64_t) -> int32_t {
                      EXPECT_EQ(Read32(static_cast<uint8_t*>(context), 36), 1u);
                      return 1;
                  },
                  base),
              VORN_OK);
    expectNobodyInside(VORN_OK);
}

TEST_F(LocalHeap, ALockedHeapServesSeveralThreads)
{
    GuardBuffer bytes(1 << 20);
    VornHeap* locked = VornHeapCreateLocal(bytes.Data(), bytes.Size(), 1);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::vector<uint64_t> blocks;
            uint32_t random = t + 1;
            for (int i = 0; i < 3000; ++i) {
                random = random * 1664525 + 1013904223;
                if (blocks.size() < 50 && (random >> 16) % 2 == 0) {
                    const uint64_t size = (random >> 8) % 300;
                    const uint64_t block = VornHeapAlloc(locked, size);
                    if (block == 0) {
                        ++failures;
                        continue;
                    }
                    std::memset(bytes.Data() + block, static_cast<int>(t), size);
                    blocks.push_back(block);
                } else if (!blocks.empty()) {
                    if (VornHeapFree(locked, blocks.back()) != VORN_OK) ++failures;
                    blocks.pop_back();
                }
            }
            for (uint64_t block : blocks) {
                if (VornHeapFree(locked, block) != VORN_OK) ++failures;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(VornHeapAllocated(locked), 200u);
    EXPECT_EQ(LookAtHeap(bytes.Data(), bytes.Size()).problem, "");
    EXPECT_EQ(VornHeapDestroy(locked), VORN_OK);
}

TEST_F(LocalHeap, AnUnlockedHeapNeverLetsTwoThreadsInAtOnce)
{
    GuardBuffer bytes(1 << 18);
    VornHeap* unlocked = VornHeapCreateLocal(bytes.Data(), bytes.Size(), 0);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                const uint64_t block = VornHeapAlloc(unlocked, 40);
                if (block == 0) {
                    if (VornGetLastError() != VORN_E_HEAP_LOCK) ++wrong;
                    continue;
                }
                VornStatus status;
                while ((status = VornHeapFree(unlocked, block)) == VORN_E_HEAP_LOCK)
                    std::this_thread::yield();
                if (status != VORN_OK) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(LookAtHeap(bytes.Data(), bytes.Size()).problem, "");
    EXPECT_EQ(VornHeapAllocated(unlocked), 200u);
    EXPECT_EQ(VornHeapDestroy(unlocked), VORN_OK);
}

TEST_F(LocalHeap, EnumerationOfANewHeapCallsNobody)
{
    std::vector<Seen> seen;
    EXPECT_EQ(VornHeapEnumerate(heap, Collect, &seen), VORN_OK);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_TRUE(seen.empty());
}

TEST_F(LocalHeap, EnumerationGivesEveryBlockOfAtLeastOneByteInOrder)
{
    const uint64_t a = VornHeapAlloc(heap, 10);
    const uint64_t none = VornHeapAlloc(heap, 0);
    const uint64_t b = VornHeapAlloc(heap, 20);
    const uint64_t freed = VornHeapAlloc(heap, 30);
    const uint64_t c = VornHeapAlloc(heap, 40);
    ASSERT_EQ(VornHeapFree(heap, freed), VORN_OK);
    std::vector<Seen> seen;
    EXPECT_EQ(VornHeapEnumerate(heap, Collect, &seen), VORN_OK);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].offset, c);
    EXPECT_EQ(seen[0].size, 40u);
    EXPECT_EQ(seen[0].preceding, 168u);
    EXPECT_EQ(seen[1].offset, b);
    EXPECT_EQ(seen[1].size, 20u);
    EXPECT_EQ(seen[1].preceding, freed - 32);
    EXPECT_EQ(seen[2].offset, a);
    EXPECT_EQ(seen[2].preceding, none - 32);
    EXPECT_EQ(Read32(area.Data(), 40), 0u);
    EXPECT_EQ(Read32(area.Data(), 36), 0u);
}

TEST_F(LocalHeap, EnumerationNeedsACallback)
{
    EXPECT_EQ(VornHeapEnumerate(heap, nullptr, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_EQ(Read32(area.Data(), 40), 0u);
}

TEST_F(LocalHeap, CallsFromTheCallbackFindTheHeapInUse)
{
    VornHeapAlloc(heap, 10);
    VornHeap* const inUse = heap;
    EXPECT_EQ(VornHeapEnumerate(
                  heap,
                  [](uint64_t, uint64_t, void* context, uint64_t) -> int32_t {
                      ExpectAll(StatusesOfEntering(static_cast<VornHeap*>(context)), VORN_E_BAD_STATE);
                      return 1;
                  },
                  inUse),
              VORN_OK);
    EXPECT_EQ(VornHeapCheck(heap), VORN_OK);
}

TEST_F(LocalHeap, AStoppedEnumerationLeavesTheHeapOutOfUse)
{
    VornHeapAlloc(heap, 10);
    VornHeapAlloc(heap, 10);
    int calls = 0;
    const VornHeapCallback stop = [](uint64_t, uint64_t, void* context, uint64_t) -> int32_t {
        ++*static_cast<int*>(context);
        return 0;
    };
    EXPECT_EQ(VornHeapEnumerate(heap, stop, &calls), VORN_E_STOPPED);
    EXPECT_EQ(VornGetLastError(), VORN_E_STOPPED);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(Read32(area.Data(), 40), 1u);
    EXPECT_EQ(Read32(area.Data(), 36), 0u);
    ExpectAll(StatusesOfEntering(heap), VORN_E_BAD_STATE);
}

TEST_F(LocalHeap, AnEnumerationThatMeetsDamageLeavesTheHeapOutOfUse)
{
    VornHeapAlloc(heap, 10);
    const uint64_t damaged = VornHeapAlloc(heap, 10);
    area.Data()[damaged + 10] ^= 1;
    std::vector<Seen> seen;
    EXPECT_EQ(VornHeapEnumerate(heap, Collect, &seen), VORN_E_HEAP_CORRUPT);
    EXPECT_TRUE(seen.empty());
    EXPECT_EQ(Read32(area.Data(), 40), 1u);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_E_BAD_STATE);
}

TEST_F(LocalHeap, AnEarlyEndOfAnEnumerationReleasesTheLock)
{
    GuardBuffer bytes(1024);
    VornHeap* locked = VornHeapCreateLocal(bytes.Data(), 1024, 1);
    VornHeapAlloc(locked, 10);
    EXPECT_EQ(VornHeapEnumerate(
                  locked, [](uint64_t, uint64_t, void*, uint64_t) { return 0; }, nullptr),
              VORN_E_STOPPED);
    Write32(bytes.Data(), 40, 0);
    EXPECT_EQ(VornHeapCheck(locked), VORN_OK);
    EXPECT_EQ(VornHeapDestroy(locked), VORN_OK);
}

TEST_F(LocalHeap, EveryFailureOfCreationIsReportedAndLeavesNothing)
{
    GuardBuffer bytes(1024);
    VornHeapDestroy(VornHeapCreateLocal(bytes.Data(), 1024, 1));
    LeakWatch watch;
    const auto create = [&] {
        VornHeap* made = VornHeapCreateLocal(bytes.Data(), 1024, 1);
        if (made != nullptr) {
            EXPECT_EQ(VornGetLastError(), VORN_OK);
            EXPECT_EQ(VornHeapDestroy(made), VORN_OK);
        } else {
            const VornStatus status = VornGetLastError();
            EXPECT_TRUE(status == VORN_E_NO_MEMORY || status == VORN_E_SYSTEM) << status;
        }
    };
    EXPECT_GE(FailEachCallInTurn(kAllocations, create), 2);
    EXPECT_GE(FailEachCallInTurn(kCreateEvent, create), 1);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(LocalHeap, AMutexThatCannotBeMadeGivesItsStatus)
{
    GuardBuffer bytes(1024);
    FailingCall fail(kCreateEvent);
    EXPECT_EQ(VornHeapCreateLocal(bytes.Data(), 1024, 1), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_SYSTEM);
    EXPECT_EQ(fail.Failures(), 1);
}
