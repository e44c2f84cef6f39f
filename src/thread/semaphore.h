// semaphore.h - the record behind a semaphore handle, and what the rest of the library uses of semaphores.
#ifndef VORN_THREAD_SEMAPHORE_H
#define VORN_THREAD_SEMAPHORE_H

#include <vorn/sync.h>

#include "core/win32.h"

struct VornSemaphore {
    HANDLE native;
};

namespace vorn::detail {

constexpr LONG kMaxSemaphoreCount = 0x7FFFFFFF;

// Opens or creates the system's semaphore of this name; the prefix of the global namespace is put in front
// here. `flags` are those of VornSemaphoreOpen. `*out` is written on success only; give it back with
// VornSemaphoreClose.
// VORN_E_INVALID_ARG flags; VORN_E_RANGE initialCount negative; VORN_E_INVALID_NAME a slash, a backslash or a
// space in the name; VORN_E_NO_MEMORY; VORN_E_EXISTS an exclusive open of an existing one; VORN_E_SYSTEM no
// such semaphore to open, or the system refused.
VornStatus OpenNamedSemaphore(VornSemaphore** out, const wchar_t* name, int32_t flags, int32_t initialCount,
                              const VornSecurityDescriptor* security) noexcept;

// Releases `count` permits at once. VORN_E_RANGE when that would pass the largest count.
inline VornStatus PostSemaphore(const VornSemaphore* semaphore, LONG count) noexcept
{
    if (ReleaseSemaphore(semaphore->native, count, nullptr)) return VORN_OK;
    return GetLastError() == ERROR_TOO_MANY_POSTS ? VORN_E_RANGE : VORN_E_SYSTEM;
}

}  // namespace vorn::detail

#endif
