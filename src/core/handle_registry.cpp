#include "core/handle_registry.h"

#include <vorn/sync.hpp>

#include <new>

namespace vorn::detail {

namespace {

// Holds a registry's mutex for a scope. Never throws: a lock that fails leaves the scope without it. The
// mutex's functions are named with their class, so that every validation is spared two indirect calls.
class RegistryLock {
public:
    explicit RegistryLock(vorn::Mutex* mutex) noexcept : mutex_(mutex)
    {
        if (mutex_ == nullptr) return;
        try {
            mutex_->vorn::Mutex::Lock();
        } catch (...) {
            mutex_ = nullptr;
        }
    }
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;
    ~RegistryLock()
    {
        if (mutex_ == nullptr) return;
        try {
            mutex_->vorn::Mutex::Unlock();
        } catch (...) {  // A wake-up signal that the system refused: nobody to tell.
        }
    }
    explicit operator bool() const noexcept { return mutex_ != nullptr; }

private:
    vorn::Mutex* mutex_;
};

vorn::Mutex* MakeMutex() noexcept
{
    try {
        return new vorn::Mutex(nullptr);
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

HandleRegistry::HandleRegistry() noexcept : mutex_(MakeMutex()) {}

HandleRegistry::~HandleRegistry()
{
    delete mutex_;
}

bool HandleRegistry::Contains(const void* handle) noexcept
{
    if (handle == nullptr) return false;
    // The slot's cache line comes in while the lock is taken.
    handles_.Prefetch(handle);
    RegistryLock lock(mutex_);
    return lock && handles_.Contains(handle);
}

bool HandleRegistry::Register(const void* handle) noexcept
{
    RegistryLock lock(mutex_);
    return lock && handles_.Insert(handle);
}

bool HandleRegistry::Unregister(const void* handle) noexcept
{
    if (handle == nullptr) return false;
    RegistryLock lock(mutex_);
    return lock && handles_.Erase(handle);
}

}  // namespace vorn::detail
