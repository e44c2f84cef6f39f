// Search in zero-terminated text: single units, other text, sets of units; the tokeniser.

#include <vorn/string.h>

#include "text/unit_set.h"
#include "text/units.h"

using namespace vorn::detail;

extern "C" wchar_t* VornStrChr(const wchar_t* s, wchar_t c)
{
    const __m128i wanted = EightTimes(c);
    const __m128i zero = _mm_setzero_si128();
    unsigned valid = BitsFrom(s);
    for (const wchar_t* at = AlignedDown(s);; at += 8, valid = 0xFFFF) {
        const __m128i units = LoadAligned(at);
        const unsigned found = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(
                                   _mm_cmpeq_epi16(units, wanted), _mm_cmpeq_epi16(units, zero)))) &
                               valid;
        if (found != 0) {
            const wchar_t* const unit = at + FirstUnit(found);
            return *unit == c ? const_cast<wchar_t*>(unit) : nullptr;
        }
    }
}

extern "C" wchar_t* VornStrRChr(const wchar_t* s, wchar_t c)
{
    const __m128i wanted = EightTimes(c);
    const __m128i zero = _mm_setzero_si128();
    const wchar_t* last = nullptr;
    unsigned valid = BitsFrom(s);
    for (const wchar_t* at = AlignedDown(s);; at += 8, valid = 0xFFFF) {
        const __m128i units = LoadAligned(at);
        unsigned found = EqualMask(units, wanted) & valid;
        const unsigned end = EqualMask(units, zero) & valid;
        if (end != 0) found &= (end & (0u - end)) * 4 - 1;  // nothing behind the terminator
        if (found != 0) last = at + (31 - static_cast<unsigned>(__builtin_clz(found))) / 2;
        if (end != 0) return const_cast<wchar_t*>(last);
    }
}

namespace {

bool StartsWith(const wchar_t* s, const wchar_t* prefix) noexcept
{
    while (*prefix != 0 && *s == *prefix) ++s, ++prefix;
    return *prefix == 0;
}

}  // namespace

extern "C" wchar_t* VornStrStr(const wchar_t* s, const wchar_t* sub)
{
    if (sub[0] == 0) return const_cast<wchar_t*>(s);
    for (const wchar_t* at = s; (at = VornStrChr(at, sub[0])) != nullptr; ++at) {
        if (StartsWith(at + 1, sub + 1)) return const_cast<wchar_t*>(at);
    }
    return nullptr;
}

extern "C" uint32_t VornStrSpn(const wchar_t* s, const wchar_t* set)
{
    return static_cast<uint32_t>(UnitSet(set).RunInside(s));
}

extern "C" uint32_t VornStrCSpn(const wchar_t* s, const wchar_t* set)
{
    return static_cast<uint32_t>(UnitSet(set).RunOutside(s));
}

extern "C" wchar_t* VornStrTok(wchar_t* s, const wchar_t* delims, wchar_t** context)
{
    const UnitSet delimiters(delims);
    wchar_t* token = s != nullptr ? s : *context;
    token += delimiters.RunInside(token);
    if (*token == 0) {
        *context = token;
        return nullptr;
    }
    wchar_t* end = token + delimiters.RunOutside(token);
    if (*end != 0) *end++ = 0;
    *context = end;
    return token;
}
