// proc_fixture.h - what the tests of the process family share.
#ifndef VORN_TESTS_PROC_PROC_FIXTURE_H
#define VORN_TESTS_PROC_PROC_FIXTURE_H

#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/child_process.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <gtest/gtest.h>
#include <string>

namespace vorn_test {

constexpr FaultPoint kOpenProcess = {"OpenProcess", 0, ERROR_ACCESS_DENIED};
constexpr FaultPoint kGetExitCodeProcess = {"GetExitCodeProcess", 0, kGenericFailure};
constexpr FaultPoint kTerminateProcess = {"TerminateProcess", 0, ERROR_ACCESS_DENIED};
constexpr FaultPoint kOpenThreadToken = {"OpenThreadToken", 0, ERROR_ACCESS_DENIED};
constexpr FaultPoint kNoThreadToken = {"OpenThreadToken", 0, ERROR_NO_TOKEN};
constexpr FaultPoint kImpersonateSelf = {"ImpersonateSelf", 0, kGenericFailure};
constexpr FaultPoint kLookupPrivilegeValue = {"LookupPrivilegeValueW", 0, kGenericFailure};
constexpr FaultPoint kAdjustTokenPrivileges = {"AdjustTokenPrivileges", 0, kGenericFailure};

// Every call of the debug-privilege scope that may fail.
constexpr std::initializer_list<FaultPoint> kPrivilegeCalls = {
    kOpenThreadToken, kNoThreadToken, kImpersonateSelf, kLookupPrivilegeValue, kAdjustTokenPrivileges};

// Keeps the library initialised.
class ProcTest : public testing::Test {
protected:
    ProcTest() { EXPECT_EQ(VornInitialize(), VORN_OK); }
    ~ProcTest() override { VornTerminate(); }
};

inline std::wstring OwnProgram()
{
    wchar_t path[4096];
    GetModuleFileNameW(nullptr, path, 4096);
    return path;
}

// Arguments that make this program run a child case.
inline std::wstring ChildArgs(const std::wstring& name, const std::wstring& rest = L"")
{
    return L"--child-case=" + name + (rest.empty() ? L"" : L" " + rest);
}

// Starts a child case of this program with the library; null on failure.
inline VornPPid* StartChild(const std::wstring& name, const std::wstring& rest = L"", int32_t wait = 0)
{
    return VornProcCreate(OwnProgram().c_str(), ChildArgs(name, rest).c_str(), nullptr, nullptr, wait,
                          VORN_PROC_SHOW, 0, nullptr, nullptr);
}

// A child that runs its program, until it is told to end.
class RunningChild {
public:
    RunningChild()
        : name_(UniqueName(L"vorn-child")),
          ready_((name_ + L"-ready").c_str()),
          end_((name_ + L"-end").c_str()),
          ppid(StartChild(L"RunsUntilTold", name_)),
          id(VornProcPPid2Native(ppid)),
          handle_(OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, id))
    {
        EXPECT_TRUE(ready_.Wait());
    }
    RunningChild(const RunningChild&) = delete;
    RunningChild& operator=(const RunningChild&) = delete;
    ~RunningChild()
    {
        End();
        CloseHandle(handle_);
        VornProcFreePPid(ppid);
    }

    // Returns once it has ended, with exit code 7 unless it was killed.
    void End()
    {
        end_.Set();
        if (WaitBounded(handle_)) return;
        ADD_FAILURE() << "the child does not end";
        TerminateProcess(handle_, 99);
    }
    bool HasEnded() const { return WaitBounded(handle_, 0); }

private:
    std::wstring name_;
    Event ready_;
    Event end_;

public:
    VornPPid* const ppid;
    const uint32_t id;

private:
    HANDLE handle_;
};

// Define once in a program that uses RunningChild.
#define VORN_CHILD_RUNS_UNTIL_TOLD                                  \
    VORN_CHILD(RunsUntilTold)                                       \
    {                                                               \
        vorn_test::Event ready((arguments[0] + L"-ready").c_str()); \
        vorn_test::Event end((arguments[0] + L"-end").c_str());     \
        ready.Set();                                                \
        return end.Wait() ? 7 : 8;                                  \
    }

// The state of the debug privilege of the thread's token, or of its process's token while it has none.
enum class DebugState { kAbsent, kOff, kOn };

inline DebugState ReadDebugState()
{
    HANDLE token = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token) &&
        !OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
    {
        return DebugState::kAbsent;
    }
    LUID luid;
    LookupPrivilegeValueW(nullptr, SE_DEBUG_NAME, &luid);
    alignas(TOKEN_PRIVILEGES) uint8_t bytes[4096];
    DWORD size = 0;
    DebugState state = DebugState::kAbsent;
    if (GetTokenInformation(token, TokenPrivileges, bytes, sizeof(bytes), &size)) {
        const auto* privileges = reinterpret_cast<const TOKEN_PRIVILEGES*>(bytes);
        for (DWORD i = 0; i < privileges->PrivilegeCount; ++i) {
            const LUID_AND_ATTRIBUTES& entry = privileges->Privileges[i];
            if (entry.Luid.LowPart != luid.LowPart || entry.Luid.HighPart != luid.HighPart) continue;
            state = entry.Attributes & SE_PRIVILEGE_ENABLED ? DebugState::kOn : DebugState::kOff;
        }
    }
    CloseHandle(token);
    return state;
}

// Gives the thread a token of its own in which the debug privilege has this state.
inline void SetDebugState(bool enabled)
{
    RevertToSelf();
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, TRUE, &token));
    TOKEN_PRIVILEGES wanted = {};
    wanted.PrivilegeCount = 1;
    wanted.Privileges[0].Attributes = enabled ? SE_PRIVILEGE_ENABLED : 0;
    LookupPrivilegeValueW(nullptr, SE_DEBUG_NAME, &wanted.Privileges[0].Luid);
    ASSERT_TRUE(AdjustTokenPrivileges(token, FALSE, &wanted, 0, nullptr, nullptr));
    CloseHandle(token);
    ASSERT_EQ(ReadDebugState(), enabled ? DebugState::kOn : DebugState::kOff);
}

inline bool ThreadHasToken()
{
    HANDLE token = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) return false;
    CloseHandle(token);
    return true;
}

}  // namespace vorn_test

#endif
