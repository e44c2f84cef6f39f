// terminated.h - the length of zero-terminated text of 8-, 16- or 32-bit units.
#ifndef VORN_TEXT_TERMINATED_H
#define VORN_TEXT_TERMINATED_H

#include <cstddef>
#include <cstdint>
#include <emmintrin.h>

namespace vorn::detail {

// Reads 16 bytes at an address that is a multiple of 16. They lie in one page, so they are readable when one
// of them is, and the caller's text may begin or end anywhere among them. The sanitizer, which knows objects
// and not pages, must not look.
__attribute__((no_sanitize("address"))) inline __m128i LoadAligned(const void* address) noexcept
{
    return *static_cast<const __m128i*>(address);
}

template <size_t kUnitSize>
inline __m128i EqualUnits(__m128i a, __m128i b) noexcept
{
    if constexpr (kUnitSize == 1) return _mm_cmpeq_epi8(a, b);
    if constexpr (kUnitSize == 2) return _mm_cmpeq_epi16(a, b);
    return _mm_cmpeq_epi32(a, b);
}

// The number of units before the terminator.
template <class Unit>
__attribute__((no_sanitize("address"))) inline size_t TerminatedLength(const Unit* text) noexcept
{
    const uintptr_t start = reinterpret_cast<uintptr_t>(text);
    const uint8_t* at = reinterpret_cast<const uint8_t*>(start & ~uintptr_t{15});
    const __m128i zero = _mm_setzero_si128();
    const auto zeros = [zero](const uint8_t* address) {
        return static_cast<unsigned>(_mm_movemask_epi8(EqualUnits<sizeof(Unit)>(LoadAligned(address), zero)));
    };
    unsigned found = zeros(at) >> (start & 15);
    if (found != 0) return static_cast<size_t>(__builtin_ctz(found)) / sizeof(Unit);
    do {
        at += 16;
        found = zeros(at);
    } while (found == 0);
    return (reinterpret_cast<uintptr_t>(at) - start + static_cast<size_t>(__builtin_ctz(found))) /
           sizeof(Unit);
}

}  // namespace vorn::detail

#endif
