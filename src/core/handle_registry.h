// handle_registry.h - the live handles of one kind.
//
// A handle passed in by a client is looked up here before its record is touched, so that a stale or foreign
// pointer is never dereferenced. The registry knows values only: a freed record's address validates again
// once a new record of the same kind has it.
// Lock order: no thread holds two registries' mutexes.
#ifndef VORN_CORE_HANDLE_REGISTRY_H
#define VORN_CORE_HANDLE_REGISTRY_H

#include "core/pointer_set.h"

namespace vorn {
class Mutex;
}

namespace vorn::detail {

class HandleRegistry {
public:
    HandleRegistry() noexcept;
    HandleRegistry(const HandleRegistry&) = delete;
    HandleRegistry& operator=(const HandleRegistry&) = delete;
    // Runs at module unload. Handles that are still registered are forgotten, not destroyed.
    ~HandleRegistry();

    // Validates a handle; null, unknown handles and a failing lock are all "no".
    bool Contains(const void* handle) noexcept;
    // False when memory is exhausted or the lock fails; true also for a handle already there.
    bool Register(const void* handle) noexcept;
    // True for exactly one caller per registered handle: who gets it may free the record.
    bool Unregister(const void* handle) noexcept;

    // For callers that must do more under the same lock. Null only when memory ran out at module load.
    vorn::Mutex* GetMutex() noexcept { return mutex_; }
    bool RegisterLocked(const void* handle) noexcept { return handles_.Insert(handle); }
    bool UnregisterLocked(const void* handle) noexcept { return handles_.Erase(handle); }

private:
    vorn::Mutex* mutex_;
    PointerSet handles_;  // guarded by mutex_
};

// Registers a handle, and unregisters it again unless kept.
class Registration {
public:
    Registration(HandleRegistry& registry, const void* handle) noexcept
        : registry_(registry), handle_(registry.Register(handle) ? handle : nullptr)
    {}
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    ~Registration()
    {
        if (handle_ != nullptr) registry_.Unregister(handle_);
    }

    explicit operator bool() const noexcept { return handle_ != nullptr; }
    void Keep() noexcept { handle_ = nullptr; }

private:
    HandleRegistry& registry_;
    const void* handle_;
};

}  // namespace vorn::detail

#endif
