// file_read_line.cpp - one line of 8-bit text at a time.
//
// A line is read by filling the caller's buffer and moving the position back to where the line ended. The
// buffer always keeps room for the terminating zero, so the byte that the zero replaces is read again by the
// next call.

#include "core/fault_guard.h"
#include "core/registries.h"
#include "file/file_record.h"
#include "file/line_end.h"

using namespace vorn::detail;

namespace {

constexpr uint8_t kCarriageReturn = '\r';
constexpr uint8_t kLineFeed = '\n';

// Whether the next byte of the file is a line feed. The read moves the position and may set the end-of-file
// flag; the caller repositions.
bool NextByteIsLineFeed(VornFile* file)
{
    uint8_t next = 0;
    uint32_t read = 0;
    return VornFileRead(file, &next, 1, &read) == VORN_OK && read == 1 && next == kLineFeed;
}

// Deliberate: a piece without a line end is followed one byte further on when the byte behind what was read
// is 11, although nothing put it there. Where the read filled the buffer that byte is the caller's neighbour:
// it is looked at under guard, since it may not be there, and not written.
bool StaleByteSkips(const uint8_t* byte, bool inBuffer)
{
    constexpr uint8_t kSkipping = 11;
    if (inBuffer) return *byte == kSkipping;
    bool skips = false;
    return RunGuarded([&] { skips = *const_cast<const volatile uint8_t*>(byte) == kSkipping; }) && skips;
}

}  // namespace

extern "C" VornStatus VornFileReadLine(VornFile* file, uint8_t* buffer, uint32_t size, uint32_t* length)
{
    const uint64_t start = VornFileGetPos(file);
    const VornStatus status = VornFileRead(file, buffer, size, length);
    if (status != VORN_OK) return status;
    const uint32_t read = *length;
    if (read == 0) {
        if (size != 0) buffer[0] = 0;
        return VORN_OK;
    }

    const LineEnd end = FindLineEnd(buffer, read);
    const bool full = read == size;
    uint32_t text = end.offset;
    uint32_t skip = end.length;
    if (!end.found) {
        if (full) text = size - 1;
        if (buffer[read - 1] == kCarriageReturn) {
            skip = NextByteIsLineFeed(file) ? 2 : 1;
        } else {
            skip = StaleByteSkips(buffer + read, !full) ? 1 : 0;
        }
    }

    buffer[text] = 0;
    *length = text + 1;
    VornFileSeek(file, static_cast<int64_t>(start + text + skip), VORN_FILE_SEEK_BEGIN);
    return VORN_OK;
}
