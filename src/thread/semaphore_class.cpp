#include <vorn/sync.hpp>

#include "core/throw_status.h"

#include <cstring>
#include <memory>
#include <new>

namespace vorn {

using detail::kAnyStatus;
using detail::Throw;
using detail::ThrowForStatus;
using detail::ThrowRule;

namespace {

constexpr ThrowRule kOpenRules[] = {
    {VORN_E_NO_MEMORY, Throw<BadAlloc>, "Bad allocation"},
    {VORN_E_RANGE, Throw<OutOfRange>, "Invalid initial semaphore value."},
    {VORN_E_INVALID_NAME, Throw<InvalidArgument>, "Invalid semaphore name."},
    {VORN_E_INVALID_ARG, Throw<InvalidArgument>, "Invalid argument"},
    {VORN_E_EXISTS, Throw<LogicError>, "Semaphore with this name already exists."},
    {VORN_E_NOT_SUPPORTED, Throw<NotImplementedError>, "Not implemented"},
    {kAnyStatus, Throw<RuntimeError>, "Error creating semaphore."},
};

constexpr ThrowRule kWaitRules[] = {{kAnyStatus, Throw<SyncError>, "Semaphore wait error"}};

constexpr ThrowRule kPostRules[] = {
    {VORN_E_RANGE, Throw<OutOfRange>, "Semaphore reached maximum count value."},
    {kAnyStatus, Throw<SyncError>, "Error posting semaphore."},
};

constexpr ThrowRule kBarrierCreateRules[] = {
    {VORN_E_NO_MEMORY, Throw<BadAlloc>, "Bad allocation"},
    {VORN_E_INVALID_ARG, Throw<InvalidArgument>, "Invalid argument"},
    {VORN_E_NOT_SUPPORTED, Throw<NotImplementedError>, "Not implemented"},
    {kAnyStatus, Throw<RuntimeError>, "Error creating barrier."},
};

constexpr ThrowRule kBarrierWaitRules[] = {{kAnyStatus, Throw<RuntimeError>, "Error waiting on barrier."}};

// Null for a null name.
std::unique_ptr<char[]> CopyName(const char* name)
{
    if (name == nullptr) return nullptr;
    const size_t size = std::strlen(name) + 1;
    std::unique_ptr<char[]> copy(new (std::nothrow) char[size]);
    if (!copy) ThrowForStatus(VORN_E_NO_MEMORY, kOpenRules);
    std::memcpy(copy.get(), name, size);
    return copy;
}

}  // namespace

Semaphore::Semaphore(int initial, bool shared) : name_(nullptr), handle_(nullptr)
{
    const VornStatus status = VornSemaphoreCreate(&handle_, initial, shared ? 1 : 0);
    if (status != VORN_OK) ThrowForStatus(status, kOpenRules);
}

Semaphore::Semaphore(const char* name, bool create, bool exclusive, int initial,
                     const VornSecurityDescriptor* security)
    : name_(nullptr), handle_(nullptr)
{
    std::unique_ptr<char[]> ownName = CopyName(name);
    const int32_t flags = (create ? VORN_SEMAPHORE_CREATE : 0) | (exclusive ? VORN_SEMAPHORE_EXCLUSIVE : 0);
    const VornStatus status = VornSemaphoreOpen(&handle_, name, flags, initial, security);
    if (status != VORN_OK) ThrowForStatus(status, kOpenRules);
    name_ = ownName.release();
}

Semaphore::~Semaphore()
{
    VornSemaphoreClose(&handle_);
    delete[] name_;
}

void Semaphore::Wait()
{
    const VornStatus status = VornSemaphoreWait(&handle_);
    if (status != VORN_OK) ThrowForStatus(status, kWaitRules);
}

bool Semaphore::TryWait()
{
    return VornSemaphoreTryWait(&handle_) == VORN_OK;
}

void Semaphore::Post()
{
    const VornStatus status = VornSemaphorePost(&handle_);
    if (status != VORN_OK) ThrowForStatus(status, kPostRules);
}

Barrier::Barrier(unsigned count, bool shared) : handle_(nullptr)
{
    const VornStatus status = VornBarrierCreate(&handle_, count, shared ? 1 : 0);
    if (status != VORN_OK) ThrowForStatus(status, kBarrierCreateRules);
}

Barrier::~Barrier()
{
    VornBarrierDestroy(&handle_);
}

bool Barrier::Wait()
{
    const VornStatus status = VornBarrierWait(&handle_);
    if (status != VORN_OK && status != VORN_BARRIER_SERIAL_THREAD) {
        ThrowForStatus(status, kBarrierWaitRules);
    }
    return status == VORN_BARRIER_SERIAL_THREAD;
}

}  // namespace vorn
