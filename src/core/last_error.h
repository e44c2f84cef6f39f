// last_error.h - how a function that returns a handle ends: with its outcome in the last-error slot.
#ifndef VORN_CORE_LAST_ERROR_H
#define VORN_CORE_LAST_ERROR_H

#include <vorn/status.h>

namespace vorn::detail {

// Ends a function with a failure: `return Fail<VornFile>(VORN_E_NO_MEMORY);`
template <class T>
T* Fail(VornStatus status) noexcept
{
    VornSetLastError(status);
    return nullptr;
}

// Ends a function with a handle: `return Succeed(file.Release());`
template <class T>
T* Succeed(T* result) noexcept
{
    VornSetLastError(VORN_OK);
    return result;
}

// Gives the slot its thread-local index; false when the system has none left.
bool AllocateLastErrorSlot() noexcept;
void FreeLastErrorSlot() noexcept;

}  // namespace vorn::detail

#endif
