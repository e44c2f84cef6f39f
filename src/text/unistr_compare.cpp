// unistr_compare.cpp - comparison of UniStr. The sign and value of a comparison are ICU's.
#include <vorn/unistr.hpp>

#include "text/unistr_units.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>

namespace vorn {

using namespace detail;

namespace {

int32_t IcuLength(const UniStr& text)
{
    return static_cast<int32_t>(text.Size());
}

const UChar* IcuText(const UniStr& text)
{
    return IcuUnits(std::wstring_view(text).data());
}

const wchar_t* TextOrEmpty(const wchar_t* s)
{
    return s != nullptr ? s : L"";
}

int InCodeUnitOrder(const UniStr& a, const UniStr& b)
{
    return u_strCompare(IcuText(a), IcuLength(a), IcuText(b), IcuLength(b), false);
}

int InCodeUnitOrder(const UniStr& a, const wchar_t* b)
{
    return u_strCompare(IcuText(a), IcuLength(a), IcuUnits(TextOrEmpty(b)), -1, false);
}

bool Equal(const UniStr& a, const UniStr& b)
{
    const std::wstring_view left = a;
    const std::wstring_view right = b;
    return left.size() == right.size() &&
           std::memcmp(left.data(), right.data(), left.size() * sizeof(wchar_t)) == 0;
}

}  // namespace

int UniStr::CompareToString(const wchar_t* s, uint32_t n, bool caseSensitive,
                            bool codeUnitOrder) const noexcept
{
    const UChar* const left = IcuUnits(buffer_);
    const UChar* const right = IcuUnits(TextOrEmpty(s));
    const int32_t leftLength = static_cast<int32_t>(Size());
    const int32_t rightLength = n != 0 ? static_cast<int32_t>(n) : -1;
    if (caseSensitive) return u_strCompare(left, leftLength, right, rightLength, !codeUnitOrder);
    UErrorCode status = U_ZERO_ERROR;
    const uint32_t options = codeUnitOrder ? U_FOLD_CASE_DEFAULT : U_COMPARE_CODE_POINT_ORDER;
    return u_strCaseCompare(left, leftLength, right, rightLength, options, &status);
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
