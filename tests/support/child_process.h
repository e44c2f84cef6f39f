// child_process.h - runs a case in a process of its own.
//
//     VORN_CHILD(EndsWhileLocked)        // at namespace scope; runs in the child, its result is the exit
//     code
//     {
//         ...arguments[0]...
//         return 7;
//     }
//     ChildProcess child("EndsWhileLocked", {L"name"});
//     EXPECT_EQ(child.Wait(), 7u);
#ifndef VORN_TESTS_SUPPORT_CHILD_PROCESS_H
#define VORN_TESTS_SUPPORT_CHILD_PROCESS_H

#include "core/win32.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vorn_test {

using ChildArguments = std::vector<std::wstring>;
using ChildFunction = int (*)(const ChildArguments& arguments);

struct ChildRegistration {
    ChildRegistration(const char* name, ChildFunction function);
};

#define VORN_CHILD(name)                                                                              \
    static int VornChild_##name(const vorn_test::ChildArguments& arguments);                          \
    static const vorn_test::ChildRegistration vornChildRegistration_##name(#name, &VornChild_##name); \
    static int VornChild_##name([[maybe_unused]] const vorn_test::ChildArguments& arguments)

// What Wait gives for a child that did not end in time. It has been killed then.
constexpr uint32_t kChildTimedOut = 0xDEAD7135;

// How long a test waits for what must come, in milliseconds: reached only when it never comes, so that a slow
// machine fails no test.
constexpr DWORD kLongWait = 60000;
constexpr uint32_t kChildNotStarted = 0xDEAD0000;

class ChildProcess {
public:
    explicit ChildProcess(const char* name, const ChildArguments& arguments = {});
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    // Kills the child if it still runs.
    ~ChildProcess();

    bool Started() const { return process_ != nullptr; }
    HANDLE Process() const { return process_; }
    DWORD Id() const { return id_; }
    // The exit code; kChildTimedOut when the child had to be killed.
    uint32_t Wait(DWORD timeoutMs = kLongWait);
    void Kill(uint32_t exitCode = 99);

private:
    HANDLE process_ = nullptr;
    DWORD id_ = 0;
};

// Runs the child case that the command line asks for and ends the process, or returns when none is asked for.
void RunChildCaseIfAsked();

// Whether a wait on a kernel object ends within the limit.
inline bool WaitBounded(HANDLE object, DWORD timeoutMs = kLongWait)
{
    return WaitForSingleObject(object, timeoutMs) == WAIT_OBJECT_0;
}

// A name that no other test process uses.
std::wstring UniqueName(const wchar_t* stem);

// An event by which threads and processes meet. Manual reset, initially not set; named when a name is given.
class Event {
public:
    explicit Event(const wchar_t* name = nullptr) : handle_(CreateEventW(nullptr, TRUE, FALSE, name)) {}
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;
    ~Event() { CloseHandle(handle_); }

    void Set() { SetEvent(handle_); }
    void Reset() { ResetEvent(handle_); }
    bool Wait(DWORD timeoutMs = kLongWait) const { return WaitBounded(handle_, timeoutMs); }
    bool IsSet() const { return WaitBounded(handle_, 0); }
    HANDLE Handle() const { return handle_; }

private:
    HANDLE handle_;
};

}  // namespace vorn_test

#endif
