// unistr_search.cpp - searches of UniStr for texts, units and members of a set.
#include <vorn/unistr.hpp>

#include "text/unistr_units.h"

#include <unicode/ustring.h>

namespace vorn {

using namespace detail;

namespace {

// A zero-terminated set of units; a null pointer is the empty set.
class UnitSet {
public:
    explicit UnitSet(const wchar_t* set) noexcept : set_(set != nullptr ? set : L"") {}

    bool Contains(wchar_t c) const noexcept
    {
        for (const wchar_t* member = set_; *member != 0; ++member) {
            if (*member == c) return true;
        }
        return false;
    }

private:
    const wchar_t* set_;
};

using IcuSearch = const UChar* (*)(const UChar* text, int32_t length, const UChar* part, int32_t partLength);

uint32_t Search(IcuSearch search, std::wstring_view text, const wchar_t* part, uint32_t n)
{
    if (part == nullptr) part = L"";
    if (n > text.size()) return kNpos;  // and can be too much for ICU to count
    const UChar* const start = IcuUnits(text.data());
    const UChar* const found = search(start, static_cast<int32_t>(text.size()), IcuUnits(part),
                                      n != 0 ? static_cast<int32_t>(n) : -1);
    return found == nullptr ? kNpos : static_cast<uint32_t>(found - start);
}

const UChar* First(const UChar* text, int32_t length, const UChar* part, int32_t partLength)
{
    return u_strFindFirst(text, length, part, partLength);
}

const UChar* Last(const UChar* text, int32_t length, const UChar* part, int32_t partLength)
{
    return u_strFindLast(text, length, part, partLength);
}

// The first index in [0, length) for which `wanted` holds.
template <typename Wanted>
uint32_t FirstIndex(const wchar_t* text, uint32_t length, Wanted wanted)
{
    for (uint32_t i = 0; i < length; ++i) {
        if (wanted(text[i])) return i;
    }
    return kNpos;
}

template <typename Wanted>
uint32_t LastIndex(const wchar_t* text, uint32_t length, Wanted wanted)
{
    for (uint32_t i = length; i-- != 0;) {
        if (wanted(text[i])) return i;
    }
    return kNpos;
}

}  // namespace

uint32_t UniStr::Find(const UniStr& other) const noexcept
{
    return Search(First, *this, other.buffer_, other.Size());
}

uint32_t UniStr::Find(const wchar_t* s, uint32_t n) const noexcept
{
    return Search(First, *this, s, n);
}

uint32_t UniStr::Find(wchar_t c) const noexcept
{
    return FirstIndex(buffer_, Size() + 1, [c](wchar_t unit) { return unit == c; });
}

uint32_t UniStr::RFind(const UniStr& other) const noexcept
{
    return Search(Last, *this, other.buffer_, other.Size());
}

uint32_t UniStr::RFind(const wchar_t* s, uint32_t n) const noexcept
{
    return Search(Last, *this, s, n);
}

uint32_t UniStr::RFind(wchar_t c) const noexcept
{
    return LastIndex(buffer_, Size(), [c](wchar_t unit) { return unit == c; });
}

uint32_t UniStr::FindFirstOf(const wchar_t* set) const noexcept
{
    const UnitSet units(set);
    return FirstIndex(buffer_, Size(), [&](wchar_t unit) { return units.Contains(unit); });
}

uint32_t UniStr::FindFirstNotOf(const wchar_t* set) const noexcept
{
    const UnitSet units(set);
    return FirstIndex(buffer_, Size(), [&](wchar_t unit) { return !units.Contains(unit); });
}

uint32_t UniStr::FindLastOf(const wchar_t* set) const noexcept
{
    const UnitSet units(set);
    return LastIndex(buffer_, Size(), [&](wchar_t unit) { return units.Contains(unit); });
}

uint32_t UniStr::FindLastNotOf(const wchar_t* set) const noexcept
{
    const uint32_t firstMember = FindFirstOf(set);
    return (firstMember == kNpos ? Size() : firstMember) - 1;
}

uint32_t UniStr::CountCodePoints() const noexcept
{
    return static_cast<uint32_t>(u_countChar32(IcuUnits(buffer_), static_cast<int32_t>(Size())));
}

}  // namespace vorn
