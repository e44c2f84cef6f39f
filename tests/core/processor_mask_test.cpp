#include "core/processor_mask.h"

#include <gtest/gtest.h>

using vorn::detail::ProcessorsInMask;

TEST(ProcessorMask, CountsTheSetBitsOfAll64Positions)
{
    EXPECT_EQ(ProcessorsInMask(0), 0u);
    EXPECT_EQ(ProcessorsInMask(1), 1u);
    EXPECT_EQ(ProcessorsInMask(0x8000000000000101), 3u);
    EXPECT_EQ(ProcessorsInMask(0xFFFFFFFFFFFFFFFF), 64u);
}
