// cpu.h - which vector unit the processor offers, and the one way to choose code by it.
//
// A family that has vector code keeps a table of functions for each level and gives it by level
// (`const Table& TableFor(VectorLevel)`). Exported functions use Widest<Table, TableFor>(); tests take the
// table of each level that the processor has, so that every path is run. A level's functions live in source
// files of their own, compiled for that level. Such a file includes no header with inline functions that
// other files share: the linker could keep the wrong copy of one.
#ifndef VORN_CORE_CPU_H
#define VORN_CORE_CPU_H

#include <atomic>

namespace vorn::detail {

// Each level includes the ones before it.
enum class VectorLevel {
    kPlain,   // what every x86-64 processor has
    kSse41,   // SSE4.1 with SSSE3 and POPCNT
    kAvx2,    // AVX2 with BMI1 and BMI2
    kAvx512,  // AVX-512 F, BW, DQ, VL, VBMI and VBMI2
};

constexpr VectorLevel kAllVectorLevels[] = {VectorLevel::kPlain, VectorLevel::kSse41, VectorLevel::kAvx2,
                                            VectorLevel::kAvx512};

// The widest level that both the processor and the system support.
VectorLevel WidestVectorLevel() noexcept;

const char* VectorLevelName(VectorLevel level) noexcept;

// The table for the widest level, chosen on first use. Threads that choose at the same time choose the same.
template <class Table, const Table& (*TableFor)(VectorLevel) noexcept>
inline const Table& Widest() noexcept
{
    static std::atomic<const Table*> chosen{nullptr};
    const Table* table = chosen.load(std::memory_order_relaxed);
    if (table == nullptr) {
        table = &TableFor(WidestVectorLevel());
        chosen.store(table, std::memory_order_relaxed);
    }
    return *table;
}

}  // namespace vorn::detail

#endif
