// unit_set.h - a set of UTF-16 units, given as zero-terminated text, and the runs that it cuts text into.
// The terminator is in no set. The text of the set must outlive the UnitSet.
#ifndef VORN_TEXT_UNIT_SET_H
#define VORN_TEXT_UNIT_SET_H

#include "text/units.h"

namespace vorn::detail {

class UnitSet {
public:
    explicit UnitSet(const wchar_t* set) noexcept;

    // The length of the initial run of units in the set, and of units outside it, up to the terminator.
    size_t RunInside(const wchar_t* s) const noexcept;
    size_t RunOutside(const wchar_t* s) const noexcept;

private:
    // Sets this small are compared with eight units at once; larger ones go through the bit table.
    static constexpr size_t kMostVectors = 8;

    struct BitTable {
        uint64_t bits_[4];  // by the unit's low byte
        bool isLatin1_;     // all units are below 0x100, so the table alone decides
    };

    bool Contains(wchar_t c) const noexcept;
    __m128i Members(__m128i units) const noexcept;

    const wchar_t* set_;
    size_t size_;
    union {
        __m128i vectors_[kMostVectors];
        BitTable table_;
    };
};

}  // namespace vorn::detail

#endif
