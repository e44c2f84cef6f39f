#include "core/cpu.h"

namespace vorn::detail {

VectorLevel WidestVectorLevel() noexcept
{
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("ssse3") || !__builtin_cpu_supports("sse4.1") ||
        !__builtin_cpu_supports("popcnt"))
    {
        return VectorLevel::kPlain;
    }
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("bmi") || !__builtin_cpu_supports("bmi2"))
    {
        return VectorLevel::kSse41;
    }
    if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("avx512bw") ||
        !__builtin_cpu_supports("avx512dq") || !__builtin_cpu_supports("avx512vl") ||
        !__builtin_cpu_supports("avx512vbmi") || !__builtin_cpu_supports("avx512vbmi2"))
    {
        return VectorLevel::kAvx2;
    }
    return VectorLevel::kAvx512;
}

const char* VectorLevelName(VectorLevel level) noexcept
{
    switch (level) {
        case VectorLevel::kPlain:
            return "plain";
        case VectorLevel::kSse41:
            return "SSE4.1";
        case VectorLevel::kAvx2:
            return "AVX2";
        case VectorLevel::kAvx512:
            return "AVX-512";
    }
    return "?";
}

}  // namespace vorn::detail
