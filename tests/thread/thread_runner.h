// thread_runner.h - runs function objects on threads of their own, and waits for what threads do.
#ifndef VORN_TESTS_THREAD_THREAD_RUNNER_H
#define VORN_TESTS_THREAD_THREAD_RUNNER_H

#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/child_process.h"
#include "thread/thread_record.h"

#include <chrono>
#include <cstdio>
#include <functional>
#include <utility>

namespace vorn_test {

// How long a thread may take before it is taken for hanging, in milliseconds; the soak programs have more
// patience.
inline DWORD patienceMs = kLongWait;

// Ends the test program where a thread hangs: nothing after that would mean anything.
inline void Require(bool happened, const char* what)
{
    if (happened) return;
    std::fprintf(stderr, "gave up waiting: %s\n", what);
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), 97);
}

inline void Await(const Event& event, const char* what)
{
    Require(event.Wait(patienceMs), what);
}

// A thread that the library starts. Joined at the latest when the object dies.
class LibraryThread {
public:
    explicit LibraryThread(std::function<void*()> body) : body_(std::move(body))
    {
        status_ = VornThreadCreate(&thread_, nullptr, &Run, this);
    }
    explicit LibraryThread(std::function<void()> body)
        : LibraryThread(std::function<void*()>([body = std::move(body)] {
              body();
              return static_cast<void*>(nullptr);
          }))
    {}
    template <class F>
    explicit LibraryThread(F body) : LibraryThread(std::function<decltype(body())()>(std::move(body)))
    {}
    LibraryThread(const LibraryThread&) = delete;
    LibraryThread& operator=(const LibraryThread&) = delete;
    ~LibraryThread() { Join(); }

    VornThread* Thread() const { return thread_; }
    VornStatus Status() const { return status_; }
    // The exit value: null for a body that returns nothing, all ones for a cancelled thread.
    void* Join()
    {
        void* result = nullptr;
        if (status_ != VORN_OK || joined_) return result;
        Require(WaitBounded(thread_->handle, patienceMs), "a thread to end");
        joined_ = VornThreadJoin(thread_, &result) == VORN_OK;
        return result;
    }
    void Forget() { joined_ = true; }

private:
    static void* Run(void* self) { return static_cast<LibraryThread*>(self)->body_(); }

    std::function<void*()> body_;
    VornThread* thread_ = nullptr;
    VornStatus status_ = VORN_E_SYSTEM;
    bool joined_ = false;
};

// A thread that the library knows nothing of until it calls into it. Awaited at the latest when the object
// dies.
class ForeignThread {
public:
    explicit ForeignThread(std::function<void()> body) : body_(std::move(body))
    {
        handle_ = CreateThread(nullptr, 0, &Run, this, 0, nullptr);
    }
    ForeignThread(const ForeignThread&) = delete;
    ForeignThread& operator=(const ForeignThread&) = delete;
    ~ForeignThread()
    {
        Join();
        CloseHandle(handle_);
    }

    HANDLE Handle() const { return handle_; }
    bool Wait() const { return WaitBounded(handle_, patienceMs); }
    DWORD Join() const
    {
        Require(Wait(), "a foreign thread to end");
        return ExitCode();
    }
    DWORD ExitCode() const
    {
        DWORD code = 0;
        GetExitCodeThread(handle_, &code);
        return code;
    }

private:
    static DWORD WINAPI Run(void* self)
    {
        static_cast<ForeignThread*>(self)->body_();
        return 0;
    }

    std::function<void()> body_;
    HANDLE handle_;
};

// A field of a record, at its stated offset.
template <class T, class R>
T& FieldAt(R* record, size_t offset)
{
    return *reinterpret_cast<T*>(reinterpret_cast<char*>(record) + offset);
}

// Milliseconds that have passed since the first call, by the clock that is read afresh at each call: the tick
// count lags by a tick or more.
inline double Milliseconds()
{
    static const auto start = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// By how much a sleep or a wait may end early: it ends with a tick of the system's clock, and the last may
// come at once. In milliseconds.
constexpr double kClockTick = 16;

// Looks until the condition holds, at most kLongWait.
template <class F>
bool Eventually(F condition)
{
    const ULONGLONG end = GetTickCount64() + kLongWait;
    while (!condition()) {
        if (GetTickCount64() > end) return false;
        SwitchToThread();
    }
    return true;
}

}  // namespace vorn_test

#endif
