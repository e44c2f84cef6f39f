// found_entry.h - what a directory says about a name.
#ifndef VORN_FILE_FOUND_ENTRY_H
#define VORN_FILE_FOUND_ENTRY_H

#include <vorn/status.h>

#include "core/win32.h"

namespace vorn::detail {

// Looks a name up in its directory: the first entry that matches when it holds wildcards. The status of the
// system error when there is none.
VornStatus FindEntry(const wchar_t* name, WIN32_FIND_DATAW* entry) noexcept;

}  // namespace vorn::detail

#endif
