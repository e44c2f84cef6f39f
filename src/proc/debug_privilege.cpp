#include "proc/debug_privilege.h"

#include "core/win32.h"

#include "core/kernel_handle.h"

namespace vorn::detail {

namespace {

// The calling thread's token for looking at privileges and changing them; empty when there is none.
KernelHandle OpenOwnToken() noexcept
{
    constexpr DWORD kRights = TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY;
    HANDLE token = nullptr;
    if (OpenThreadToken(GetCurrentThread(), kRights, FALSE, &token)) return KernelHandle(token);
    if (GetLastError() != ERROR_NO_TOKEN || !ImpersonateSelf(SecurityImpersonation)) return KernelHandle();
    if (!OpenThreadToken(GetCurrentThread(), kRights, FALSE, &token)) return KernelHandle();
    return KernelHandle(token);
}

// Sets whether the debug privilege is enabled. True when that changed it.
bool SetDebugPrivilege(bool enabled) noexcept
{
    const KernelHandle token = OpenOwnToken();
    if (!token) return false;
    TOKEN_PRIVILEGES wanted = {};
    wanted.PrivilegeCount = 1;
    wanted.Privileges[0].Attributes = enabled ? SE_PRIVILEGE_ENABLED : 0;
    if (!LookupPrivilegeValueW(nullptr, SE_DEBUG_NAME, &wanted.Privileges[0].Luid)) return false;
    TOKEN_PRIVILEGES previous = {};
    DWORD size = sizeof(previous);
    if (!AdjustTokenPrivileges(token.Get(), FALSE, &wanted, sizeof(previous), &previous, &size)) return false;
    // A privilege that the token does not hold is not listed, and neither need be one that had that state.
    const bool wasEnabled = (previous.Privileges[0].Attributes & SE_PRIVILEGE_ENABLED) != 0;
    return previous.PrivilegeCount == 1 && wasEnabled != enabled;
}

}  // namespace

DebugPrivilege::DebugPrivilege() noexcept : switchedOn_(SetDebugPrivilege(true)) {}

DebugPrivilege::~DebugPrivilege()
{
    if (switchedOn_) SetDebugPrivilege(false);
}

}  // namespace vorn::detail
