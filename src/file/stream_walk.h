// stream_walk.h - finds a file's named streams in its backup data.
//
// The data comes from outside: every length in it is checked before it is used, and whatever it says, the
// walk reads nothing but what it asked for and ends no later than the data does.
#ifndef VORN_FILE_STREAM_WALK_H
#define VORN_FILE_STREAM_WALK_H

#include <vorn/status.h>

#include "file/stream_list.h"

#include <cstddef>
#include <cstdint>

namespace vorn::detail {

// Where the backup data comes from; both functions go on from where the one before ended.
struct StreamSource {
    void* context;
    // Reads up to `bytes`; false when the read failed. At the data's end it succeeds with 0 bytes.
    bool (*read)(void* context, void* buffer, uint32_t bytes, uint32_t* bytesRead);
    // Skips up to `bytes` of the current stream's data; false when that failed.
    bool (*seek)(void* context, uint64_t bytes, uint64_t* bytesSkipped);
};

// Appends to `list` every named stream whose name without its leading colon matches the pattern.
// VORN_OK; VORN_E_READ the first header cannot be read; VORN_E_NO_MEMORY; VORN_E_NOT_AVAILABLE no stream
// matches. Data that breaks off later, or makes no sense, only ends the walk.
VornStatus FindStreams(const StreamSource& source, const wchar_t* pattern, size_t patternUnits,
                       StreamList* list) noexcept;

}  // namespace vorn::detail

#endif
