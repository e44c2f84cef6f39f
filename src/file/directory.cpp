// directory.cpp - creating a directory, and the process's current directory.

#include <vorn/file_find.h>

#include "core/win32.h"

#include "core/security.h"

extern "C" VornStatus VornFileCreateDir(const wchar_t* path, const VornSecurityDescriptor* security)
{
    if (path == nullptr) return VORN_E_INVALID_ARG;
    if (CreateDirectoryW(path, vorn::detail::AttributesOf(security))) return VORN_OK;
    // Deliberate: only these two errors have a status here.
    switch (GetLastError()) {
        case ERROR_ALREADY_EXISTS:
            return VORN_E_EXISTS;
        case ERROR_PATH_NOT_FOUND:
            return VORN_E_PATH_NOT_FOUND;
        default:
            return VORN_E_SYSTEM;
    }
}

extern "C" uint32_t VornFileGetCurrentDir(wchar_t* buffer, uint32_t size)
{
    const DWORD needed = GetCurrentDirectoryW(0, nullptr);
    if (needed == 0 || buffer == nullptr || size < needed) return needed;
    const DWORD units = GetCurrentDirectoryW(size, buffer);
    if (units == 0) return 0;
    // A directory that has meanwhile become a longer one: its size came back, and nothing was written.
    return units < size ? units + 1 : units;
}

extern "C" VornStatus VornFileSetCurrentDir(const wchar_t* path)
{
    if (path == nullptr) return VORN_E_INVALID_ARG;
    return SetCurrentDirectoryW(path) ? VORN_OK : VORN_E_SYSTEM;
}
