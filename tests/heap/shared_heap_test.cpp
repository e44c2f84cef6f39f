// Heaps in named shared memory, within one process and across real child processes, and shared memory itself.

#include "heap/shared_heap_fixture.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <cstring>
#include <vector>

using namespace heap_test;
using namespace vorn_test;

TEST_F(SharedHeap, ANewOneHoldsItsNameInTheCodePageAndCountsOneHandle)
{
    name += L"\u00E9";
    VornHeap* heap = Open();
    ASSERT_NE(heap, nullptr);
    const uint8_t* base = Base(heap);
    EXPECT_EQ(LookAtHeap(base, kSize).problem, "");
    EXPECT_EQ(Read32(base, 32), 1u);
    EXPECT_EQ(Read64(base, 16), 1u);
    EXPECT_EQ(VornHeapGetUsrHdrOff(heap), 0u);
    EXPECT_EQ(VornHeapGetUsrHdrSize(heap), 0u);
    char expected[200] = {};
    uint32_t size = sizeof expected;
    ASSERT_EQ(VornUtf16ToCodepage(name.c_str(), -1, expected, &size), VORN_OK);
    const uint64_t block = Read64(base, 56);
    EXPECT_STREQ(reinterpret_cast<const char*>(base + block), expected);
    EXPECT_EQ(Read64(base, block - 8), std::strlen(expected) + 1);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

TEST_F(SharedHeap, AUserHeaderIsABlockOfItsOwn)
{
    VornHeap* heap = Open(kSize, 100);
    const uint64_t offset = VornHeapGetUsrHdrOff(heap);
    EXPECT_EQ(VornHeapGetUsrHdrSize(heap), 100u);
    EXPECT_NE(offset, 0u);
    EXPECT_EQ(Read64(Base(heap), offset - 8), 100u);
    EXPECT_EQ(Read64(Base(heap), 16), 2u);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

TEST_F(SharedHeap, ArgumentsAreCheckedBeforeAnythingIsCreated)
{
    EXPECT_EQ(VornHeapCreateShared(kSize, nullptr, 0, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    const uint64_t least = name.size() + 100 + 541;
    EXPECT_EQ(VornHeapCreateShared(least - 1, name.c_str(), 100, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
    EXPECT_EQ(OpenSemaphoreW(SYNCHRONIZE, FALSE, GlobalLock(name).c_str()), nullptr);
    VornHeap* heap = VornHeapCreateShared(least, name.c_str(), 100, nullptr);
    ASSERT_NE(heap, nullptr);
    EXPECT_EQ(VornHeapGetUsrHdrSize(heap), 100u);
    EXPECT_EQ(LookAtHeap(Base(heap), least).problem, "");
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

TEST_F(SharedHeap, ASecondHandleSeesTheSameBlocksAtItsOwnAddress)
{
    VornHeap* first = Open();
    const uint64_t block = VornHeapAlloc(first, 10);
    std::memcpy(Base(first) + block, "contents", 9);
    VornHeap* second = Open();
    ASSERT_NE(second, first);
    EXPECT_NE(Base(second), Base(first));
    EXPECT_EQ(Read32(Base(second), 32), 2u);
    EXPECT_STREQ(reinterpret_cast<const char*>(Base(second) + block), "contents");
    EXPECT_EQ(VornHeapFree(second, block), VORN_OK);
    EXPECT_EQ(VornHeapFree(first, block), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapDestroy(second), VORN_OK);
    EXPECT_EQ(VornHeapDestroy(first), VORN_OK);
}

TEST_F(SharedHeap, OnlyTheLastHandleUnmapsItsMemory)
{
    VornHeap* first = Open();
    VornHeap* second = Open();
    uint8_t* const firstBase = Base(first);
    uint8_t* const secondBase = Base(second);
    EXPECT_EQ(VornHeapDestroy(first), VORN_OK);
    EXPECT_TRUE(IsMapped(firstBase));
    EXPECT_EQ(Read32(secondBase, 32), 1u);
    EXPECT_EQ(VornHeapDestroy(second), VORN_OK);
    EXPECT_FALSE(IsMapped(secondBase));
    EXPECT_EQ(VornSharedMemFree(firstBase), VORN_OK);
    EXPECT_FALSE(IsMapped(firstBase));
}

TEST_F(SharedHeap, AHandleOnOnlyPartOfAHeapFindsItDamaged)
{
    VornHeap* whole = Open();
    VornHeap* part = Open(4096);
    EXPECT_EQ(VornHeapAlloc(part, 1), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapCheck(part), VORN_E_HEAP_CORRUPT);
    EXPECT_EQ(VornHeapCheck(whole), VORN_OK);
    EXPECT_EQ(VornHeapDestroy(part), VORN_OK);
    EXPECT_EQ(VornHeapDestroy(whole), VORN_OK);
}

TEST_F(SharedHeap, ItsLockIsFreeAfterEveryOperation)
{
    VornHeap* heap = Open();
    HANDLE lock = OpenSemaphoreW(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, GlobalLock(name).c_str());
    ASSERT_NE(lock, nullptr);
    const auto expectFree = [lock](const char* after) {
        EXPECT_TRUE(WaitBounded(lock, 0)) << after;
        LONG count = 0;
        ReleaseSemaphore(lock, 1, &count);
        EXPECT_EQ(count, 0) << after;
    };
    expectFree("creation");
    const uint64_t block = VornHeapAlloc(heap, 10);
    expectFree("alloc");
    VornHeapFree(heap, block);
    expectFree("free");
    VornHeapFree(heap, 12345);
    expectFree("failed free");
    VornHeapCheck(heap);
    expectFree("check");
    VornHeapAlloc(heap, 10);
    VornHeapEnumerate(
        heap, [](uint64_t, uint64_t, void*, uint64_t) { return 0; }, nullptr);
    expectFree("stopped enumeration");
    EXPECT_EQ(VornHeapCheck(heap), VORN_E_BAD_STATE);
    expectFree("refused check");
    Write32(Base(heap), 40, 0);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
    expectFree("destruction");
    CloseHandle(lock);
}

TEST_F(SharedHeap, AMappingThatFailsGivesAHandleThatWasNeverOpened)
{
    FailingCall fail({"MapViewOfFileEx", 0, kNotEnoughMemory});
    VornHeap* heap = VornHeapCreateShared(kSize, name.c_str(), 0, nullptr);
    EXPECT_EQ(fail.Failures(), 1);
    EXPECT_EQ(VornGetLastError(), VORN_E_MAPPING);
    EXPECT_NE(heap, nullptr);
    EXPECT_EQ(VornHeapAlloc(heap, 1), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornHeapGetBasePtr(heap), nullptr);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_E_INVALID_ARG);
    // The lock was left open.
    HANDLE lock = OpenSemaphoreW(SYNCHRONIZE, FALSE, GlobalLock(name).c_str());
    EXPECT_NE(lock, nullptr);
    CloseHandle(lock);
}

TEST_F(SharedHeap, ALockWithoutAHeapThatSomeoneKeepsOpenIsReported)
{
    HANDLE lock = CreateSemaphoreW(nullptr, 1, 1, GlobalLock(name).c_str());
    EXPECT_EQ(VornHeapCreateShared(kSize, name.c_str(), 0, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_EXISTS);
    EXPECT_EQ(OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str()), nullptr);
    CloseHandle(lock);
    VornHeap* heap = Open();
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

namespace {

HANDLE staleLock = nullptr;
void* WINAPI MapAndDropStaleLock(HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size,
                                 void* address)
{
    CloseHandle(staleLock);
    return MapViewOfFileEx(mapping, access, high, low, size, address);
}

}  // namespace

TEST_F(SharedHeap, AStaleLockWhoseOwnerIsGoneIsMadeAnewWithTheHeap)
{
    // A taken lock whose last other owner goes while the heap is being opened.
    staleLock = CreateSemaphoreW(nullptr, 0, 1, GlobalLock(name).c_str());
    VornHeap* heap;
    {
        ImportRedirect redirect("MapViewOfFileEx", MapAndDropStaleLock);
        ASSERT_TRUE(redirect.Found());
        heap = Open();
    }
    ASSERT_NE(heap, nullptr);
    EXPECT_EQ(Read32(Base(heap), 32), 1u);
    EXPECT_NE(VornHeapAlloc(heap, 10), 0u);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

TEST_F(SharedHeap, ALockThatCannotBeClosedIsReportedAndTheMemoryGoesAllTheSame)
{
    VornHeap* heap = Open();
    uint8_t* const base = Base(heap);
    FailingCall fail(kCloseHandle);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_E_SYSTEM);
    EXPECT_EQ(VornGetLastError(), VORN_E_SYSTEM);
    EXPECT_FALSE(IsMapped(base));
    EXPECT_EQ(VornHeapDestroy(heap), VORN_E_INVALID_ARG);
}

TEST_F(SharedHeap, ALockThatCannotBeTakenIsReportedAndTheUserCountIsRight)
{
    VornHeap* heap = Open();
    long failures = FailEachCallInTurn({kWaitForSingleObject, kWaitForMultipleObjects}, [&] {
        const VornStatus status = VornHeapCheck(heap);
        EXPECT_TRUE(status == VORN_OK || status == VORN_E_SYSTEM);
        EXPECT_EQ(Read32(Base(heap), 36), 0u);
    });
    EXPECT_GE(failures, 1);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

TEST_F(SharedHeap, EveryFailureOfCreationIsReportedAndTheNextOneWorks)
{
    VornHeapDestroy(Open());
    const auto create = [&] {
        VornHeap* heap = VornHeapCreateShared(kSize, name.c_str(), 50, nullptr);
        const VornStatus status = VornGetLastError();
        if (status == VORN_OK) {
            EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
        } else {
            EXPECT_TRUE(status == VORN_E_NO_MEMORY || status == VORN_E_SYSTEM || status == VORN_E_MAPPING ||
                        status == VORN_E_EXISTS || status == VORN_E_CONVERSION)
                << status;
            EXPECT_EQ(VornHeapCheck(heap), VORN_E_INVALID_ARG);
            // Where a mapping failed the lock stays open; another name finds none.
            name = UniqueName(L"shared");
        }
    };
    EXPECT_GE(FailEachCallInTurn(kAllocations, create), 5);
    EXPECT_GE(FailEachCallInTurn(kCreateSemaphore, create), 1);
    EXPECT_GE(FailEachCallInTurn({"CreateFileMappingW", 0, kNotEnoughMemory}, create), 1);
    EXPECT_GE(FailEachCallInTurn({"MapViewOfFileEx", 0, kNotEnoughMemory}, create), 1);
    VornHeapDestroy(Open());
}

TEST_F(SharedHeap, CreationAndDestructionLeaveNothingBehind)
{
    VornHeapDestroy(Open());
    LeakWatch watch;
    VornHeap* heap = Open(kSize, 30);
    VornHeap* second = Open();
    uint8_t* const base = Base(second);
    EXPECT_EQ(VornHeapDestroy(second), VORN_OK);
    EXPECT_EQ(VornSharedMemFree(base), VORN_OK);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(SharedHeap, AnImageLoadedIntoItKeepsItsNameAndHandles)
{
    const std::wstring file = UniqueName(L"heap") + L".image";
    VornHeap* heap = Open();
    VornHeap* second = Open();
    const uint64_t block = VornHeapAlloc(heap, 20);
    std::memcpy(Base(heap) + block, "kept", 5);
    ASSERT_EQ(VornHeapSave(heap, file.c_str()), VORN_OK);
    std::memset(Base(heap) + block, 0, 5);
    ASSERT_EQ(VornHeapLoad(second, file.c_str()), VORN_OK);
    EXPECT_STREQ(reinterpret_cast<const char*>(Base(heap) + block), "kept");
    EXPECT_EQ(Read32(Base(heap), 32), 2u);
    EXPECT_EQ(LookAtHeap(Base(heap), kSize).problem, "");
    uint8_t* const base = Base(second);
    EXPECT_EQ(VornHeapDestroy(second), VORN_OK);
    EXPECT_EQ(VornSharedMemFree(base), VORN_OK);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
    DeleteFileW(file.c_str());
}

// ---- Several processes ----

// Arguments: the heap's name, an address to keep away from, the offset of a block with "from parent".
VORN_CHILD(AttachElsewhere)
{
    VornInitialize();
    void* const parents = reinterpret_cast<void*>(std::stoull(arguments[1]));
    VirtualAlloc(parents, kSize, MEM_RESERVE, PAGE_NOACCESS);
    VornHeap* heap = VornHeapCreateShared(kSize, arguments[0].c_str(), 0, nullptr);
    if (VornGetLastError() != VORN_OK) return 1;
    if (VornHeapGetBasePtr(heap) == parents) return 2;
    const uint64_t fromParent = std::stoull(arguments[2]);
    if (std::strcmp(reinterpret_cast<const char*>(Base(heap) + fromParent), "from parent") != 0) return 3;
    if (VornHeapCheck(heap) != VORN_OK) return 4;
    const uint64_t block = VornHeapAlloc(heap, 11);
    std::memcpy(Base(heap) + block, "from child", 11);
    Write64(Base(heap), fromParent + 16, block);
    return VornHeapDestroy(heap) == VORN_OK ? 7 : 5;
}

TEST_F(SharedHeap, ProcessesShareItAtDifferentAddresses)
{
    VornHeap* heap = Open();
    const uint64_t block = VornHeapAlloc(heap, 24);
    std::memcpy(Base(heap) + block, "from parent", 12);
    ChildProcess child("AttachElsewhere", {name, std::to_wstring(reinterpret_cast<uintptr_t>(Base(heap))),
                                           std::to_wstring(block)});
    ASSERT_EQ(child.Wait(), 7u);
    const uint64_t answer = Read64(Base(heap), block + 16);
    EXPECT_STREQ(reinterpret_cast<const char*>(Base(heap) + answer), "from child");
    EXPECT_EQ(VornHeapFree(heap, answer), VORN_OK);
    EXPECT_EQ(Read32(Base(heap), 32), 1u);
    EXPECT_EQ(VornHeapCheck(heap), VORN_OK);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

// Arguments: the heap's name, the event that says go, a seed.
VORN_CHILD(AllocateAndFree)
{
    VornInitialize();
    VornHeap* heap = VornHeapCreateShared(kSize, arguments[0].c_str(), 0, nullptr);
    if (VornGetLastError() != VORN_OK) return 1;
    Event go(arguments[1].c_str());
    if (!go.Wait()) return 2;
    uint32_t random = static_cast<uint32_t>(std::stoul(arguments[2]));
    const int fill = static_cast<int>(random);
    std::vector<std::pair<uint64_t, uint64_t>> blocks;
    for (int i = 0; i < 400; ++i) {
        random = random * 1664525 + 1013904223;
        if (blocks.size() < 30 && (random >> 16) % 2 == 0) {
            const uint64_t size = (random >> 8) % 200;
            const uint64_t block = VornHeapAlloc(heap, size);
            if (block == 0) return 3;
            std::memset(Base(heap) + block, fill, size);
            blocks.emplace_back(block, size);
        } else if (!blocks.empty()) {
            const auto [block, size] = blocks.back();
            for (uint64_t b = 0; b < size; ++b) {
                if (Base(heap)[block + b] != static_cast<uint8_t>(fill)) return 4;
            }
            if (VornHeapFree(heap, block) != VORN_OK) return 5;
            blocks.pop_back();
        }
    }
    for (const auto& [block, size] : blocks) {
        if (VornHeapFree(heap, block) != VORN_OK) return 6;
    }
    return VornHeapDestroy(heap) == VORN_OK ? 7 : 8;
}

TEST_F(SharedHeap, SeveralProcessesWorkInItAtOnce)
{
    VornHeap* heap = Open();
    const uint64_t inUse = VornHeapAllocated(heap);
    const std::wstring goName = UniqueName(L"go");
    Event go(goName.c_str());
    {
        ChildProcess first("AllocateAndFree", {name, goName, L"1"});
        ChildProcess second("AllocateAndFree", {name, goName, L"2"});
        ChildProcess third("AllocateAndFree", {name, goName, L"3"});
        go.Set();
        EXPECT_EQ(first.Wait(), 7u);
        EXPECT_EQ(second.Wait(), 7u);
        EXPECT_EQ(third.Wait(), 7u);
    }
    EXPECT_EQ(LookAtHeap(Base(heap), kSize).problem, "");
    EXPECT_EQ(VornHeapAllocated(heap), inUse);
    EXPECT_EQ(Read32(Base(heap), 32), 1u);
    EXPECT_EQ(Read32(Base(heap), 36), 0u);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

// Arguments: the heap's name, the event that says ready, "hold" to take the heap's lock first.
VORN_CHILD(WaitToBeKilled)
{
    VornInitialize();
    VornHeap* heap = VornHeapCreateShared(kSize, arguments[0].c_str(), 0, nullptr);
    if (VornGetLastError() != VORN_OK) return 1;
    if (VornHeapAlloc(heap, 50) == 0) return 2;
    if (arguments[2] == L"hold") {
        // As a caller inside the heap: counted, and with the lock.
        HANDLE lock = OpenSemaphoreW(SYNCHRONIZE, FALSE, GlobalLock(arguments[0]).c_str());
        if (!WaitBounded(lock)) return 3;
        VornAtomicInc32(reinterpret_cast<int32_t*>(Base(heap) + 36));
    }
    Event ready(arguments[1].c_str());
    ready.Set();
    WaitBounded(GetCurrentProcess());
    return 4;
}

TEST_F(SharedHeap, AProcessKilledOutsideItHarmsNobody)
{
    VornHeap* heap = Open();
    const std::wstring readyName = UniqueName(L"ready");
    Event ready(readyName.c_str());
    {
        ChildProcess child("WaitToBeKilled", {name, readyName, L"outside"});
        ASSERT_TRUE(ready.Wait());
        child.Kill();
        child.Wait();
    }
    EXPECT_EQ(VornHeapCheck(heap), VORN_OK);
    EXPECT_NE(VornHeapAlloc(heap, 10), 0u);
    EXPECT_EQ(Read32(Base(heap), 32), 2u);  // the handle of the dead process stays counted
    uint8_t* const base = Base(heap);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
    EXPECT_TRUE(IsMapped(base));
    EXPECT_EQ(VornSharedMemFree(base), VORN_OK);
}

// Arguments: the heap's name, the event that says that it is at work. Works until it is killed.
VORN_CHILD(WorkWithoutEnd)
{
    VornInitialize();
    VornHeap* heap = VornHeapCreateShared(kSize, arguments[0].c_str(), 0, nullptr);
    if (VornGetLastError() != VORN_OK) return 1;
    Event atWork(arguments[1].c_str());
    for (uint64_t round = 0;; ++round) {
        const uint64_t blocks[] = {VornHeapAlloc(heap, round % 100), VornHeapAlloc(heap, round % 300)};
        for (uint64_t block : blocks) {
            if (block == 0 || VornHeapFree(heap, block) != VORN_OK) return 2;
        }
        if (round == 20) atWork.Set();
    }
}

TEST_F(SharedHeap, AProcessKilledAtWorkWhileAnotherHasTheLockHarmsNobody)
{
    VornHeap* heap = Open();
    HANDLE lock = OpenSemaphoreW(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, GlobalLock(name).c_str());
    const std::wstring atWorkName = UniqueName(L"work");
    Event atWork(atWorkName.c_str());
    {
        ChildProcess child("WorkWithoutEnd", {name, atWorkName});
        ASSERT_TRUE(atWork.Wait());
        ASSERT_TRUE(WaitBounded(lock));
        child.Kill(33);
        EXPECT_EQ(child.Wait(), 33u);
    }
    EXPECT_EQ(LookAtHeap(Base(heap), kSize).problem, "");
    ReleaseSemaphore(lock, 1, nullptr);
    CloseHandle(lock);
    EXPECT_EQ(VornHeapCheck(heap), VORN_OK);
    const uint64_t block = VornHeapAlloc(heap, 100);
    EXPECT_NE(block, 0u);
    EXPECT_EQ(VornHeapFree(heap, block), VORN_OK);
    uint8_t* const base = Base(heap);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
    EXPECT_EQ(VornSharedMemFree(base), VORN_OK);  // the dead process's handle stays counted
}

// Arguments: the heap's name, the event that says that it is about to wait.
VORN_CHILD(AllocateFromATakenHeap)
{
    VornInitialize();
    VornHeap* heap = VornHeapCreateShared(kSize, arguments[0].c_str(), 0, nullptr);
    if (VornGetLastError() != VORN_OK) return 1;
    Event waits(arguments[1].c_str());
    waits.Set();
    VornHeapAlloc(heap, 10);
    return 2;
}

TEST_F(SharedHeap, AProcessKilledInsideItKeepsTheOthersWaitingUntilTheLastHandleIsGone)
{
    const std::wstring readyName = UniqueName(L"ready");
    const std::wstring waitsName = UniqueName(L"waits");
    Event ready(readyName.c_str());
    Event waits(waitsName.c_str());
    {
        ChildProcess holder("WaitToBeKilled", {name, readyName, L"hold"});
        ASSERT_TRUE(ready.Wait());
        ChildProcess waiter("AllocateFromATakenHeap", {name, waitsName});
        ASSERT_TRUE(waits.Wait());
        holder.Kill();
        holder.Wait();
        EXPECT_FALSE(WaitBounded(waiter.Process(), 1000));
        waiter.Kill();
        waiter.Wait();
    }
    VornHeap* heap = Open();
    ASSERT_NE(heap, nullptr);
    EXPECT_EQ(Read32(Base(heap), 32), 1u);
    EXPECT_EQ(Read64(Base(heap), 16), 1u);  // the name only: a new heap
    EXPECT_NE(VornHeapAlloc(heap, 10), 0u);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

namespace {

struct Waiter {
    VornHeap* heap;
    Event* started;
    bool returned;
};

void* AllocateAndSay(void* context)
{
    Waiter* waiter = static_cast<Waiter*>(context);
    waiter->started->Set();
    VornHeapAlloc(waiter->heap, 10);
    waiter->returned = true;
    return nullptr;
}

}  // namespace

TEST_F(SharedHeap, AThreadThatWaitsForItCanBeCancelledAndLeavesWithoutTheLock)
{
    VornHeap* heap = Open();
    HANDLE lock = OpenSemaphoreW(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, GlobalLock(name).c_str());
    ASSERT_TRUE(WaitBounded(lock));
    Event started;
    Waiter waiter = {heap, &started, false};
    VornThread* thread = nullptr;
    ASSERT_EQ(VornThreadCreate(&thread, nullptr, AllocateAndSay, &waiter), VORN_OK);
    ASSERT_TRUE(started.Wait());
    EXPECT_EQ(VornThreadCancel(thread), VORN_OK);
    void* result = nullptr;
    EXPECT_EQ(VornThreadJoin(thread, &result), VORN_OK);
    EXPECT_FALSE(waiter.returned);
    EXPECT_EQ(Read32(Base(heap), 36), 0u);
    EXPECT_FALSE(WaitBounded(lock, 0));  // still ours, once
    ReleaseSemaphore(lock, 1, nullptr);
    CloseHandle(lock);
    EXPECT_NE(VornHeapAlloc(heap, 10), 0u);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

// ---- Named shared memory ----

TEST_F(SharedHeap, SharedMemoryIsZeroFilledAndJoinedByName)
{
    uint8_t* first = static_cast<uint8_t*>(VornSharedMemAlloc(4096, name.c_str(), nullptr));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    for (int i = 0; i < 4096; ++i) ASSERT_EQ(first[i], 0);
    uint8_t* second = static_cast<uint8_t*>(VornSharedMemAlloc(4096, name.c_str(), nullptr));
    ASSERT_NE(second, nullptr);
    first[100] = 42;
    EXPECT_EQ(second[100], 42);
    EXPECT_EQ(VornSharedMemFree(second + 1), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSharedMemFree(first), VORN_OK);
    EXPECT_EQ(VornSharedMemFree(first), VORN_E_INVALID_ARG);
    EXPECT_EQ(second[100], 42);
    EXPECT_EQ(VornSharedMemFree(second), VORN_OK);
}

TEST_F(SharedHeap, SharedMemoryOfNoSizeIsRefused)
{
    EXPECT_EQ(VornSharedMemAlloc(0, name.c_str(), nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSharedMemFree(nullptr), VORN_E_INVALID_ARG);
}

TEST_F(SharedHeap, SharedMemoryThatCannotBeMappedIsReported)
{
    FailingCall fail({"CreateFileMappingW", 0, kNotEnoughMemory});
    EXPECT_EQ(VornSharedMemAlloc(4096, name.c_str(), nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_MAPPING);
}
