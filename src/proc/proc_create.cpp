// proc_create.cpp - starting a process.

#include <vorn/proc.h>

#include "core/win32.h"

#include "core/kernel_handle.h"
#include "core/last_error.h"
#include "core/record.h"
#include "core/registries.h"
#include "core/security.h"
#include "core/system_error.h"
#include "proc/ppid.h"
#include "proc/start_strings.h"

using namespace vorn::detail;

namespace {

constexpr DWORD kStartFlags = NORMAL_PRIORITY_CLASS | CREATE_UNICODE_ENVIRONMENT;
static_assert(kStartFlags == 0x420 && CREATE_NO_WINDOW == 0x08000000);
static_assert(VORN_INFINITE == INFINITE);

// Waits for the end of a process that nobody else knows yet, and notes its exit code.
void WaitAndNoteExitCode(VornPPid* ppid, HANDLE process) noexcept
{
    WaitForSingleObject(process, INFINITE);
    DWORD exitCode = 0;
    GetExitCodeProcess(process, &exitCode);
    ppid->exitCode.store(exitCode, std::memory_order_relaxed);
    ppid->exited.store(1, std::memory_order_release);
}

}  // namespace

extern "C" VornPPid* VornProcCreate(const wchar_t* program, const wchar_t* args, VornProcEnv* env,
                                    const wchar_t* workDir, int32_t wait, VornProcMode mode, int32_t inherit,
                                    const VornSecurityDescriptor* processSecurity,
                                    const VornSecurityDescriptor* threadSecurity)
{
    if (program == nullptr && args == nullptr) return Fail<VornPPid>(VORN_E_INVALID_ARG);
    if (env != nullptr && !EnvironmentBlocks().Contains(env)) return Fail<VornPPid>(VORN_E_INVALID_ARG);
    const Buffer<wchar_t> commandLine = BuildCommandLine(program, args);
    if (!commandLine) return Fail<VornPPid>(VORN_E_NO_MEMORY);
    Buffer<wchar_t> environment;
    if (env != nullptr) {
        environment = BuildEnvironmentBlock(*env);
        if (!environment) return Fail<VornPPid>(VORN_E_NO_MEMORY);
    }
    Record<VornPPid> ppid;
    if (!ppid) return Fail<VornPPid>(VORN_E_NO_MEMORY);

    const bool hidden = mode == VORN_PROC_NO_WINDOW;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = hidden ? SW_HIDE : SW_SHOW;
    PROCESS_INFORMATION started = {};
    if (!CreateProcessW(nullptr, commandLine.Get(), AttributesOf(processSecurity),
                        AttributesOf(threadSecurity), inherit == 1,
                        hidden ? kStartFlags | CREATE_NO_WINDOW : kStartFlags, environment.Get(), workDir,
                        &startup, &started))
    {
        return Fail<VornPPid>(StatusFromSystemError(GetLastError()));
    }
    CloseHandle(started.hThread);
    KernelHandle process(started.hProcess);
    ppid->pid = started.dwProcessId;
    ppid->owned = 1;
    if (wait != 0) {
        WaitAndNoteExitCode(ppid.Get(), process.Get());
        // Deliberate: the handle stays open, and with it the process's id in use, until the caller ends.
        (void)process.Release();
    }
    ppid->process = process.Get();
    if (!Processes().Register(ppid.Get())) return Fail<VornPPid>(VORN_E_NO_MEMORY);
    (void)process.Release();
    return Succeed(ppid.Release());
}
