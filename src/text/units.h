// units.h - UTF-16 units eight at a time, with the vector instructions that every x86-64 processor has.
// For the operations on zero-terminated text. Loads stay inside pages that the text lies in.
#ifndef VORN_TEXT_UNITS_H
#define VORN_TEXT_UNITS_H

#include "text/terminated.h"

#include <cstring>

namespace vorn::detail {

constexpr size_t kPageSize = 4096;

// True if 16 bytes from `text` on lie in one page, so that they may be read when the first may.
inline bool LiesInOnePage(const wchar_t* text) noexcept
{
    return (reinterpret_cast<uintptr_t>(text) & (kPageSize - 1)) <= kPageSize - 16;
}

// Reads eight units from any address. Only where LiesInOnePage() or where all eight are known to be there;
// they may reach past the text, which the sanitizer must not see.
__attribute__((no_sanitize("address"))) inline __m128i LoadUnits(const wchar_t* text) noexcept
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
}

// Two bits for each of the eight units that are equal.
inline unsigned EqualMask(__m128i a, __m128i b) noexcept
{
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(a, b)));
}

inline unsigned FirstUnit(unsigned mask) noexcept
{
    return static_cast<unsigned>(__builtin_ctz(mask)) / 2;
}

inline __m128i EightTimes(wchar_t c) noexcept
{
    return _mm_set1_epi16(static_cast<short>(c));
}

inline const wchar_t* AlignedDown(const wchar_t* text) noexcept
{
    return reinterpret_cast<const wchar_t*>(reinterpret_cast<uintptr_t>(text) & ~uintptr_t{15});
}

// The bits of EqualMask() that belong to units from `text` on in the 16 aligned bytes that hold its first
// unit.
inline unsigned BitsFrom(const wchar_t* text) noexcept
{
    return 0xFFFFu << (reinterpret_cast<uintptr_t>(text) & 15) & 0xFFFFu;
}

}  // namespace vorn::detail

#endif
