#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/child_process.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"
#include "thread/thread_runner.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace vorn_test;

namespace {

// The library's count is 0 when a case starts and when it ends.
class Runtime : public testing::Test {
protected:
    void SetUp() override
    {
        // What the first use of the library creates for good is there before a case starts.
        ASSERT_EQ(VornInitialize(), VORN_OK);
        VornTerminate();
    }
};

struct SystemVersion {
    DWORD platformId, major, minor;
};

DWORD structureSize;
SystemVersion pretended = {2, 10, 7};
BOOL WINAPI PretendVersion(OSVERSIONINFOW* version)
{
    structureSize = version->dwOSVersionInfoSize;
    version->dwPlatformId = pretended.platformId;
    version->dwMajorVersion = pretended.major;
    version->dwMinorVersion = pretended.minor;
    return TRUE;
}

std::wstring createdName;
HANDLE WINAPI RememberNameAndRefuse(SECURITY_ATTRIBUTES*, LONG, LONG, const wchar_t* name)
{
    createdName = name;
    SetLastError(kGenericFailure);
    return nullptr;
}

// The name under which the library asks for a named object on a system of this version.
std::wstring NameOfSharedObject(const SystemVersion& version)
{
    pretended = version;
    createdName.clear();
    const ImportRedirect versions("GetVersionExW", &PretendVersion);
    const ImportRedirect semaphores("CreateSemaphoreW", &RememberNameAndRefuse);
    EXPECT_EQ(VornInitialize(), VORN_OK);
    VornSemaphore* semaphore = nullptr;
    EXPECT_EQ(VornSemaphoreOpen(&semaphore, "name", VORN_SEMAPHORE_CREATE, 0, nullptr), VORN_E_SYSTEM);
    VornTerminate();
    return createdName;
}

}  // namespace

TEST_F(Runtime, TheModuleHasTheVersionOfTheHeaders)
{
    EXPECT_EQ(VornGetVersion(), VORN_VERSION);
    EXPECT_EQ(VornGetVersion(), 0x00010000u);
}

TEST_F(Runtime, LastErrorIsZeroForAThreadThatStoredNothing)
{
    ASSERT_EQ(VornInitialize(), VORN_OK);
    VornSetLastError(VORN_E_NOT_FOUND);
    VornStatus other = 77;
    std::thread([&other] { other = VornGetLastError(); }).join();
    EXPECT_EQ(other, VORN_OK);
    EXPECT_EQ(VornGetLastError(), VORN_E_NOT_FOUND);
    VornTerminate();
}

TEST_F(Runtime, LastErrorHoldsAnyValueStored)
{
    ASSERT_EQ(VornInitialize(), VORN_OK);
    for (VornStatus status : {VORN_E_SYSTEM, VornStatus{0xFFFFFFFF}, VORN_OK, VORN_E_BAD_IMAGE}) {
        VornSetLastError(status);
        EXPECT_EQ(VornGetLastError(), status);
    }
    VornTerminate();
}

TEST_F(Runtime, LastErrorLeavesTheSystemsErrorAlone)
{
    ASSERT_EQ(VornInitialize(), VORN_OK);
    SetLastError(4711);
    VornSetLastError(VORN_E_BUSY);
    EXPECT_EQ(GetLastError(), 4711u);
    EXPECT_EQ(VornGetLastError(), VORN_E_BUSY);
    EXPECT_EQ(GetLastError(), 4711u);
    VornTerminate();
}

TEST_F(Runtime, LastErrorDoesNothingBeforeInitializeAndAfterTerminate)
{
    VornSetLastError(VORN_E_NOT_FOUND);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    ASSERT_EQ(VornInitialize(), VORN_OK);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    VornTerminate();
    EXPECT_EQ(VornGetLastError(), VORN_OK);
}

TEST_F(Runtime, LastErrorLeavesOtherThreadLocalSlotsAloneWhileNotInitialized)
{
    // Slot 0 belongs to somebody else.
    void* const before = TlsGetValue(0);
    VornSetLastError(VORN_E_NOT_FOUND);
    EXPECT_EQ(TlsGetValue(0), before);
}

TEST_F(Runtime, InitializeNestsByCount)
{
    ASSERT_EQ(VornInitialize(), VORN_OK);
    ASSERT_EQ(VornInitialize(), VORN_OK);
    VornSetLastError(VORN_E_BUSY);
    VornTerminate();
    EXPECT_EQ(VornGetLastError(), VORN_E_BUSY);
    VornTerminate();
    EXPECT_EQ(VornGetLastError(), VORN_OK);
}

TEST_F(Runtime, OnlyTheFirstInitializeTakesAnIndex)
{
    ASSERT_EQ(VornInitialize(), VORN_OK);
    FailingCall fail(kTlsAlloc, 1, true);
    EXPECT_EQ(VornInitialize(), VORN_OK);
    EXPECT_EQ(fail.Calls(), 0);
    VornTerminate();
    VornTerminate();
}

TEST_F(Runtime, InitializeGives120WhenNoIndexIsLeftAndCanBeRepeated)
{
    {
        FailingCall fail(kTlsAlloc);
        EXPECT_EQ(VornInitialize(), VORN_E_NO_RESOURCES);
    }
    EXPECT_EQ(VornInitialize(), VORN_OK);
    VornSetLastError(VORN_E_BUSY);
    EXPECT_EQ(VornGetLastError(), VORN_E_BUSY);
    VornTerminate();
}

TEST_F(Runtime, InitializeGives98WhenItsRecordOrItsLockCannotBeMadeAndLeavesNothing)
{
    LeakWatch watch;
    const long delivered = FailEachCallInTurn({kMalloc, kCalloc, kCreateEvent}, [] {
        const VornStatus status = VornInitialize();
        if (status == VORN_OK) {
            VornTerminate();
        } else {
            EXPECT_EQ(status, VORN_E_SYSTEM);
        }
    });
    EXPECT_GE(delivered, 3);  // the lock's record, its event, the information record
    EXPECT_EQ(watch.Leaks(), "");
    EXPECT_EQ(VornInitialize(), VORN_OK);
    VornTerminate();
}

TEST_F(Runtime, AnIndexTakenForAFailedInitializeIsGivenBack)
{
    VornThreadSelf();
    long taken = 0;
    FailEachCallInTurn(kCalloc, [&taken] {
        const FailingCall allocs(kTlsAlloc, 0);
        const FailingCall frees({"TlsFree", 1, 0}, 0);
        if (VornInitialize() == VORN_OK) {
            VornTerminate();
        } else {
            taken += allocs.Calls();
        }
        EXPECT_EQ(frees.Calls(), allocs.Calls());
    });
    EXPECT_EQ(taken, 1) << "no failure came behind the taking of the index";
}

TEST_F(Runtime, InitializeByAThreadWithoutIdentityGives98AndLeavesNothing)
{
    for (const bool allLaterFail : {false, true}) {
        const LeakWatch watch;
        ForeignThread([allLaterFail] {
            // The first allocation is the init lock's, the second the thread's record.
            const FailingCall fail(kCalloc, 2, allLaterFail);
            EXPECT_EQ(VornInitialize(), VORN_E_SYSTEM);
            EXPECT_GE(fail.Failures(), 1);
        }).Join();
        EXPECT_EQ(VornInitialize(), VORN_OK);
        VornTerminate();
        EXPECT_EQ(watch.Leaks(), "") << allLaterFail;
    }
    const LeakWatch watch;
    ForeignThread([] {
        const FailingCall fail(kCalloc, 2);
        EXPECT_EQ(VornInitialize(), VORN_E_SYSTEM);
    }).Join();
    EXPECT_EQ(watch.Leaks(), "") << "at once";
}

TEST_F(Runtime, TerminateAndInitializeAgainStartFromTheBeginning)
{
    LeakWatch watch;
    for (int round = 0; round < 500; ++round) {
        ASSERT_EQ(VornInitialize(), VORN_OK);
        VornTerminate();
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(Runtime, AsksForTheVersionWithTheStructureSizeOf276Bytes)
{
    structureSize = 0;
    ImportRedirect redirect("GetVersionExW", &PretendVersion);
    ASSERT_TRUE(redirect.Found());
    ASSERT_EQ(VornInitialize(), VORN_OK);
    VornTerminate();
    EXPECT_EQ(structureSize, 276u);
}

TEST_F(Runtime, NamedObjectsAreGlobalFromMajorVersion5OnSaveOnTheLegacyPlatform)
{
    EXPECT_EQ(NameOfSharedObject({2, 10, 0}), L"Global\\name");
    EXPECT_EQ(NameOfSharedObject({2, 5, 0}), L"Global\\name");
    EXPECT_EQ(NameOfSharedObject({2, 4, 9}), L"name");
    EXPECT_EQ(NameOfSharedObject({1, 4, 10}), L"name");
    EXPECT_EQ(NameOfSharedObject({1, 10, 0}), L"name");
    EXPECT_EQ(NameOfSharedObject({0, 5, 0}), L"Global\\name");
    EXPECT_EQ(NameOfSharedObject({3, 5, 0}), L"Global\\name");
}

TEST_F(Runtime, AnUnreadableAffinityMaskOrVersionIsNoFailure)
{
    FailingCall failMask({"GetProcessAffinityMask", 0, kGenericFailure}, 1, true);
    FailingCall failVersion({"GetVersionExW", 0, kGenericFailure}, 1, true);
    EXPECT_EQ(VornInitialize(), VORN_OK);
    VornTerminate();
    EXPECT_EQ(failMask.Failures(), 1);
}

TEST_F(Runtime, ManyThreadsMayInitializeAndTerminateAtOnce)
{
    LeakWatch watch;
    std::atomic<int> failures{0};
    {
        // Not std::thread, whose runtime may keep a kernel object for good when threads meet in it.
        std::vector<std::unique_ptr<ForeignThread>> threads;
        for (int i = 0; i < 4; ++i) {
            threads.push_back(std::make_unique<ForeignThread>([&failures] {
                for (int round = 0; round < 300; ++round) {
                    if (VornInitialize() != VORN_OK) ++failures;
                    VornTerminate();
                }
            }));
        }
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(VornInitialize(), VORN_OK);
    VornSetLastError(VORN_E_BUSY);
    EXPECT_EQ(VornGetLastError(), VORN_E_BUSY);
    VornTerminate();
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(watch.Leaks(), "");
}

// In a process of its own, since the count stays off by one.
VORN_CHILD(TerminateWithoutInitialize)
{
    VornTerminate();
    // Deliberate: the count went below 0, so this call brings it to 0 and initialises nothing.
    if (VornInitialize() != VORN_OK) return 1;
    VornSetLastError(VORN_E_BUSY);
    if (VornGetLastError() != VORN_OK) return 2;
    if (VornInitialize() != VORN_OK) return 3;
    VornSetLastError(VORN_E_BUSY);
    if (VornGetLastError() != VORN_E_BUSY) return 4;
    return 0;
}

TEST_F(Runtime, ATerminateTooManyMakesTheNextInitializeDoNothing)
{
    ChildProcess child("TerminateWithoutInitialize");
    EXPECT_EQ(child.Wait(), 0u);
}
