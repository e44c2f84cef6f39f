// line_end.h - where the first line of a text ends. Bytes in, numbers out; no system.
#ifndef VORN_FILE_LINE_END_H
#define VORN_FILE_LINE_END_H

#include <cstdint>

namespace vorn::detail {

struct LineEnd {
    bool found;
    uint32_t offset;  // of the end's first byte; without an end, the number of bytes looked at
    uint32_t length;  // of the end itself: 1 for LF, 2 for CR LF, 0 without an end
};

// Looks for the first line end in `count` bytes. A CR that is not followed by LF within them is text.
LineEnd FindLineEnd(const uint8_t* bytes, uint32_t count) noexcept;

}  // namespace vorn::detail

#endif
