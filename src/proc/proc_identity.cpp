// proc_identity.cpp - which process a PPid stands for: native ids, the calling process, executable names.

#include <vorn/proc.h>

#include "core/win32.h"

#include "core/kernel_handle.h"
#include "core/last_error.h"
#include "core/record.h"
#include "core/registries.h"
#include "proc/module_names.h"
#include "proc/ppid.h"

using namespace vorn::detail;

namespace {

VornPPid currentProcess = {GetCurrentProcessId(), nullptr, 0, 0, {0}, {0}};
std::atomic<bool> currentProcessKnown{false};  // it is in the registry

}  // namespace

VornPPid* vorn::detail::CurrentProcessRecord() noexcept
{
    return &currentProcess;
}

extern "C" VornPPid* VornProcGetCurrentPPid(void)
{
    // Threads that come first together all register it: the registry keeps it once.
    if (!currentProcessKnown.load(std::memory_order_acquire)) {
        if (!Processes().Register(&currentProcess)) return Fail<VornPPid>(VORN_E_NO_MEMORY);
        currentProcessKnown.store(true, std::memory_order_release);
    }
    return Succeed(&currentProcess);
}

extern "C" uint32_t VornProcPPid2Native(VornPPid* ppid)
{
    if (!Processes().Contains(ppid)) {
        VornSetLastError(VORN_E_INVALID_ARG);
        return 0;
    }
    VornSetLastError(VORN_OK);
    return ppid->pid;
}

extern "C" VornPPid* VornProcNative2PPid(uint32_t nativeId)
{
    if (nativeId == 0) return Fail<VornPPid>(VORN_E_INVALID_ARG);
    // Open while the record is made: the process cannot be replaced by another of the same id meanwhile.
    const KernelHandle probe(OpenProcess(SYNCHRONIZE, FALSE, nativeId));
    if (!probe) return Fail<VornPPid>(VORN_E_INVALID_ARG);
    Record<VornPPid> ppid;
    if (!ppid) return Fail<VornPPid>(VORN_E_NO_MEMORY);
    ppid->pid = nativeId;
    if (!Processes().Register(ppid.Get())) return Fail<VornPPid>(VORN_E_NO_MEMORY);
    return Succeed(ppid.Release());
}

extern "C" VornStatus VornProcGetExecutableName(VornPPid* ppid, wchar_t* buffer, uint32_t* size)
{
    if (buffer == nullptr || size == nullptr) return VORN_E_INVALID_ARG;
    if (ppid == nullptr) return OwnModuleName(nullptr, buffer, size);
    if (!Processes().Contains(ppid)) return VORN_E_INVALID_ARG;
    return ExecutableNameOf(ppid->pid, buffer, size);
}
