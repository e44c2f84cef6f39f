#include "thread/handler_table.h"

#include <cstring>

namespace vorn::detail {

namespace {

// Encodings of values in the table; the low four bits say the format.
constexpr uint8_t kOmitted = 0xFF;
constexpr uint8_t kFormatMask = 0x0F;
constexpr uint8_t kUleb128 = 0x01;
constexpr uint8_t kUdata2 = 0x02;
constexpr uint8_t kUdata4 = 0x03;
constexpr uint8_t kUdata8 = 0x04;
constexpr uint8_t kSdata2 = 0x0A;
constexpr uint8_t kSdata4 = 0x0B;
constexpr uint8_t kSdata8 = 0x0C;

// Seven bits to a byte, the lowest first; the top bit says that more follow. Adds the bits read to `bits`.
uint64_t ReadLeb128(const uint8_t*& at, unsigned* bits) noexcept
{
    uint64_t value = 0;
    uint8_t byte;
    do {
        byte = *at++;
        if (*bits < 64) value |= static_cast<uint64_t>(byte & 0x7F) << *bits;
        *bits += 7;
    } while ((byte & 0x80) != 0);
    return value;
}

uint64_t ReadUleb128(const uint8_t*& at) noexcept
{
    unsigned bits = 0;
    return ReadLeb128(at, &bits);
}

int64_t ReadSleb128(const uint8_t*& at) noexcept
{
    unsigned bits = 0;
    const uint64_t value = ReadLeb128(at, &bits);
    const bool negative = (at[-1] & 0x40) != 0;
    return static_cast<int64_t>(negative && bits < 64 ? value | ~uint64_t{0} << bits : value);
}

// Bytes of a fixed-width format; 0 for any other.
unsigned WidthOf(uint8_t encoding) noexcept
{
    switch (encoding & kFormatMask) {
        case 0:
        case kUdata8:
        case kSdata8:
            return 8;
        case kUdata4:
        case kSdata4:
            return 4;
        case kUdata2:
        case kSdata2:
            return 2;
        default:
            return 0;
    }
}

bool IsZero(const uint8_t* bytes, unsigned width) noexcept
{
    for (unsigned i = 0; i < width; ++i) {
        if (bytes[i] != 0) return false;
    }
    return true;
}

// Follows the chain of actions of a call site that has a landing pad.
FrameAction FollowActions(const uint8_t* action, const uint8_t* types, uint8_t typeEncoding) noexcept
{
    const unsigned width = typeEncoding == kOmitted ? 0 : WidthOf(typeEncoding);
    FrameAction found = FrameAction::kNone;
    for (;;) {
        const int64_t filter = ReadSleb128(action);
        const uint8_t* const link = action;
        const int64_t next = ReadSleb128(action);
        if (filter == 0) {
            found = FrameAction::kCleanup;
        } else if (filter < 0) {
            // A list of the only exceptions allowed out: any other ends the process.
            return FrameAction::kTerminate;
        } else if (width == 0 || IsZero(types - filter * width, width)) {
            // The null type catches everything.
            return FrameAction::kCleanup;
        }
        if (next == 0) return found;
        action = link + next;
    }
}

}  // namespace

FrameAction LookUpFrameAction(const uint8_t* table, uint64_t offset) noexcept
{
    const uint8_t* at = table;
    if (*at++ != kOmitted) return FrameAction::kForeign;  // landing pads count from the function's start
    const uint8_t typeEncoding = *at++;
    const uint8_t* types = nullptr;
    if (typeEncoding != kOmitted) {
        const uint64_t distance = ReadUleb128(at);
        types = at + distance;
    }
    const uint8_t siteEncoding = *at++;
    if (siteEncoding != kUleb128) return FrameAction::kForeign;
    const uint64_t sitesSize = ReadUleb128(at);
    const uint8_t* const actions = at + sitesSize;
    // Sites are in the order of their places. A place that no site covers is one where nothing may throw.
    while (at < actions) {
        const uint64_t start = ReadUleb128(at);
        const uint64_t length = ReadUleb128(at);
        const uint64_t landingPad = ReadUleb128(at);
        const uint64_t action = ReadUleb128(at);
        if (offset < start) break;
        if (offset - start >= length) continue;
        if (landingPad == 0) return FrameAction::kNone;
        if (action == 0) return FrameAction::kCleanup;
        return FollowActions(actions + action - 1, types, typeEncoding);
    }
    return FrameAction::kTerminate;
}

}  // namespace vorn::detail
