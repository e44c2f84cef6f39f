#include "proc/proc_fixture.h"

using namespace vorn_test;

namespace {

class ProcLifecycle : public ProcTest {
protected:
    // An id that no process has.
    static uint32_t UnusedId() { return 0xFFFFFFF0; }

    static VornStatus ExitCode(VornPPid* ppid, uint32_t* code = nullptr)
    {
        uint32_t local = 0;
        return VornProcGetExitCode(ppid, code == nullptr ? &local : code);
    }
};

// The rights with which the module asked for a process last.
DWORD lastRights = 0;
HANDLE WINAPI NoteRights(DWORD rights, BOOL inherit, DWORD id)
{
    lastRights = rights;
    return OpenProcess(rights, inherit, id);
}

}  // namespace

TEST_F(ProcLifecycle, RefusesWhatIsNotAPPid)
{
    int local = 0;
    auto* foreign = reinterpret_cast<VornPPid*>(&local);
    uint32_t code = 0;
    for (VornPPid* ppid : {static_cast<VornPPid*>(nullptr), foreign}) {
        EXPECT_EQ(VornProcFreePPid(ppid), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornProcGetExitCode(ppid, &code), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornProcWaitForTerm(ppid, 0), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornProcKill(ppid), VORN_E_INVALID_ARG);
        VornSetLastError(VORN_OK);
        EXPECT_EQ(VornProcPPid2Native(ppid), 0u);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    }
    EXPECT_EQ(VornProcGetExitCode(VornProcGetCurrentPPid(), nullptr), VORN_E_INVALID_ARG);
}

TEST_F(ProcLifecycle, DoesNotSuspendOrResume)
{
    EXPECT_EQ(VornProcSuspend(nullptr), VORN_E_NOT_SUPPORTED);
    EXPECT_EQ(VornProcResume(nullptr), VORN_E_NOT_SUPPORTED);
    EXPECT_EQ(VornProcSuspend(VornProcGetCurrentPPid()), VORN_E_NOT_SUPPORTED);
    EXPECT_EQ(VornProcResume(VornProcGetCurrentPPid()), VORN_E_NOT_SUPPORTED);
}

TEST_F(ProcLifecycle, KnowsTheCallingProcess)
{
    VornSetLastError(VORN_E_BUSY);
    VornPPid* self = VornProcGetCurrentPPid();
    ASSERT_NE(self, nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornProcGetCurrentPPid(), self);
    EXPECT_EQ(VornProcPPid2Native(self), GetCurrentProcessId());
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(ExitCode(self), VORN_E_BAD_STATE);
    EXPECT_EQ(VornProcWaitForTerm(self, 0), VORN_E_BAD_STATE);
}

TEST_F(ProcLifecycle, KeepsTheCallingProcesssPPidWhenItIsFreed)
{
    VornPPid* self = VornProcGetCurrentPPid();
    EXPECT_EQ(VornProcFreePPid(self), VORN_OK);
    EXPECT_EQ(VornProcFreePPid(self), VORN_OK);
    EXPECT_EQ(VornProcPPid2Native(self), GetCurrentProcessId());
}

VORN_CHILD(AsksForItsPPidWithoutMemory)
{
    if (VornInitialize() != VORN_OK) return 1;
    {
        const FailingCall fail(kCalloc, 1, true);
        if (VornProcGetCurrentPPid() != nullptr || VornGetLastError() != VORN_E_NO_MEMORY) return 2;
        if (fail.Failures() != 1) return 3;
    }
    VornPPid* self = VornProcGetCurrentPPid();
    return self != nullptr && VornGetLastError() == VORN_OK &&
                   VornProcPPid2Native(self) == GetCurrentProcessId()
               ? 0
               : 4;
}

TEST_F(ProcLifecycle, TriesAgainWhenTheCallingProcessCouldNotBeRegistered)
{
    EXPECT_EQ(ChildProcess("AsksForItsPPidWithoutMemory").Wait(), 0u);
}

VORN_CHILD(AsksForItsPPidInSeveralThreads)
{
    if (VornInitialize() != VORN_OK) return 1;
    const auto ask = [](void* context) -> DWORD {
        static_cast<Event*>(context)->Wait();
        VornPPid* self = VornProcGetCurrentPPid();
        return VornProcPPid2Native(self) == GetCurrentProcessId() ? 0 : 1;
    };
    Event start;
    HANDLE threads[4];
    for (HANDLE& thread : threads) thread = CreateThread(nullptr, 0, ask, &start, 0, nullptr);
    start.Set();
    for (HANDLE thread : threads) {
        DWORD code = 1;
        if (!WaitBounded(thread) || !GetExitCodeThread(thread, &code) || code != 0) return 2;
    }
    return 0;
}

TEST_F(ProcLifecycle, GivesSeveralFirstCallersTheSamePPid)
{
    EXPECT_EQ(ChildProcess("AsksForItsPPidInSeveralThreads").Wait(), 0u);
}

TEST_F(ProcLifecycle, MakesAPPidOnlyForAProcessThatCanBeOpened)
{
    VornSetLastError(VORN_OK);
    EXPECT_EQ(VornProcNative2PPid(0), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    VornSetLastError(VORN_OK);
    EXPECT_EQ(VornProcNative2PPid(UnusedId()), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    {
        const FailingCall fail(kOpenProcess);  // access denied
        EXPECT_EQ(VornProcNative2PPid(GetCurrentProcessId()), nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    }
    VornSetLastError(VORN_E_BUSY);
    VornPPid* ppid = VornProcNative2PPid(GetCurrentProcessId());
    ASSERT_NE(ppid, nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_NE(ppid, VornProcGetCurrentPPid());
    EXPECT_EQ(VornProcPPid2Native(ppid), GetCurrentProcessId());
    EXPECT_EQ(VornProcFreePPid(ppid), VORN_OK);
    EXPECT_EQ(VornProcFreePPid(ppid), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcPPid2Native(ppid), 0u);
}

TEST_F(ProcLifecycle, LeavesNothingBehindWhenAPPidCannotBeMade)
{
    const LeakWatch watch;
    const long failures = FailEachCallInTurn(kAllocations, [] {
        VornPPid* ppid = VornProcNative2PPid(GetCurrentProcessId());
        EXPECT_EQ(VornGetLastError(), ppid != nullptr ? VORN_OK : VORN_E_NO_MEMORY);
        if (ppid != nullptr) VornProcFreePPid(ppid);
    });
    EXPECT_GE(failures, 1);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(ProcLifecycle, FollowsAChildItStartedToItsEnd)
{
    RunningChild child;
    ASSERT_NE(child.ppid, nullptr);
    EXPECT_EQ(ExitCode(child.ppid), VORN_E_BAD_STATE);
    EXPECT_EQ(VornProcWaitForTerm(child.ppid, 0), VORN_E_BAD_STATE);
    EXPECT_EQ(VornProcWaitForTerm(child.ppid, 20), VORN_E_BAD_STATE);
    child.End();
    EXPECT_EQ(VornProcWaitForTerm(child.ppid, VORN_INFINITE), VORN_OK);
    uint32_t code = 0;
    EXPECT_EQ(ExitCode(child.ppid, &code), VORN_OK);
    EXPECT_EQ(code, 7u);
}

TEST_F(ProcLifecycle, FollowsAProcessNamedByItsId)
{
    RunningChild child;
    VornPPid* ppid = VornProcNative2PPid(child.id);
    ASSERT_NE(ppid, nullptr);
    ImportRedirect note("OpenProcess", &NoteRights);
    EXPECT_EQ(ExitCode(ppid), VORN_E_BAD_STATE);
    EXPECT_EQ(lastRights, PROCESS_QUERY_INFORMATION | SYNCHRONIZE);
    EXPECT_EQ(VornProcWaitForTerm(ppid, 0), VORN_E_BAD_STATE);
    EXPECT_EQ(lastRights, SYNCHRONIZE);
    child.End();
    EXPECT_EQ(VornProcWaitForTerm(ppid, VORN_INFINITE), VORN_OK);
    uint32_t code = 0;
    EXPECT_EQ(ExitCode(ppid, &code), VORN_OK);
    EXPECT_EQ(code, 7u);
    EXPECT_EQ(VornProcFreePPid(ppid), VORN_OK);
}

TEST_F(ProcLifecycle, AsksForAnExitCodeOnce)
{
    RunningChild child;
    VornPPid* ppid = VornProcNative2PPid(child.id);
    child.End();
    for (VornPPid* asked : {child.ppid, ppid}) {
        FailingCall ask(kGetExitCodeProcess, 0);
        uint32_t code = 0;
        EXPECT_EQ(ExitCode(asked, &code), VORN_OK);
        EXPECT_EQ(code, 7u);
        EXPECT_EQ(ExitCode(asked, &code), VORN_OK);
        EXPECT_EQ(code, 7u);
        EXPECT_EQ(ask.Calls(), 1);
    }
    VornProcFreePPid(ppid);
}

TEST_F(ProcLifecycle, ReportsAnExitCodeThatCannotBeRead)
{
    RunningChild child;
    VornPPid* ppid = VornProcNative2PPid(child.id);
    child.End();
    uint32_t code = 99;
    for (VornPPid* asked : {child.ppid, ppid}) {
        const FailingCall fail(kGetExitCodeProcess);
        EXPECT_EQ(ExitCode(asked, &code), VORN_E_BAD_STATE);
        EXPECT_EQ(fail.Failures(), 1);
        EXPECT_EQ(code, 99u);
    }
    {
        const FailingCall fail(kOpenProcess);
        EXPECT_EQ(ExitCode(ppid, &code), VORN_E_NOT_PERMITTED);
    }
    VornProcFreePPid(ppid);
}

TEST_F(ProcLifecycle, TranslatesTheErrorOfAProcessThatCannotBeOpened)
{
    RunningChild child;
    VornPPid* ppid = VornProcNative2PPid(child.id);
    const struct {
        DWORD error;
        VornStatus status;
    } cases[] = {{5, VORN_E_NOT_PERMITTED}, {87, VORN_E_INVALID_ARG}, {1450, VORN_E_UNKNOWN}};
    for (const auto& expected : cases) {
        const FailingCall fail({"OpenProcess", 0, expected.error}, 1, true);
        EXPECT_EQ(ExitCode(ppid), expected.status);
        EXPECT_EQ(VornProcWaitForTerm(ppid, VORN_INFINITE), expected.status);
        EXPECT_EQ(VornProcKill(ppid), VORN_E_NOT_PERMITTED);
        EXPECT_EQ(fail.Failures(), 3);
    }
    {
        // A failure without an error: the record has no handle, the wait on it fails, and that is the end.
        const FailingCall fail({"OpenProcess", 0, 0}, 1, true);
        EXPECT_EQ(ExitCode(ppid), VORN_E_BAD_STATE);
        EXPECT_EQ(VornProcWaitForTerm(ppid, VORN_INFINITE), VORN_OK);
    }
    EXPECT_FALSE(child.HasEnded());
    VornProcFreePPid(ppid);
}

TEST_F(ProcLifecycle, TakesAFailedWaitForTheEnd)
{
    RunningChild child;
    const FailingCall fail(kWaitForSingleObject, 1, true);
    EXPECT_EQ(VornProcWaitForTerm(child.ppid, VORN_INFINITE), VORN_OK);
    // The exit code is then read all the same, and for a running process it is 259.
    uint32_t code = 0;
    EXPECT_EQ(ExitCode(child.ppid, &code), VORN_OK);
    EXPECT_EQ(code, 259u);
    EXPECT_GE(fail.Failures(), 2);
}

TEST_F(ProcLifecycle, ReturnsFromAKillOnceTheProcessHasEnded)
{
    RunningChild child;
    EXPECT_EQ(VornProcKill(child.ppid), VORN_OK);
    EXPECT_TRUE(child.HasEnded());
    uint32_t code = 0;
    EXPECT_EQ(ExitCode(child.ppid, &code), VORN_OK);
    EXPECT_EQ(code, 0xB5B5B5B5u);
}

TEST_F(ProcLifecycle, KillsAProcessNamedByItsId)
{
    RunningChild child;
    VornPPid* ppid = VornProcNative2PPid(child.id);
    ImportRedirect note("OpenProcess", &NoteRights);
    EXPECT_EQ(VornProcKill(ppid), VORN_OK);
    EXPECT_EQ(lastRights, PROCESS_TERMINATE | SYNCHRONIZE);
    EXPECT_TRUE(child.HasEnded());
    uint32_t code = 0;
    EXPECT_EQ(ExitCode(ppid, &code), VORN_OK);
    EXPECT_EQ(code, 0xB5B5B5B5u);
    VornProcFreePPid(ppid);
}

TEST_F(ProcLifecycle, ReportsAKillThatTheSystemRefuses)
{
    RunningChild child;
    {
        const FailingCall fail(kTerminateProcess);
        EXPECT_EQ(VornProcKill(child.ppid), VORN_E_NOT_PERMITTED);
    }
    {
        const FailingCall fail({"TerminateProcess", 0, ERROR_INVALID_HANDLE});
        EXPECT_EQ(VornProcKill(child.ppid), VORN_E_UNKNOWN);
    }
    EXPECT_FALSE(child.HasEnded());
}

TEST_F(ProcLifecycle, FreesTheHandleOfAnEndedProcessAndKeepsThatOfARunningOne)
{
    {
        FailingCall close(kCloseHandle, 0);
        const std::wstring name = UniqueName(L"vorn-end");
        Event end((name + L"-end").c_str());
        VornPPid* ppid = StartChild(L"RunsUntilTold", name);
        HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, VornProcPPid2Native(ppid));
        const long before = close.Calls();
        EXPECT_EQ(VornProcFreePPid(ppid), VORN_OK);
        EXPECT_EQ(close.Calls(), before);
        EXPECT_EQ(VornProcFreePPid(ppid), VORN_E_INVALID_ARG);
        end.Set();
        EXPECT_TRUE(WaitBounded(process));
        CloseHandle(process);
    }
    {
        FailingCall close(kCloseHandle, 0);
        VornPPid* ppid = StartChild(L"ReturnsItsArgument", L"3");
        EXPECT_EQ(VornProcWaitForTerm(ppid, kLongWait), VORN_OK);
        const long before = close.Calls();
        EXPECT_EQ(VornProcFreePPid(ppid), VORN_OK);
        EXPECT_EQ(close.Calls(), before + 1);
    }
}
