// vector_levels.h - the vector levels of the processor that runs the test, for parameterised tests that force
// each one in turn. For tests that link the portable sources.
#ifndef VORN_TESTS_SUPPORT_VECTOR_LEVELS_H
#define VORN_TESTS_SUPPORT_VECTOR_LEVELS_H

#include "core/cpu.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace vorn_test {

inline std::vector<vorn::detail::VectorLevel> LevelsHere()
{
    std::vector<vorn::detail::VectorLevel> levels;
    for (vorn::detail::VectorLevel level : vorn::detail::kAllVectorLevels) {
        if (level <= vorn::detail::WidestVectorLevel()) levels.push_back(level);
    }
    return levels;
}

inline std::string LevelTestName(const testing::TestParamInfo<vorn::detail::VectorLevel>& info)
{
    std::string name;
    for (const char* c = vorn::detail::VectorLevelName(info.param); *c != '\0'; ++c) {
        if (isalnum(static_cast<unsigned char>(*c))) name += *c;
    }
    return name;
}

}  // namespace vorn_test

#endif
