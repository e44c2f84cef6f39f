// unistr_search.cpp - searches of UniStr for texts, units and members of a set.
#include <vorn/unistr.hpp>

#include "text/unistr_units.h"
#include "text/unit_scan.h"
#include "text/unit_set.h"

#include <unicode/ustring.h>

namespace vorn {

using namespace detail;

namespace {

// What is searched for, with its length; a length of 0 means zero-terminated.
std::wstring_view Part(const wchar_t* part, uint32_t n)
{
    if (part == nullptr) return {L"", 0};
    return {part, n != 0 ? n : TerminatedLength(part)};
}

// ICU decides what a match is. It begins one unit before the first place where the first two units of the
// part stand, because what precedes a match can make it half a character.
uint32_t FindFirst(std::wstring_view text, std::wstring_view part)
{
    if (part.empty()) return 0;
    if (part.size() > text.size()) return kNpos;  // and may be more than ICU can count
    const wchar_t* const start = text.data();
    const wchar_t* const end = start + text.size();
    const wchar_t* candidate =
        part.size() == 1 ? FindUnit(start, end, part[0]) : FindPair(start, end, part[0], part[1]);
    if (candidate == end) return kNpos;
    if (candidate != start) --candidate;
    const UChar* const found = u_strFindFirst(IcuUnits(candidate), static_cast<int32_t>(end - candidate),
                                              IcuUnits(part.data()), static_cast<int32_t>(part.size()));
    return found == nullptr ? kNpos : static_cast<uint32_t>(found - IcuUnits(start));
}

uint32_t FindLast(std::wstring_view text, std::wstring_view part)
{
    if (part.size() > text.size()) return kNpos;
    const UChar* const start = IcuUnits(text.data());
    const UChar* const found = u_strFindLast(start, static_cast<int32_t>(text.size()), IcuUnits(part.data()),
                                             static_cast<int32_t>(part.size()));
    return found == nullptr ? kNpos : static_cast<uint32_t>(found - start);
}

const wchar_t* SetOrEmpty(const wchar_t* set)
{
    return set != nullptr ? set : L"";
}

bool Contains(const wchar_t* set, wchar_t c)
{
    while (*set != 0 && *set != c) ++set;
    return *set != 0;
}

// The index of the last unit for which `wanted` holds.
template <typename Wanted>
uint32_t LastIndex(std::wstring_view text, Wanted wanted)
{
    for (size_t i = text.size(); i-- != 0;) {
        if (wanted(text[i])) return static_cast<uint32_t>(i);
    }
    return kNpos;
}

}  // namespace

uint32_t UniStr::Find(const UniStr& other) const noexcept
{
    return FindFirst(*this, other);
}

uint32_t UniStr::Find(const wchar_t* s, uint32_t n) const noexcept
{
    return FindFirst(*this, Part(s, n));
}

uint32_t UniStr::Find(wchar_t c) const noexcept
{
    const wchar_t* const past = end_ + 1;  // the terminator takes part
    const wchar_t* const found = FindUnit(buffer_, past, c);
    return found == past ? kNpos : static_cast<uint32_t>(found - buffer_);
}

uint32_t UniStr::RFind(const UniStr& other) const noexcept
{
    return FindLast(*this, other);
}

uint32_t UniStr::RFind(const wchar_t* s, uint32_t n) const noexcept
{
    return FindLast(*this, Part(s, n));
}

uint32_t UniStr::RFind(wchar_t c) const noexcept
{
    return LastIndex(*this, [c](wchar_t unit) { return unit == c; });
}

uint32_t UniStr::FindFirstOf(const wchar_t* set) const noexcept
{
    const UnitSet units(SetOrEmpty(set));
    for (const wchar_t* at = buffer_;; ++at) {
        at += units.RunOutside(at);
        if (at == end_) return kNpos;
        if (*at != 0) return static_cast<uint32_t>(at - buffer_);  // else an embedded zero, in no set
    }
}

uint32_t UniStr::FindFirstNotOf(const wchar_t* set) const noexcept
{
    const wchar_t* const found = buffer_ + UnitSet(SetOrEmpty(set)).RunInside(buffer_);
    return found == end_ ? kNpos : static_cast<uint32_t>(found - buffer_);
}

uint32_t UniStr::FindLastOf(const wchar_t* set) const noexcept
{
    const wchar_t* const members = SetOrEmpty(set);
    return LastIndex(*this, [members](wchar_t unit) { return Contains(members, unit); });
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
