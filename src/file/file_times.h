// file_times.h - file times as calendar times.
#ifndef VORN_FILE_FILE_TIMES_H
#define VORN_FILE_FILE_TIMES_H

#include <vorn/types.h>

#include "core/win32.h"

namespace vorn::detail {

// Fills `*out` with a file time, in UTC; an output that is null, or a time without a calendar form, leaves it
// as it is.
void FileTimeToVornTime(const FILETIME& time, VornTime* out) noexcept;

// False when `time` is no calendar time. The day of week is ignored.
bool VornTimeToFileTime(const VornTime& time, FILETIME* out) noexcept;

}  // namespace vorn::detail

#endif
