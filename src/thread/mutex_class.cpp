#include <vorn/sync.hpp>

#include "core/throw_status.h"

namespace vorn {

using detail::kAnyStatus;
using detail::Throw;
using detail::ThrowForStatus;
using detail::ThrowRule;

namespace {

constexpr ThrowRule kCreateRules[] = {
    {VORN_E_INVALID_ARG, Throw<InvalidArgument>, "Invalid argument"},
    {VORN_E_NO_MEMORY, Throw<BadAlloc>, "Bad allocation"},
    {kAnyStatus, Throw<RuntimeError>, "Error creating mutex."},
};

constexpr ThrowRule kLockRules[] = {
    // Deliberate: the message is spelled as clients have always seen it.
    {VORN_E_DEADLOCK, Throw<LockError>, "Attempt to lock alredy owned non-recursive mutex."},
    {kAnyStatus, Throw<LockError>, "Mutex lock failed."},
};

constexpr ThrowRule kUnlockRules[] = {
    {VORN_E_NOT_PERMITTED, Throw<LockError>, "Attempt to unlock not owned mutex."},
    {kAnyStatus, Throw<LockError>, "Mutex unlock failed."},
};

}  // namespace

Mutex::Mutex(const VornMutexAttr* attr) : handle_(nullptr)
{
    const VornStatus status = VornMutexCreate(&handle_, attr);
    if (status != VORN_OK) ThrowForStatus(status, kCreateRules);
}

Mutex::~Mutex()
{
    VornMutexDestroy(&handle_);
}

void Mutex::Lock()
{
    const VornStatus status = VornMutexLock(&handle_);
    if (status != VORN_OK) ThrowForStatus(status, kLockRules);
}

bool Mutex::TryLock()
{
    return VornMutexTryLock(&handle_) == VORN_OK;
}

void Mutex::Unlock()
{
    const VornStatus status = VornMutexUnlock(&handle_);
    if (status != VORN_OK) ThrowForStatus(status, kUnlockRules);
}

AutoLock::AutoLock(VornMutex** mutex) noexcept : status_(VornMutexLock(mutex)), mutex_(mutex) {}

AutoLock::~AutoLock()
{
    if (status_ == VORN_OK) VornMutexUnlock(mutex_);
}

AutoTryLock::AutoTryLock(VornMutex** mutex) noexcept : status_(VornMutexTryLock(mutex)), mutex_(mutex) {}

AutoTryLock::~AutoTryLock()
{
    if (status_ == VORN_OK) VornMutexUnlock(mutex_);
}

}  // namespace vorn
