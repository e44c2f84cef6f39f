#include "proc/module_names.h"

#include "core/kernel_handle.h"
#include "core/system_error.h"
#include "proc/debug_privilege.h"

#include <cstring>
#include <psapi.h>

namespace vorn::detail {

namespace {

VornStatus StatusOfNameLength(DWORD length, uint32_t capacity) noexcept
{
    if (length == capacity) return VORN_E_BUFFER_TOO_SMALL;
    return length != 0 ? VORN_OK : StatusFromSystemError(GetLastError());
}

}  // namespace

VornStatus OwnModuleName(HMODULE module, wchar_t* buffer, uint32_t* size) noexcept
{
    const DWORD length = GetModuleFileNameW(module, buffer, *size);
    const VornStatus status = StatusOfNameLength(length, *size);
    if (status == VORN_OK) *size = length;
    return status;
}

VornStatus ModuleNameIn(uint32_t pid, HMODULE module, wchar_t* buffer, uint32_t* size) noexcept
{
    const DebugPrivilege privilege;
    const KernelHandle process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, pid));
    if (!process) return VORN_E_SYSTEM;
    const DWORD length = GetModuleFileNameExW(process.Get(), module, buffer, *size);
    const VornStatus status = StatusOfNameLength(length, *size);
    *size = length;
    return status;
}

VornStatus ExecutableNameOf(uint32_t pid, wchar_t* buffer, uint32_t* size) noexcept
{
    if (pid != 0) return ModuleNameIn(pid, nullptr, buffer, size);
    constexpr wchar_t kIdleName[] = L"Idle";
    constexpr uint32_t kIdleUnits = sizeof(kIdleName) / sizeof(wchar_t);
    const bool fits = *size >= kIdleUnits;
    if (fits) std::memcpy(buffer, kIdleName, sizeof(kIdleName));
    // Deliberate: the length without the terminating zero also when that is not enough.
    *size = kIdleUnits - 1;
    return fits ? VORN_OK : VORN_E_BUFFER_TOO_SMALL;
}

}  // namespace vorn::detail
