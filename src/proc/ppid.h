// ppid.h - the record behind a VornPPid. Only src/proc includes this.
#ifndef VORN_PROC_PPID_H
#define VORN_PROC_PPID_H

#include <vorn/proc.h>

#include "core/win32.h"

#include <atomic>

struct VornPPid {
    uint32_t pid;    // 0 never names a process that can be opened
    HANDLE process;  // kept by records made by VornProcCreate, until a waiting create clears it; else null
    uint8_t owned;   // 1: made by VornProcCreate
    uint8_t lent;    // 1: part of a process iterator, which frees it
    // Goes from 0 to 1 once, after exitCode was written. Threads that ask at the same time write the same.
    std::atomic<uint8_t> exited;
    std::atomic<uint32_t> exitCode;
};

namespace vorn::detail {

// The calling process's record: static, never freed, registered on first use of VornProcGetCurrentPPid.
VornPPid* CurrentProcessRecord() noexcept;

}  // namespace vorn::detail

#endif
