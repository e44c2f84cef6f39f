#include "file/line_end.h"

#include <cstring>

namespace vorn::detail {

LineEnd FindLineEnd(const uint8_t* bytes, uint32_t count) noexcept
{
    if (count == 0) return {false, 0, 0};
    const auto* lf = static_cast<const uint8_t*>(std::memchr(bytes, '\n', count));
    if (lf == nullptr) return {false, count, 0};
    const uint32_t offset = static_cast<uint32_t>(lf - bytes);
    if (offset > 0 && bytes[offset - 1] == '\r') return {true, offset - 1, 2};
    return {true, offset, 1};
}

}  // namespace vorn::detail
