#include "core/last_error.h"

#include "core/win32.h"

#include "core/tls_slot.h"

#include <atomic>

using vorn::detail::ReadTlsSlot;

namespace {

// TLS_OUT_OF_INDEXES while the library is not initialised: set and get then do nothing.
std::atomic<DWORD> slot{TLS_OUT_OF_INDEXES};

}  // namespace

namespace vorn::detail {

bool AllocateLastErrorSlot() noexcept
{
    const DWORD index = TlsAlloc();
    slot.store(index, std::memory_order_release);
    return index != TLS_OUT_OF_INDEXES;
}

void FreeLastErrorSlot() noexcept
{
    const DWORD index = slot.exchange(TLS_OUT_OF_INDEXES, std::memory_order_acq_rel);
    if (index != TLS_OUT_OF_INDEXES) TlsFree(index);
}

}  // namespace vorn::detail

extern "C" void VornSetLastError(VornStatus status)
{
    const DWORD index = slot.load(std::memory_order_acquire);
    if (index == TLS_OUT_OF_INDEXES) return;
    TlsSetValue(index, reinterpret_cast<void*>(static_cast<uintptr_t>(status)));
}

extern "C" VornStatus VornGetLastError(void)
{
    const DWORD index = slot.load(std::memory_order_acquire);
    if (index == TLS_OUT_OF_INDEXES) return VORN_OK;
    return static_cast<VornStatus>(reinterpret_cast<uintptr_t>(ReadTlsSlot(index)));
}
