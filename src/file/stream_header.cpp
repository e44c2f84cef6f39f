#include "file/stream_header.h"

namespace vorn::detail {

namespace {

uint32_t Read32(const uint8_t* bytes) noexcept
{
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

}  // namespace

bool ParseStreamHeader(const uint8_t* bytes, size_t size, StreamHeader* out) noexcept
{
    if (size < kStreamHeaderBytes) return false;
    out->kind = Read32(bytes);
    out->attributes = Read32(bytes + 4);
    out->dataBytes = static_cast<uint64_t>(Read32(bytes + 12)) << 32 | Read32(bytes + 8);
    out->nameBytes = Read32(bytes + 16);
    return true;
}

}  // namespace vorn::detail
