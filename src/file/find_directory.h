// find_directory.h - the search through a directory.
#ifndef VORN_FILE_FIND_DIRECTORY_H
#define VORN_FILE_FIND_DIRECTORY_H

#include <vorn/status.h>

#include "core/win32.h"

#include "core/record.h"
#include "file/find_record.h"

namespace vorn::detail {

// True for the entries "." and "..", which stand for the directory itself and the one above it.
inline bool IsDotEntry(const wchar_t* name) noexcept
{
    return name[0] == L'.' && (name[1] == 0 || (name[1] == L'.' && name[2] == 0));
}

// Starts a search whose current entry is the system's first, "." and ".." included. On success `out` has the
// search, not registered yet, and takes the prefix over.
VornStatus OpenDirectorySearch(const wchar_t* pattern, Buffer<wchar_t> prefix, VornFileFind** out) noexcept;

// Goes on to the next entry other than "." and ".."; false at the end.
bool NextDirectoryEntry(VornFileFind* find) noexcept;

}  // namespace vorn::detail

#endif
