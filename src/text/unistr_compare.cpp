// unistr_compare.cpp - comparison of UniStr. The sign and value of a comparison are ICU's.
#include <vorn/unistr.hpp>

#include "text/unistr_units.h"
#include "text/unit_scan.h"

#include <algorithm>
#include <unicode/uchar.h>
#include <unicode/ustring.h>

namespace vorn {

using namespace detail;

namespace {

std::wstring_view ViewOf(const wchar_t* s)
{
    return s != nullptr ? std::wstring_view(s, TerminatedLength(s)) : std::wstring_view(L"", 0);
}

// ICU's comparison. What the texts have in common at their beginning does not enter into it, except that the
// unit before the first difference tells whether the units that differ are second halves of pairs.
int CompareUnits(std::wstring_view a, std::wstring_view b, bool codePointOrder)
{
    if (a.data() == b.data() && a.size() == b.size()) return 0;
    size_t skipped = CommonPrefix(a.data(), b.data(), std::min(a.size(), b.size()));
    if (skipped == a.size() && skipped == b.size()) return 0;
    if (skipped != 0) --skipped;
    return u_strCompare(IcuUnits(a.data() + skipped), static_cast<int32_t>(a.size() - skipped),
                        IcuUnits(b.data() + skipped), static_cast<int32_t>(b.size() - skipped),
                        codePointOrder);
}

int InCodeUnitOrder(const UniStr& a, const UniStr& b)
{
    return CompareUnits(a, b, false);
}

int InCodeUnitOrder(const UniStr& a, const wchar_t* b)
{
    return CompareUnits(a, ViewOf(b), false);
}

bool Equal(const UniStr& a, std::wstring_view right)
{
    const std::wstring_view left = a;
    return left.size() == right.size() &&
           std::memcmp(left.data(), right.data(), left.size() * sizeof(wchar_t)) == 0;
}

}  // namespace

int UniStr::CompareToString(const wchar_t* s, uint32_t n, bool caseSensitive,
                            bool codeUnitOrder) const noexcept
{
    const std::wstring_view other = n != 0 ? std::wstring_view(s, n) : ViewOf(s);
    if (caseSensitive) return CompareUnits(*this, other, !codeUnitOrder);
    UErrorCode status = U_ZERO_ERROR;
    const uint32_t options = codeUnitOrder ? U_FOLD_CASE_DEFAULT : U_COMPARE_CODE_POINT_ORDER;
    return u_strCaseCompare(IcuUnits(buffer_), static_cast<int32_t>(Size()), IcuUnits(other.data()),
                            static_cast<int32_t>(other.size()), options, &status);
}

int UniStr::Compare(const UniStr& other, bool caseSensitive, bool codeUnitOrder) const noexcept
{
    return CompareToString(other.buffer_, other.Size(), caseSensitive, codeUnitOrder);
}

int UniStr::Compare(const wchar_t* s, bool caseSensitive, bool codeUnitOrder) const noexcept
{
    return CompareToString(s, 0, caseSensitive, codeUnitOrder);
}

bool operator==(const UniStr& a, const UniStr& b) noexcept
{
    return Equal(a, b);
}
bool operator==(const UniStr& a, const wchar_t* b) noexcept
{
    return InCodeUnitOrder(a, b) == 0;
}
bool operator==(const wchar_t* a, const UniStr& b) noexcept
{
    return InCodeUnitOrder(b, a) == 0;
}
bool operator!=(const UniStr& a, const UniStr& b) noexcept
{
    return !Equal(a, b);
}
bool operator!=(const UniStr& a, const wchar_t* b) noexcept
{
    return InCodeUnitOrder(a, b) != 0;
}
bool operator!=(const wchar_t* a, const UniStr& b) noexcept
{
    return InCodeUnitOrder(b, a) != 0;
}
bool operator<(const UniStr& a, const UniStr& b) noexcept
{
    return InCodeUnitOrder(a, b) < 0;
}
bool operator<(const UniStr& a, const wchar_t* b) noexcept
{
    return InCodeUnitOrder(a, b) < 0;
}
bool operator<(const wchar_t* a, const UniStr& b) noexcept
{
    return InCodeUnitOrder(b, a) > 0;
}
bool operator<=(const UniStr& a, const UniStr& b) noexcept
{
    return InCodeUnitOrder(a, b) <= 0;
}
bool operator<=(const UniStr& a, const wchar_t* b) noexcept
{
    return InCodeUnitOrder(a, b) <= 0;
}
bool operator<=(const wchar_t* a, const UniStr& b) noexcept
{
    return InCodeUnitOrder(b, a) >= 0;
}
bool operator>(const UniStr& a, const UniStr& b) noexcept
{
    return InCodeUnitOrder(a, b) > 0;
}
bool operator>(const UniStr& a, const wchar_t* b) noexcept
{
    return InCodeUnitOrder(a, b) > 0;
}
bool operator>(const wchar_t* a, const UniStr& b) noexcept
{
    return InCodeUnitOrder(b, a) < 0;
}
bool operator>=(const UniStr& a, const UniStr& b) noexcept
{
    return InCodeUnitOrder(a, b) >= 0;
}
bool operator>=(const UniStr& a, const wchar_t* b) noexcept
{
    return InCodeUnitOrder(a, b) >= 0;
}
bool operator>=(const wchar_t* a, const UniStr& b) noexcept
{
    return InCodeUnitOrder(b, a) <= 0;
}

}  // namespace vorn
