// tls_slot.h - reads a thread-local slot of the system without touching the thread's system error.
//
// TlsGetValue clears the system error, and callers of ours rely on it being left alone. The slots are where
// the system's own headers document them: 64 in the thread's block, the others in an array behind a pointer
// that stays null until the thread first stores into one of them.
#ifndef VORN_CORE_TLS_SLOT_H
#define VORN_CORE_TLS_SLOT_H

#include "core/win32.h"

#include <cstddef>
#include <winternl.h>

namespace vorn::detail {

constexpr DWORD kDirectSlots = 64;
static_assert(sizeof(TEB::TlsSlots) == kDirectSlots * sizeof(void*));

inline void* ReadExpansionSlot(DWORD slot) noexcept
{
    const DWORD error = GetLastError();
    void* const value = TlsGetValue(slot);
    SetLastError(error);
    return value;
}

// `slot` is one that TlsAlloc has given out.
inline void* ReadTlsSlot(DWORD slot) noexcept
{
    if (__builtin_expect(slot < kDirectSlots, true)) {
        return reinterpret_cast<void*>(__readgsqword(offsetof(TEB, TlsSlots) + slot * sizeof(void*)));
    }
    return ReadExpansionSlot(slot);
}

}  // namespace vorn::detail

#endif
