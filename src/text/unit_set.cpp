#include "text/unit_set.h"

namespace vorn::detail {

UnitSet::UnitSet(const wchar_t* set) noexcept : set_(set), size_(0)
{
    while (size_ < kMostVectors && set[size_] != 0) {
        vectors_[size_] = EightTimes(set[size_]);
        ++size_;
    }
    if (size_ < kMostVectors || set[size_] == 0) return;
    table_ = {{0, 0, 0, 0}, true};
    for (size_ = 0; set[size_] != 0; ++size_) {
        table_.bits_[set[size_] >> 6 & 3] |= uint64_t{1} << (set[size_] & 63);
        if (set[size_] >= 0x100) table_.isLatin1_ = false;
    }
}

bool UnitSet::Contains(wchar_t c) const noexcept
{
    if ((table_.bits_[c >> 6 & 3] >> (c & 63) & 1) == 0) return false;
    if (table_.isLatin1_) return c < 0x100;
    for (const wchar_t* member = set_; *member != 0; ++member) {
        if (*member == c) return true;
    }
    return false;
}

__m128i UnitSet::Members(__m128i units) const noexcept
{
    __m128i members = _mm_setzero_si128();
    for (size_t i = 0; i < size_; ++i) members = _mm_or_si128(members, _mm_cmpeq_epi16(units, vectors_[i]));
    return members;
}

size_t UnitSet::RunInside(const wchar_t* s) const noexcept
{
    if (size_ > kMostVectors) {
        size_t length = 0;
        while (s[length] != 0 && Contains(s[length])) ++length;
        return length;
    }
    unsigned valid = BitsFrom(s);
    for (const wchar_t* at = AlignedDown(s);; at += 8, valid = 0xFFFF) {
        const unsigned outside = ~static_cast<unsigned>(_mm_movemask_epi8(Members(LoadAligned(at)))) & valid;
        if (outside != 0) return static_cast<size_t>(at + FirstUnit(outside) - s);
    }
}

size_t UnitSet::RunOutside(const wchar_t* s) const noexcept
{
    if (size_ > kMostVectors) {
        size_t length = 0;
        while (s[length] != 0 && !Contains(s[length])) ++length;
        return length;
    }
    const __m128i zero = _mm_setzero_si128();
    unsigned valid = BitsFrom(s);
    for (const wchar_t* at = AlignedDown(s);; at += 8, valid = 0xFFFF) {
        const __m128i units = LoadAligned(at);
        const __m128i stop = _mm_or_si128(Members(units), _mm_cmpeq_epi16(units, zero));
        const unsigned found = static_cast<unsigned>(_mm_movemask_epi8(stop)) & valid;
        if (found != 0) return static_cast<size_t>(at + FirstUnit(found) - s);
    }
}

}  // namespace vorn::detail
