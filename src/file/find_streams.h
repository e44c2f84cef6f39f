// find_streams.h - the search through the named streams of one file.
#ifndef VORN_FILE_FIND_STREAMS_H
#define VORN_FILE_FIND_STREAMS_H

#include <vorn/status.h>

#include "file/find_record.h"

namespace vorn::detail {

// Starts a search for the streams of the file named by the first `fileUnits` units of `path`. On success
// `out` has the search, not registered yet, at its first stream.
VornStatus OpenStreamSearch(const wchar_t* path, size_t fileUnits, const wchar_t* pattern,
                            VornFileFind** out) noexcept;

// Goes on to the next stream that can be opened. VORN_OK; VORN_E_NO_MORE; VORN_E_NO_MEMORY, which changes
// nothing but that streams that cannot be opened may have left the list.
VornStatus NextStream(VornFileFind* find) noexcept;

}  // namespace vorn::detail

#endif
