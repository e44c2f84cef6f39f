// thread_runner.h - runs a function object on a thread of its own.
#ifndef VORN_TESTS_THREAD_THREAD_RUNNER_H
#define VORN_TESTS_THREAD_THREAD_RUNNER_H

#include <vorn/vorn.h>

#include "core/win32.h"

#include <functional>
#include <utility>

namespace vorn_test {

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
    void* Join()
    {
        void* result = nullptr;
        if (status_ == VORN_OK && !joined_) joined_ = VornThreadJoin(thread_, &result) == VORN_OK;
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

// A thread that the library knows nothing of until it calls into it.
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
        WaitForSingleObject(handle_, INFINITE);
        CloseHandle(handle_);
    }

    HANDLE Handle() const { return handle_; }
    bool Wait(DWORD timeoutMs = 20000) const
    {
        return WaitForSingleObject(handle_, timeoutMs) == WAIT_OBJECT_0;
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

// Looks until the condition holds, at most ten seconds.
template <class F>
bool Eventually(F condition)
{
    const ULONGLONG end = GetTickCount64() + 10000;
    while (!condition()) {
        if (GetTickCount64() > end) return false;
        SwitchToThread();
    }
    return true;
}

}  // namespace vorn_test

#endif
