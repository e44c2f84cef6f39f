// unistr_units.h - what the sources of UniStr share: measuring units, allocating them, and capacities.
// For src/text/unistr_*.cpp and codepage_units.h only.
#ifndef VORN_TEXT_UNISTR_UNITS_H
#define VORN_TEXT_UNISTR_UNITS_H

#include <vorn/exceptions.hpp>

#include "text/terminated.h"
#include "text/unit_copy.h"

#include <cstdint>
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
