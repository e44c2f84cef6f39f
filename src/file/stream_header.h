// stream_header.h - the header in front of each stream of a file's backup data.
// Takes bytes and gives fields; what the fields mean for the walk is decided in stream_walk.h.
#ifndef VORN_FILE_STREAM_HEADER_H
#define VORN_FILE_STREAM_HEADER_H

#include <cstddef>
#include <cstdint>

namespace vorn::detail {

// The header's size without the name that follows it.
constexpr uint32_t kStreamHeaderBytes = 20;

// Little-endian in the data, at the offsets given. Nothing here can be trusted to make sense.
struct StreamHeader {
    uint32_t kind;        // at 0
    uint32_t attributes;  // at 4
    uint64_t dataBytes;   // at 8: the data that follows the name
    uint32_t nameBytes;   // at 16: the name that follows the header, not terminated; 0 for none
};

// Decodes a header; false, with `out` untouched, when fewer than kStreamHeaderBytes are there.
bool ParseStreamHeader(const uint8_t* bytes, size_t size, StreamHeader* out) noexcept;

}  // namespace vorn::detail

#endif
