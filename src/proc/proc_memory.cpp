// proc_memory.cpp - reading and writing the memory of a process.

#include <vorn/proc.h>

#include "core/win32.h"

#include "core/kernel_handle.h"
#include "core/registries.h"
#include "proc/debug_privilege.h"
#include "proc/ppid.h"

using namespace vorn::detail;

namespace {

// Opens the process where the record keeps no handle, lets `transfer` move the bytes, and counts them.
template <class Transfer>
VornStatus Access(const VornPPid* ppid, DWORD rights, VornStatus failure, uint32_t* transferred,
                  Transfer&& transfer) noexcept
{
    DebugPrivilege privilege;
    const KernelHandle opened(ppid->process != nullptr ? nullptr : OpenProcess(rights, FALSE, ppid->pid));
    const HANDLE process = ppid->process != nullptr ? ppid->process : opened.Get();
    if (process == nullptr) {
        // Deliberate: on this one path the privilege stays enabled.
        privilege.LeaveAsItIs();
        return VORN_E_NOT_PERMITTED;
    }
    SIZE_T count = 0;
    if (!transfer(process, &count)) return failure;
    if (transferred != nullptr) *transferred = static_cast<uint32_t>(count);
    return VORN_OK;
}

}  // namespace

extern "C" VornStatus VornProcMemRead(VornPPid* ppid, const void* address, void* buffer, uint32_t size,
                                      uint32_t* bytesRead)
{
    if (buffer == nullptr || size == 0 || !Processes().Contains(ppid)) return VORN_E_INVALID_ARG;
    return Access(ppid, PROCESS_VM_READ, VORN_E_READ, bytesRead, [=](HANDLE process, SIZE_T* count) {
        return ReadProcessMemory(process, address, buffer, size, count);
    });
}

extern "C" VornStatus VornProcMemWrite(VornPPid* ppid, void* address, const void* buffer, uint32_t size,
                                       uint32_t* bytesWritten)
{
    if (buffer == nullptr || size == 0 || !Processes().Contains(ppid)) return VORN_E_INVALID_ARG;
    // The system demands the right to operate on the memory besides the one to write it.
    constexpr DWORD kRights = PROCESS_VM_WRITE | PROCESS_VM_OPERATION;
    return Access(ppid, kRights, VORN_E_WRITE, bytesWritten, [=](HANDLE process, SIZE_T* count) {
        return WriteProcessMemory(process, address, buffer, size, count);
    });
}
