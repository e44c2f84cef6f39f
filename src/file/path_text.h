// path_text.h - pieces of paths, made with the C allocator. Lengths are in UTF-16 units without terminator.
#ifndef VORN_FILE_PATH_TEXT_H
#define VORN_FILE_PATH_TEXT_H

#include <vorn/status.h>

#include "core/record.h"

namespace vorn::detail {

// The two texts behind each other, terminated; empty when memory is exhausted.
Buffer<wchar_t> Concatenate(const wchar_t* first, size_t firstUnits, const wchar_t* second,
                            size_t secondUnits) noexcept;

// The current directory with a trailing backslash. VORN_OK; VORN_E_NO_MEMORY; the status of the system's
// error.
VornStatus CurrentDirectoryPrefix(Buffer<wchar_t>* prefix) noexcept;

}  // namespace vorn::detail

#endif
