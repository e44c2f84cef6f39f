// Length, copying, appending, comparison and overwriting of zero-terminated text.

#include <vorn/string.h>

#include "text/unit_copy.h"
#include "text/units.h"

#include <algorithm>
#include <cstdlib>

using namespace vorn::detail;

namespace {

// The length of the text, at most `limit`; units from `limit` on are not needed to be there.
size_t BoundedLength(const wchar_t* s, size_t limit) noexcept
{
    if (limit == 0) return 0;
    const __m128i zero = _mm_setzero_si128();
    const wchar_t* const end = s + limit;
    unsigned valid = BitsFrom(s);
    for (const wchar_t* at = AlignedDown(s); at < end; at += 8, valid = 0xFFFF) {
        const unsigned found = EqualMask(LoadAligned(at), zero) & valid;
        if (found != 0) return std::min(static_cast<size_t>(at + FirstUnit(found) - s), limit);
    }
    return limit;
}

// The end of text that is being written. Its first units may have been stored one by one just now: the
// processor hands those over to narrow loads at once, to wide ones only when they have reached the cache.
wchar_t* EndOf(wchar_t* s) noexcept
{
    for (size_t i = 0; i < 8; ++i) {
        if (s[i] == 0) return s + i;
    }
    return s + 8 + TerminatedLength(s + 8);
}

}  // namespace

extern "C" size_t VornStrLen(const wchar_t* s)
{
    return TerminatedLength(s);
}

extern "C" wchar_t* VornStrCpy(wchar_t* dst, const wchar_t* src)
{
    CopyUnits(dst, src, TerminatedLength(src) + 1);
    return dst;
}

extern "C" wchar_t* VornStrNCpy(wchar_t* dst, const wchar_t* src, uint32_t n)
{
    const size_t length = BoundedLength(src, n);
    CopyUnits(dst, src, length);
    std::fill_n(dst + length, n - length, wchar_t{0});
    return dst;
}

extern "C" wchar_t* VornStrCat(wchar_t* dst, const wchar_t* src)
{
    CopyUnits(EndOf(dst), src, TerminatedLength(src) + 1);
    return dst;
}

extern "C" wchar_t* VornStrNCat(wchar_t* dst, const wchar_t* src, uint32_t n)
{
    wchar_t* const end = EndOf(dst);
    const size_t length = BoundedLength(src, n);
    CopyUnits(end, src, length);
    end[length] = 0;
    return dst;
}

extern "C" int32_t VornStrCmp(const wchar_t* a, const wchar_t* b)
{
    const __m128i zero = _mm_setzero_si128();
    for (;;) {
        size_t at = 0;
        if (LiesInOnePage(a) && LiesInOnePage(b)) {
            const __m128i left = LoadUnits(a);
            const unsigned stop = (EqualMask(left, LoadUnits(b)) ^ 0xFFFF) | EqualMask(left, zero);
            if (stop == 0) {
                a += 8;
                b += 8;
                continue;
            }
            at = FirstUnit(stop);
        }
        if (a[at] != b[at]) return a[at] < b[at] ? -1 : 1;
        if (a[at] == 0) return 0;
        a += at + 1;
        b += at + 1;
    }
}

extern "C" wchar_t* VornStrDup(const wchar_t* s)
{
    if (s == nullptr) return nullptr;
    const size_t size = TerminatedLength(s) + 1;
    wchar_t* const copy = static_cast<wchar_t*>(std::malloc(size * sizeof(wchar_t)));
    if (copy != nullptr) CopyUnits(copy, s, size);
    return copy;
}

extern "C" void VornStrFree(wchar_t* p)
{
    std::free(p);
}

extern "C" wchar_t* VornStrRev(wchar_t* s)
{
    std::reverse(s, s + TerminatedLength(s));
    return s;
}

extern "C" wchar_t* VornStrSet(wchar_t* s, wchar_t c)
{
    std::fill_n(s, TerminatedLength(s), c);
    return s;
}

extern "C" wchar_t* VornStrNSet(wchar_t* s, wchar_t c, uint32_t n)
{
    std::fill_n(s, BoundedLength(s, n), c);
    return s;
}
