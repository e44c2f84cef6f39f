// unistr_units.h - what the sources of UniStr share: measuring and copying units, and capacities.
// Nothing outside src/text/unistr_*.cpp includes this.
#ifndef VORN_TEXT_UNISTR_UNITS_H
#define VORN_TEXT_UNISTR_UNITS_H

#include <vorn/exceptions.hpp>

#include "text/terminated.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <unicode/utypes.h>

namespace vorn::detail {

constexpr uint32_t kNpos = 0xFFFFFFFF;
constexpr uint32_t kSmallestCapacity = 32;
constexpr uint32_t kCapacityStep = 32;
constexpr uint32_t kCapacityUnit = 8;

// ICU counts units in signed 32-bit numbers; a buffer that it could not count is refused.
constexpr uint64_t kLargestCapacity = 0x7FFFFFFF;

using UnitArray = std::unique_ptr<wchar_t[]>;

inline UnitArray AllocateUnits(uint64_t capacity)
{
    if (capacity > kLargestCapacity) throw LengthError();
    return UnitArray(new wchar_t[static_cast<size_t>(capacity)]);
}

constexpr uint64_t FreshCapacity(uint64_t length)
{
    if (length < kSmallestCapacity) return kSmallestCapacity;
    return (length + kCapacityUnit - 1) / kCapacityUnit * kCapacityUnit + kCapacityUnit;
}

// The length of a zero-terminated text; a null pointer is an empty text.
inline uint32_t UnitLength(const wchar_t* s)
{
    if (s == nullptr) return 0;
    const size_t length = TerminatedLength(s);
    if (length > kLargestCapacity) throw LengthError();
    return static_cast<uint32_t>(length);
}

// A view's length, which no string can hold when it has more than 32 bits.
inline uint32_t CheckedLength(size_t length)
{
    if (length > kLargestCapacity) throw LengthError();
    return static_cast<uint32_t>(length);
}

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

// The places may overlap: everything is read before anything is written. Few units go through registers,
// which costs less than the call.
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

inline void FillUnits(wchar_t* to, size_t n, wchar_t c)
{
    for (wchar_t* const end = to + n; to != end; ++to) *to = c;
}

inline const UChar* IcuUnits(const wchar_t* s)
{
    return reinterpret_cast<const UChar*>(s);
}

inline UChar* IcuUnits(wchar_t* s)
{
    return reinterpret_cast<UChar*>(s);
}

}  // namespace vorn::detail

#endif
