// unit_copy.h - copying UTF-16 units of known number. Few units go through registers without a loop, which
// costs less than the call of memcpy; short texts are what the library mostly sees.
#ifndef VORN_TEXT_UNIT_COPY_H
#define VORN_TEXT_UNIT_COPY_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <emmintrin.h>

namespace vorn::detail {

// Moves n units as the block they begin with and the block they end with: from one block's size to two.
template <typename Block>
inline void MoveEnds(wchar_t* to, const wchar_t* from, size_t n)
{
    Block first, last;
    const wchar_t* const lastFrom = from + n - sizeof(Block) / sizeof(wchar_t);
    std::memcpy(&first, from, sizeof first);
    std::memcpy(&last, lastFrom, sizeof last);
    std::memcpy(to, &first, sizeof first);
    std::memcpy(to + (lastFrom - from), &last, sizeof last);
}

inline __m128i LoadBlock(const wchar_t* from)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

inline void StoreBlock(wchar_t* to, __m128i block)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), block);
}

// The places may overlap: of few units everything is read before anything is written.
inline void MoveUnits(wchar_t* to, const wchar_t* from, size_t n)
{
    if (n > 32) {
        std::memmove(to, from, n * sizeof(wchar_t));
    } else if (n >= 16) {
        const __m128i first = LoadBlock(from);
        const __m128i second = LoadBlock(from + 8);
        const __m128i beforeLast = LoadBlock(from + n - 16);
        const __m128i last = LoadBlock(from + n - 8);
        StoreBlock(to, first);
        StoreBlock(to + 8, second);
        StoreBlock(to + n - 16, beforeLast);
        StoreBlock(to + n - 8, last);
    } else if (n >= 8) {
        const __m128i first = LoadBlock(from);
        const __m128i last = LoadBlock(from + n - 8);
        StoreBlock(to, first);
        StoreBlock(to + n - 8, last);
    } else if (n >= 4) {
        MoveEnds<uint64_t>(to, from, n);
    } else if (n >= 2) {
        MoveEnds<uint32_t>(to, from, n);
    } else if (n == 1) {
        *to = *from;
    }
}

inline void CopyUnits(wchar_t* to, const wchar_t* from, size_t n)
{
    if (n > 32) {
        std::memcpy(to, from, n * sizeof(wchar_t));
    } else {
        MoveUnits(to, from, n);
    }
}

}  // namespace vorn::detail

#endif
