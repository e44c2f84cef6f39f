// module_names.h - file names of modules, of the calling process and of others.
//
// All of them fill `buffer`, whose capacity is `*size` units, with a terminated name. A name that fills the
// buffer counts as cut off: VORN_E_BUFFER_TOO_SMALL. Other failures are the system's error translated.
#ifndef VORN_PROC_MODULE_NAMES_H
#define VORN_PROC_MODULE_NAMES_H

#include <vorn/status.h>

#include "core/win32.h"

namespace vorn::detail {

// A module of the calling process; null is the executable. On success `*size` is the name's length; on
// failure it is left alone.
VornStatus OwnModuleName(HMODULE module, wchar_t* buffer, uint32_t* size) noexcept;

// A module of the process `pid`; null is its executable. `*size` is what the system answered, failures
// included: 0, or the capacity. A process that cannot be opened gives VORN_E_SYSTEM and leaves it alone.
VornStatus ModuleNameIn(uint32_t pid, HMODULE module, wchar_t* buffer, uint32_t* size) noexcept;

// The executable of the process `pid`; the idle process, 0, has a name without being opened.
VornStatus ExecutableNameOf(uint32_t pid, wchar_t* buffer, uint32_t* size) noexcept;

}  // namespace vorn::detail

#endif
