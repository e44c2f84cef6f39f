// The lock of a heap over memory of the caller when it cannot be taken or destroyed.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "heap/layout_checker.h"
#include "support/child_process.h"
#include "support/failing_call.h"
#include "support/guard_buffer.h"

#include <gtest/gtest.h>
#include <thread>

using namespace heap_test;
using namespace vorn_test;

namespace {

class LocalHeapLock : public testing::Test {
protected:
    LocalHeapLock() : area(4096)
    {
        VornInitialize();
        heap = VornHeapCreateLocal(area.Data(), area.Size(), 1);
    }
    ~LocalHeapLock() override
    {
        VornHeapDestroy(heap);
        VornTerminate();
    }

    GuardBuffer area;
    VornHeap* heap;
};

VornHeap* taken;
uint8_t* takenBase;
int attempts;

VornStatus RefuseToDestroy(VornMutex**)
{
    return VORN_E_BUSY;
}

// While a save is inside the heap another thread calls, and its wait for the lock fails.
BOOL WINAPI CallFromAnotherThread(HANDLE file, const void* bytes, DWORD count, DWORD* written,
                                  OVERLAPPED* overlapped)
{
    FailingCall fail(kWaitForSingleObject);
    std::thread([] {
        ++attempts;
        EXPECT_EQ(VornHeapAlloc(taken, 10), 0u);
        EXPECT_EQ(VornGetLastError(), VORN_E_SYSTEM);
        EXPECT_EQ(Read32(takenBase, 36), 1u);
        EXPECT_EQ(Read64(takenBase, 16), 0u);
    }).join();
    EXPECT_EQ(fail.Failures(), 1);
    return WriteFile(file, bytes, count, written, overlapped);
}

}  // namespace

TEST_F(LocalHeapLock, AFailureToTakeItIsTheStatusAndTheCallerIsNotCounted)
{
    const std::wstring image = UniqueName(L"lock") + L".image";
    taken = heap;
    takenBase = area.Data();
    attempts = 0;
    {
        ImportRedirect redirect("WriteFile", CallFromAnotherThread);
        ASSERT_TRUE(redirect.Found());
        EXPECT_EQ(VornHeapSave(heap, image.c_str()), VORN_OK);
    }
    EXPECT_EQ(attempts, 1);
    EXPECT_EQ(Read32(area.Data(), 36), 0u);
    EXPECT_NE(VornHeapAlloc(heap, 10), 0u);
    DeleteFileW(image.c_str());
}

TEST_F(LocalHeapLock, AFailureToDestroyItIsTheStatusOfTheDestructionAndTheHandleIsGone)
{
    {
        PatchedFunction destroy(L"vorn_1_0.dll", "VornMutexDestroy", &RefuseToDestroy);
        ASSERT_TRUE(destroy.Found());
        EXPECT_EQ(VornHeapDestroy(heap), VORN_E_BUSY);
        EXPECT_EQ(VornGetLastError(), VORN_E_BUSY);
    }
    EXPECT_EQ(VornHeapCheck(heap), VORN_E_INVALID_ARG);
}
