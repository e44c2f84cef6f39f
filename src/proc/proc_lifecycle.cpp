// proc_lifecycle.cpp - following a process to its end: exit code, waiting, killing; and giving up its PPid.

#include <vorn/proc.h>

#include "core/win32.h"

#include "core/kernel_handle.h"
#include "core/registries.h"
#include "core/system_error.h"
#include "proc/ppid.h"

#include <cstdlib>

using namespace vorn::detail;

namespace {

constexpr UINT kKilledExitCode = 0xB5B5B5B5;

// The process of a record: through the record's own handle, or through one opened by its id.
class ProcessAccess {
public:
    // Whoever waits asks for SYNCHRONIZE besides the right to do the rest.
    ProcessAccess(const VornPPid* ppid, DWORD rights) noexcept
        : opened_(ppid->owned != 0 ? nullptr : OpenProcess(rights, FALSE, ppid->pid)),
          refused_(ppid->owned == 0 && !opened_),
          status_(refused_ ? StatusFromSystemError(GetLastError()) : VORN_OK),
          handle_(opened_ ? opened_.Get() : ppid->process)
    {}

    // The process had to be opened and could not be.
    bool Refused() const noexcept { return refused_; }
    // Why; VORN_OK also when the system gave no error.
    VornStatus Status() const noexcept { return status_; }
    HANDLE Get() const noexcept { return handle_; }

private:
    KernelHandle opened_;
    bool refused_;
    VornStatus status_;
    HANDLE handle_;
};

// Asks the system for the exit code and notes it. VORN_OK: the record has it.
VornStatus NoteExitCode(VornPPid* ppid) noexcept
{
    const ProcessAccess process(ppid, PROCESS_QUERY_INFORMATION | SYNCHRONIZE);
    if (process.Status() != VORN_OK) return process.Status();
    if (WaitForSingleObject(process.Get(), 0) == WAIT_TIMEOUT) return VORN_E_BAD_STATE;
    DWORD exitCode = 0;
    if (!GetExitCodeProcess(process.Get(), &exitCode)) return VORN_E_BAD_STATE;
    ppid->exitCode.store(exitCode, std::memory_order_relaxed);
    ppid->exited.store(1, std::memory_order_release);
    return VORN_OK;
}

}  // namespace

extern "C" VornStatus VornProcGetExitCode(VornPPid* ppid, uint32_t* code)
{
    if (code == nullptr || !Processes().Contains(ppid) || ppid->pid == 0) return VORN_E_INVALID_ARG;
    if (ppid->exited.load(std::memory_order_acquire) == 0) {
        const VornStatus status = NoteExitCode(ppid);
        if (status != VORN_OK) return status;
    }
    *code = ppid->exitCode.load(std::memory_order_relaxed);
    return VORN_OK;
}

extern "C" VornStatus VornProcWaitForTerm(VornPPid* ppid, uint32_t timeout)
{
    if (!Processes().Contains(ppid) || ppid->pid == 0) return VORN_E_INVALID_ARG;
    const ProcessAccess process(ppid, SYNCHRONIZE);
    if (process.Status() != VORN_OK) return process.Status();
    // Deliberate: a wait that fails counts as the end, which is also how a record without a handle answers.
    return WaitForSingleObject(process.Get(), timeout) == WAIT_TIMEOUT ? VORN_E_BAD_STATE : VORN_OK;
}

extern "C" VornStatus VornProcKill(VornPPid* ppid)
{
    if (!Processes().Contains(ppid)) return VORN_E_INVALID_ARG;
    const ProcessAccess process(ppid, PROCESS_TERMINATE | SYNCHRONIZE);
    // Deliberate: one status for every reason.
    if (process.Refused()) return VORN_E_NOT_PERMITTED;
    if (!TerminateProcess(process.Get(), kKilledExitCode)) return StatusFromSystemError(GetLastError());
    WaitForSingleObject(process.Get(), INFINITE);
    return VORN_OK;
}

extern "C" VornStatus VornProcSuspend(VornPPid*)
{
    return VORN_E_NOT_SUPPORTED;
}

extern "C" VornStatus VornProcResume(VornPPid* ppid)
{
    return VornProcSuspend(ppid);
}

extern "C" VornStatus VornProcFreePPid(VornPPid* ppid)
{
    if (!Processes().Contains(ppid) || ppid->lent != 0) return VORN_E_INVALID_ARG;
    if (ppid == CurrentProcessRecord()) return VORN_OK;
    if (!Processes().Unregister(ppid)) return VORN_E_INVALID_ARG;
    // Deliberate: the handle of a process that still runs stays open.
    if (ppid->process != nullptr && WaitForSingleObject(ppid->process, 0) == WAIT_OBJECT_0) {
        CloseHandle(ppid->process);
    }
    std::free(ppid);
    return VORN_OK;
}
