#include "file/find_directory.h"

#include "core/system_error.h"

namespace vorn::detail {

VornStatus OpenDirectorySearch(const wchar_t* pattern, Buffer<wchar_t> prefix, VornFileFind** out) noexcept
{
    WIN32_FIND_DATAW data;
    HANDLE search = FindFirstFileW(pattern, &data);
    if (search == INVALID_HANDLE_VALUE) return StatusFromSystemError(GetLastError());
    SearchOwner find;
    if (!find) {
        FindClose(search);
        return VORN_E_NO_MEMORY;
    }
    find->search = search;
    find->prefix = prefix.Release();
    find->data = data;
    *out = find.Release();
    return VORN_OK;
}

bool NextDirectoryEntry(VornFileFind* find) noexcept
{
    do {
        if (!FindNextFileW(find->search, &find->data)) return false;
    } while (IsDotEntry(find->data.cFileName));
    return true;
}

}  // namespace vorn::detail
