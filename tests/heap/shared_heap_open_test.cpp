// Opening and closing shared heaps: what is asked of the system, which failures are passed over, and threads
// that open a heap while another closes it.

#include <vorn/vorn.hpp>

#include "heap/shared_heap_fixture.h"
#include "support/failing_call.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <unicode/ucnv.h>
#include <vector>

using namespace heap_test;
using namespace vorn_test;

namespace {

using SharedHeapOpen = SharedHeap;

}  // namespace

TEST_F(SharedHeapOpen, ANameThatNoSemaphoreCanHaveIsRefusedBeforeAnythingIsCreated)
{
    for (const wchar_t* part : {L"/", L"\\", L" "}) {
        const std::wstring bad = name + part + L"x";
        EXPECT_EQ(VornHeapCreateShared(kSize, bad.c_str(), 0, nullptr), nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_NAME);
        EXPECT_EQ(OpenFileMappingW(FILE_MAP_READ, FALSE, bad.c_str()), nullptr);
    }
}

TEST_F(SharedHeapOpen, AnOpeningThatFailsIsFollowedByACreationWhoseStatusCounts)
{
    VornHeap* heap;
    {
        FailingCall fail(kCreateSemaphore);
        heap = Open();
        EXPECT_EQ(fail.Failures(), 1);
    }
    {
        FailingCall fail(kCalloc);  // the record of the semaphore that is opened
        EXPECT_EQ(VornHeapCreateShared(kSize, name.c_str(), 0, nullptr), nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_EXISTS);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(Read32(Base(heap), 32), 1u);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
    {
        FailingCall fail(kCalloc);
        heap = Open();
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

namespace {

SECURITY_ATTRIBUTES* semaphoreSecurity;
SECURITY_ATTRIBUTES* mappingSecurity;

HANDLE WINAPI RememberSemaphore(SECURITY_ATTRIBUTES* security, LONG count, LONG most, LPCWSTR semaphoreName)
{
    semaphoreSecurity = security;
    return CreateSemaphoreW(security, count, most, semaphoreName);
}

HANDLE WINAPI RememberMapping(HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection, DWORD high,
                              DWORD low, LPCWSTR mappingName)
{
    mappingSecurity = security;
    return CreateFileMappingW(file, security, protection, high, low, mappingName);
}

}  // namespace

TEST_F(SharedHeapOpen, LockAndMemoryAreCreatedWithTheCallersSecurity)
{
    ImportRedirect semaphores("CreateSemaphoreW", RememberSemaphore);
    ImportRedirect mappings("CreateFileMappingW", RememberMapping);
    ASSERT_TRUE(semaphores.Found() && mappings.Found());
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, nullptr, FALSE};
    const VornSecurityDescriptor security = {&attributes};
    VornHeap* heap = VornHeapCreateShared(kSize, name.c_str(), 0, &security);
    ASSERT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(semaphoreSecurity, &attributes);
    EXPECT_EQ(mappingSecurity, &attributes);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);

    void* memory = VornSharedMemAlloc(4096, name.c_str(), nullptr);
    EXPECT_NE(memory, nullptr);
    EXPECT_EQ(mappingSecurity, nullptr);
    EXPECT_EQ(VornSharedMemFree(memory), VORN_OK);
    memory = VornSharedMemAlloc(4096, nullptr, &security);
    EXPECT_NE(memory, nullptr);
    EXPECT_EQ(mappingSecurity, &attributes);
    EXPECT_EQ(VornSharedMemFree(memory), VORN_OK);
}

TEST_F(SharedHeapOpen, AUserHeaderThatFindsNoRoomBesideALongNameIsLeftOut)
{
    const std::string before = ucnv_getDefaultName();
    ucnv_setDefaultName("UTF-8");
    name += std::wstring(140, L'\u4E2D');  // three bytes each
    const uint64_t least = name.size() + 100 + 541;
    VornHeap* heap = Open(least, 100);
    ASSERT_NE(heap, nullptr);
    EXPECT_EQ(VornHeapGetUsrHdrSize(heap), 0u);
    EXPECT_EQ(VornHeapGetUsrHdrOff(heap), 0u);
    EXPECT_EQ(Read64(Base(heap), 16), 1u);
    EXPECT_EQ(LookAtHeap(Base(heap), least).problem, "");
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
    ucnv_setDefaultName(before.c_str());
}

TEST_F(SharedHeapOpen, ANameThatFindsNoRoomIsReportedAndLeavesNothing)
{
    const std::string before = ucnv_getDefaultName();
    ucnv_setDefaultName("UTF-8");
    name += std::wstring(190, L'\u4E2D');
    EXPECT_EQ(VornHeapCreateShared(name.size() + 541, name.c_str(), 0, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
    EXPECT_EQ(OpenSemaphoreW(SYNCHRONIZE, FALSE, GlobalLock(name).c_str()), nullptr);
    EXPECT_EQ(OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str()), nullptr);
    ucnv_setDefaultName(before.c_str());
}

namespace {

struct MeanwhileOpened {
    std::wstring name;
    DWORD destroyer = 0;
    Event done;
    std::thread thread;
    VornHeap* heap = nullptr;
};
MeanwhileOpened* meanwhile;

// The destroying thread has closed the lock and has not counted itself out yet. It goes on when the other
// thread has opened the heap, or has not got so far, as it should be.
BOOL WINAPI CloseAndLetAnotherThreadOpen(HANDLE handle)
{
    const BOOL result = CloseHandle(handle);
    if (GetCurrentThreadId() != meanwhile->destroyer || meanwhile->thread.joinable()) return result;
    meanwhile->thread = std::thread([] {
        meanwhile->heap = VornHeapCreateShared(kSize, meanwhile->name.c_str(), 0, nullptr);
        meanwhile->done.Set();
    });
    meanwhile->done.Wait(300);
    return result;
}

}  // namespace

TEST_F(SharedHeapOpen, AThreadThatOpensItWhileTheLastHandleIsClosedGetsAHeapThatCountsIt)
{
    MeanwhileOpened other;
    other.name = name;
    other.destroyer = GetCurrentThreadId();
    meanwhile = &other;
    VornHeap* heap = Open();
    uint8_t* const base = Base(heap);
    {
        ImportRedirect redirect("CloseHandle", CloseAndLetAnotherThreadOpen);
        ASSERT_TRUE(redirect.Found());
        EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
        ASSERT_TRUE(other.thread.joinable());
        other.thread.join();
    }
    EXPECT_FALSE(IsMapped(base) && Base(other.heap) != base);
    ASSERT_NE(other.heap, nullptr);
    uint8_t* const otherBase = Base(other.heap);
    EXPECT_EQ(Read32(otherBase, 32), 1u);
    EXPECT_EQ(VornHeapDestroy(other.heap), VORN_OK);
    EXPECT_FALSE(IsMapped(otherBase));
}

TEST_F(SharedHeapOpen, ThreadsOpenAndCloseItSideBySide)
{
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, &failures] {
            for (int round = 0; round < 25; ++round) {
                VornHeap* heap = VornHeapCreateShared(kSize, name.c_str(), 20, nullptr);
                if (VornGetLastError() != VORN_OK) ++failures;
                const uint64_t block = VornHeapAlloc(heap, 50);
                if (block == 0 || VornHeapFree(heap, block) != VORN_OK) ++failures;
                if (VornHeapDestroy(heap) != VORN_OK) ++failures;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
    VornHeap* heap = Open();
    EXPECT_EQ(Read32(Base(heap), 32), 1u);
    EXPECT_EQ(Read64(Base(heap), 16), 1u);  // the name only: a new heap
    EXPECT_EQ(LookAtHeap(Base(heap), kSize).problem, "");
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

namespace {

VornStatus RefuseToUnmap(void*)
{
    return VORN_E_INVALID_ARG;
}

VornStatus ThrowWhenUnmapping(void*)
{
    throw vorn::LockError("Mutex lock failed.");
}

}  // namespace

TEST_F(SharedHeapOpen, AFailureToUnmapTheMemoryIsTheStatusOfTheDestruction)
{
    VornHeap* heap = Open();
    uint8_t* base = Base(heap);
    {
        PatchedFunction unmap(L"vorn_1_0.dll", "VornFileUnmapRegion", &RefuseToUnmap);
        ASSERT_TRUE(unmap.Found());
        EXPECT_EQ(VornHeapDestroy(heap), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    }
    EXPECT_EQ(VornHeapCheck(heap), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSharedMemFree(base), VORN_OK);

    heap = Open();
    base = Base(heap);
    {
        PatchedFunction unmap(L"vorn_1_0.dll", "VornFileUnmapRegion", &ThrowWhenUnmapping);
        EXPECT_EQ(VornHeapDestroy(heap), VORN_E_SYSTEM);
    }
    EXPECT_EQ(VornSharedMemFree(base), VORN_OK);
}

// ---- What the lock is held over ----

namespace {

HANDLE heldLock;
std::wstring heldImage;
int looks;

void ExpectLockTaken()
{
    ++looks;
    EXPECT_FALSE(WaitBounded(heldLock, 0));
}

// Nobody else gets at an image that is being written or read.
void ExpectImageKept()
{
    HANDLE file = CreateFileW(heldImage.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, 0, nullptr);
    EXPECT_EQ(file, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
}

BOOL WINAPI WriteUnderLock(HANDLE file, const void* bytes, DWORD count, DWORD* written,
                           OVERLAPPED* overlapped)
{
    ExpectLockTaken();
    ExpectImageKept();
    return WriteFile(file, bytes, count, written, overlapped);
}

BOOL WINAPI ReadUnderLock(HANDLE file, void* bytes, DWORD count, DWORD* read, OVERLAPPED* overlapped)
{
    ExpectLockTaken();
    ExpectImageKept();
    return ReadFile(file, bytes, count, read, overlapped);
}

uint8_t* leftBase;
VornStatus leftStatus;

BOOL WINAPI LookWhileLeaving(HANDLE semaphore, LONG count, LONG* before)
{
    ++looks;
    EXPECT_EQ(Read32(leftBase, 36), 0u);
    EXPECT_EQ(VornGetLastError(), leftStatus);
    return ReleaseSemaphore(semaphore, count, before);
}

}  // namespace

TEST_F(SharedHeapOpen, SavingLoadingAndEnumeratingHoldTheLock)
{
    heldImage = UniqueName(L"held") + L".image";
    VornHeap* heap = Open();
    heldLock = OpenSemaphoreW(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, GlobalLock(name).c_str());
    ASSERT_NE(heldLock, nullptr);
    looks = 0;
    {
        ImportRedirect writes("WriteFile", WriteUnderLock);
        ImportRedirect reads("ReadFile", ReadUnderLock);
        EXPECT_EQ(VornHeapSave(heap, heldImage.c_str()), VORN_OK);
        EXPECT_EQ(looks, 1);  // one call writes it all
        EXPECT_EQ(VornHeapLoad(heap, heldImage.c_str()), VORN_OK);
        EXPECT_EQ(looks, 3);
    }
    const VornHeapCallback look = [](uint64_t, uint64_t, void*, uint64_t) -> int32_t {
        ExpectLockTaken();
        return 1;
    };
    EXPECT_EQ(VornHeapEnumerate(heap, look, nullptr), VORN_OK);
    EXPECT_EQ(looks, 4);  // the name's block
    CloseHandle(heldLock);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
    DeleteFileW(heldImage.c_str());
}

TEST_F(SharedHeapOpen, WhoGivesTheLockBackHasTheOutcomeStoredAndIsNoLongerCounted)
{
    VornHeap* heap = Open();
    leftBase = Base(heap);
    looks = 0;
    {
        ImportRedirect releases("ReleaseSemaphore", LookWhileLeaving);
        ASSERT_TRUE(releases.Found());
        leftStatus = VORN_OK;
        const uint64_t block = VornHeapAlloc(heap, 10);
        EXPECT_EQ(VornHeapFree(heap, block), VORN_OK);
        leftStatus = VORN_E_INVALID_ARG;
        EXPECT_EQ(VornHeapFree(heap, block + 1), VORN_E_INVALID_ARG);
        leftStatus = VORN_E_NO_MEMORY;
        EXPECT_EQ(VornHeapAlloc(heap, kSize), 0u);
        leftStatus = VORN_OK;
        EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
    }
    EXPECT_EQ(looks, 5);
}

TEST_F(SharedHeapOpen, LoadingWithoutMemoryForTheNameIsReported)
{
    const std::wstring image = UniqueName(L"named") + L".image";
    VornHeap* heap = Open();
    ASSERT_EQ(VornHeapSave(heap, image.c_str()), VORN_OK);
    {
        FailingCall fail(kMalloc);  // a load allocates its file's record otherwise
        EXPECT_EQ(VornHeapLoad(heap, image.c_str()), VORN_E_NO_MEMORY);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(VornHeapLoad(heap, image.c_str()), VORN_OK);
    EXPECT_EQ(LookAtHeap(Base(heap), kSize).problem, "");
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
    DeleteFileW(image.c_str());
}
