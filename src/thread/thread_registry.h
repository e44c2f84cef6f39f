// thread_registry.h - the thread records that exist, so that a stale or foreign handle is never dereferenced,
// and no record is freed while another thread works on it.
//
// Records that are still there when the module is unloaded (those of adopted threads that live on, and of
// threads nobody joined) are freed then.
#ifndef VORN_THREAD_THREAD_REGISTRY_H
#define VORN_THREAD_THREAD_REGISTRY_H

#include <vorn/thread.h>

namespace vorn::detail {

// False when memory is exhausted.
bool RegisterThread(VornThread* thread) noexcept;

// True for exactly one caller per record, who may free it; returns when no ThreadUse holds it any more.
bool UnregisterThread(VornThread* thread) noexcept;

// The record of the library-started thread that has this system id and has not finished; null for every other
// thread. The record lives at least as long as that thread.
VornThread* FindStartedThread(uint32_t threadId) noexcept;

// Keeps a record from being freed for a scope; empty for a handle that is no live record's. Meant for short
// sections: the end of a detached thread waits for them.
class ThreadUse {
public:
    explicit ThreadUse(VornThread* thread) noexcept;
    ThreadUse(const ThreadUse&) = delete;
    ThreadUse& operator=(const ThreadUse&) = delete;
    ~ThreadUse() { Release(); }

    explicit operator bool() const noexcept { return thread_ != nullptr; }
    void Release() noexcept;

private:
    VornThread* thread_;
};

// Frees every record that is left. For module unload: no thread runs the library's code any more.
void FreeRemainingThreads() noexcept;

}  // namespace vorn::detail

#endif
