#include "file/found_entry.h"

#include "core/system_error.h"

namespace vorn::detail {

VornStatus FindEntry(const wchar_t* name, WIN32_FIND_DATAW* entry) noexcept
{
    HANDLE search = FindFirstFileW(name, entry);
    if (search == INVALID_HANDLE_VALUE) return StatusFromSystemError(GetLastError());
    FindClose(search);
    return VORN_OK;
}

}  // namespace vorn::detail
