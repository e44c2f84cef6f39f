// file_attributes.cpp - size, attributes and kind of what a name stands for.

#include <vorn/file.h>

#include "core/system_error.h"
#include "file/found_entry.h"

using namespace vorn::detail;

namespace {

// What tells existing names from missing ones. Deliberate: attributes that are all 0 count as missing.
bool Exists(DWORD attributes)
{
    return attributes != INVALID_FILE_ATTRIBUTES && attributes != 0;
}

bool IsDirectory(DWORD attributes)
{
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

}  // namespace

extern "C" uint64_t VornFileGetSizeByName(const wchar_t* name)
{
    // Deliberate: the number of the status, as a size.
    if (name == nullptr) return VORN_E_INVALID_ARG;
    WIN32_FIND_DATAW entry;
    const VornStatus status = FindEntry(name, &entry);
    VornSetLastError(status);
    if (status != VORN_OK) return VORN_FILE_FAILED;
    return static_cast<uint64_t>(entry.nFileSizeHigh) << 32 | entry.nFileSizeLow;
}

extern "C" VornStatus VornFileGetAttributes(const wchar_t* name, uint32_t* attributes)
{
    if (name == nullptr || attributes == nullptr) return VORN_E_INVALID_ARG;
    *attributes = GetFileAttributesW(name);
    return *attributes != INVALID_FILE_ATTRIBUTES ? VORN_OK : StatusFromSystemError(GetLastError());
}

extern "C" VornStatus VornFileSetAttributes(const wchar_t* name, const uint32_t* attributes)
{
    if (name == nullptr || attributes == nullptr) return VORN_E_INVALID_ARG;
    return SetFileAttributesW(name, *attributes) ? VORN_OK : StatusFromSystemError(GetLastError());
}

extern "C" VornStatus VornFileGetReadOnly(const wchar_t* name, uint32_t* readOnly)
{
    if (name == nullptr || readOnly == nullptr) return VORN_E_INVALID_ARG;
    const DWORD attributes = GetFileAttributesW(name);
    // Deliberate: one status for every reason.
    if (attributes == INVALID_FILE_ATTRIBUTES) return VORN_E_NOT_FOUND;
    *readOnly = (attributes & FILE_ATTRIBUTE_READONLY) != 0 ? 1 : 0;
    return VORN_OK;
}

extern "C" VornStatus VornFileSetReadOnly(const wchar_t* name, uint32_t readOnly)
{
    if (name == nullptr) return VORN_E_INVALID_ARG;
    const DWORD before = GetFileAttributesW(name);
    if (before == INVALID_FILE_ATTRIBUTES) return VORN_E_NOT_FOUND;
    // Deliberate: 1 sets the bit, every other value clears it.
    const DWORD wanted = readOnly == 1 ? FILE_ATTRIBUTE_READONLY : 0;
    if (!SetFileAttributesW(name, (before & ~DWORD{FILE_ATTRIBUTE_READONLY}) | wanted)) return VORN_E_WRITE;
    // Some file systems accept the change and do not make it.
    WIN32_FILE_ATTRIBUTE_DATA after;
    if (!GetFileAttributesExW(name, GetFileExInfoStandard, &after)) return VORN_E_WRITE;
    return (after.dwFileAttributes & FILE_ATTRIBUTE_READONLY) == wanted ? VORN_OK : VORN_E_NOT_APPLIED;
}

extern "C" VBool VornFileExistsFile(const wchar_t* name)
{
    const DWORD attributes = GetFileAttributesW(name);
    return Exists(attributes) && !IsDirectory(attributes) ? VORN_TRUE : VORN_FALSE;
}

extern "C" VBool VornFileExistsDir(const wchar_t* name)
{
    const DWORD attributes = GetFileAttributesW(name);
    return Exists(attributes) && IsDirectory(attributes) ? VORN_TRUE : VORN_FALSE;
}

extern "C" VornFileType VornFileGetType(const wchar_t* name)
{
    const DWORD attributes = GetFileAttributesW(name);
    if (attributes == INVALID_FILE_ATTRIBUTES) return VORN_FILE_TYPE_UNKNOWN;
    return IsDirectory(attributes) ? VORN_FILE_TYPE_DIRECTORY : VORN_FILE_TYPE_FILE;
}
