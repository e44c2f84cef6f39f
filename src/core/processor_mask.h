// processor_mask.h - counts the processors of an affinity mask.
#ifndef VORN_CORE_PROCESSOR_MASK_H
#define VORN_CORE_PROCESSOR_MASK_H

#include <cstdint>

namespace vorn::detail {

// The number of set bits among all 64.
constexpr uint32_t ProcessorsInMask(uint64_t mask) noexcept
{
    uint32_t count = 0;
    for (; mask != 0; mask &= mask - 1) ++count;
    return count;
}

}  // namespace vorn::detail

#endif
