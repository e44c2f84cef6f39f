// start_strings.h - the two texts that a new process is started with: its command line and its environment.
// No system calls. Both functions give an empty buffer when memory is exhausted.
#ifndef VORN_PROC_START_STRINGS_H
#define VORN_PROC_START_STRINGS_H

#include "core/record.h"
#include "proc/env_table.h"

namespace vorn::detail {

// Zero-terminated and writable, as the system wants it. `program` gets double quotes unless it begins with
// one, `args` follows after one space as it is; one of the two may be null.
Buffer<wchar_t> BuildCommandLine(const wchar_t* program, const wchar_t* args) noexcept;

// The table's strings one after another, each with its terminating zero, then two more zeros.
Buffer<wchar_t> BuildEnvironmentBlock(const VornProcEnv& env) noexcept;

}  // namespace vorn::detail

#endif
