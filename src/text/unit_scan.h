// unit_scan.h - scans over units of known number, eight at a time. Nothing outside the units is read.
#ifndef VORN_TEXT_UNIT_SCAN_H
#define VORN_TEXT_UNIT_SCAN_H

#include "text/units.h"

namespace vorn::detail {

// The number of units at the beginning of a and b, of n each, that are the same in both.
inline size_t CommonPrefix(const wchar_t* a, const wchar_t* b, size_t n) noexcept
{
    size_t i = 0;
    for (; n - i >= 8; i += 8) {
        const unsigned equal = EqualMask(LoadUnits(a + i), LoadUnits(b + i));
        if (equal != 0xFFFF) return i + FirstUnit(~equal);
    }
    while (i != n && a[i] == b[i]) ++i;
    return i;
}

// The address of c in [at, end), or end.
inline const wchar_t* FindUnit(const wchar_t* at, const wchar_t* end, wchar_t c) noexcept
{
    const __m128i wanted = EightTimes(c);
    for (; end - at >= 8; at += 8) {
        const unsigned equal = EqualMask(LoadUnits(at), wanted);
        if (equal != 0) return at + FirstUnit(equal);
    }
    while (at != end && *at != c) ++at;
    return at;
}

// The address of the unit `first` with the unit `second` directly after it, both in [at, end), or end.
inline const wchar_t* FindPair(const wchar_t* at, const wchar_t* end, wchar_t first, wchar_t second) noexcept
{
    const __m128i firsts = EightTimes(first);
    const __m128i seconds = EightTimes(second);
    for (; end - at >= 9; at += 8) {
        const unsigned both = EqualMask(LoadUnits(at), firsts) & EqualMask(LoadUnits(at + 1), seconds);
        if (both != 0) return at + FirstUnit(both);
    }
    for (; end - at >= 2; ++at) {
        if (at[0] == first && at[1] == second) return at;
    }
    return end;
}

}  // namespace vorn::detail

#endif
