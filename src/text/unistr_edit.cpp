// unistr_edit.cpp - appending, insertion, replacement, erasure, resizing and substrings of UniStr.
// A source text may lie in the string's own buffer. Where the buffer is replaced, the source is copied
// before the old buffer goes; where units move within the buffer, a source they may run over is copied first.
#include <vorn/unistr.hpp>

#include "text/unistr_units.h"

#include <algorithm>
#include <functional>

namespace vorn {

using namespace detail;

namespace {

// The number of units from `first` to `last`; none where they are the wrong way round.
uint32_t Distance(UniStr::unistr_iterator_const<wchar_t> first, UniStr::unistr_iterator_const<wchar_t> last)
{
    return first < last ? CheckedLength(static_cast<size_t>(last - first)) : 0;
}

}  // namespace

// The iterator's index, or 0xFFFFFFFF for one that does not point into the text.
uint32_t UniStr::IndexOf(unistr_iterator_const<wchar_t> it) const noexcept
{
    const std::less<const wchar_t*> before;
    if (before(it.position_, buffer_) || before(end_, it.position_)) return kNpos;
    return static_cast<uint32_t>(it.position_ - buffer_);
}

void UniStr::ShiftRight(uint32_t at, uint32_t n) noexcept
{
    MoveUnits(buffer_ + at + n, buffer_ + at, Size() - at);
    SetEnd(end_ + n);
}

void UniStr::ShiftLeft(uint32_t at, uint32_t n) noexcept
{
    MoveUnits(buffer_ + at - n, buffer_ + at, Size() - at);
    SetEnd(end_ - n);
}

// Replaces `count` units at `pos`, both within the text, by n units of s. The capacity becomes grownCapacity
// if the result does not fit.
void UniStr::Splice(uint32_t pos, uint32_t count, const wchar_t* s, uint32_t n, uint64_t grownCapacity)
{
    const uint32_t tail = pos + count;
    const uint64_t length = uint64_t{Size()} - count + n;
    const uint64_t capacity = length < capacity_ ? capacity_ : grownCapacity;
    if (capacity > allocated_) {
        const uint64_t allocation = AllocationFor(capacity);
        UnitArray buffer = AllocateUnits(allocation);
        CopyUnits(buffer.get(), buffer_, pos);
        CopyUnits(buffer.get() + pos, s, n);
        CopyUnits(buffer.get() + pos + n, buffer_ + tail, Size() - tail);
        ReplaceBuffer(buffer.release(), static_cast<uint32_t>(length), static_cast<uint32_t>(allocation));
        capacity_ = static_cast<uint32_t>(capacity);
        return;
    }
    UnitArray copy;
    const std::less<const wchar_t*> before;
    if (n != 0 && before(s, buffer_ + capacity_) && before(buffer_ + pos, s + n)) {
        copy = AllocateUnits(n);
        CopyUnits(copy.get(), s, n);
        s = copy.get();
    }
    capacity_ = static_cast<uint32_t>(capacity);
    if (count > n) {
        ShiftLeft(tail, count - n);
    } else {
        ShiftRight(tail, n - count);
    }
    CopyUnits(buffer_ + pos, s, n);
}

UniStr& UniStr::AppendString(const wchar_t* s, uint32_t n)
{
    if (n == 0) n = UnitLength(s);
    if (n == 0) return *this;
    if (n >= capacity_ - Size()) {
        Splice(Size(), 0, s, n, GrowthStep(n));
        return *this;
    }
    wchar_t* const end = end_;
    MoveUnits(end, s, n);  // s may lie in this buffer and reach to the terminator
    SetEnd(end + n);
    return *this;
}

void UniStr::InsertStringAtPosition(uint32_t pos, const wchar_t* s, uint32_t n)
{
    if (n == 0) return;
    if (pos > Size()) throw OutOfRange();
    Splice(pos, 0, s, n, GrowthStep(n));
}

void UniStr::InsertCharAtPosition(uint32_t pos, wchar_t c)
{
    if (pos > Size()) throw OutOfRange();
    FillAtPosition(pos, 1, c);
}

// Inserts n times c at `pos`, which is within the text, with the growth of n insertions of one unit.
void UniStr::FillAtPosition(uint32_t pos, uint32_t n, wchar_t c)
{
    if (n == 0) return;
    GrowTo(SingleUnitGrowth(uint64_t{Size()} + n));
    ShiftRight(pos, n);
    FillUnits(buffer_ + pos, n, c);
}

void UniStr::ReplaceAtPosition(uint32_t pos, uint32_t count, const wchar_t* s, uint32_t n)
{
    if (pos > Size()) throw OutOfRange();
    count = std::min(count, Size() - pos);
    if (count == 0 && n == 0) return;
    Splice(pos, count, s, n, GrowthStep(n));
}

UniStr& UniStr::operator+=(const UniStr& other)
{
    return AppendString(other.buffer_, other.Size());
}

UniStr& UniStr::operator+=(const wchar_t* s)
{
    return AppendString(s, 0);
}

UniStr& UniStr::Append(const wchar_t* s, uint32_t n)
{
    return AppendString(s, n);
}

UniStr& UniStr::Append(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last)
{
    const uint32_t n = Distance(first, last);
    if (n == 0) return *this;
    Splice(Size(), 0, first.position_, n, SingleUnitGrowth(uint64_t{Size()} + n));
    return *this;
}

UniStr& UniStr::AppendSpan(UnitSpan span)
{
    const uint32_t n = CheckedLength(span.size);
    if (n != 0) AppendString(span.data, n);
    return *this;
}

UniStr& UniStr::Insert(uint32_t pos, const wchar_t* s)
{
    InsertStringAtPosition(pos, s, UnitLength(s));
    return *this;
}

UniStr& UniStr::Insert(uint32_t pos, const wchar_t* s, uint32_t n)
{
    InsertStringAtPosition(pos, s, n);
    return *this;
}

UniStr& UniStr::Insert(uint32_t pos, const UniStr& other)
{
    InsertStringAtPosition(pos, other.buffer_, other.Size());
    return *this;
}

UniStr& UniStr::Insert(uint32_t pos, const UniStr& other, uint32_t otherPos, uint32_t n)
{
    if (otherPos >= other.Size()) return *this;
    InsertStringAtPosition(pos, other.buffer_ + otherPos, std::min(n, other.Size() - otherPos));
    return *this;
}

UniStr& UniStr::Insert(uint32_t pos, uint32_t n, wchar_t c)
{
    if (n == 0) return *this;
    if (pos > Size()) throw OutOfRange();
    FillAtPosition(pos, n, c);
    return *this;
}

UniStr::unistr_iterator<wchar_t> UniStr::Insert(unistr_iterator_const<wchar_t> it, wchar_t c)
{
    const uint32_t pos = IndexOf(it);
    InsertCharAtPosition(pos, c);
    return Begin() + pos;
}

void UniStr::Insert(unistr_iterator_const<wchar_t> it, unistr_iterator_const<wchar_t> first,
                    unistr_iterator_const<wchar_t> last)
{
    InsertStringAtPosition(IndexOf(it), first.position_, Distance(first, last));
}

void UniStr::Insert(unistr_iterator_const<wchar_t> it, uint32_t n, wchar_t c)
{
    Insert(IndexOf(it), n, c);
}

UniStr& UniStr::Replace(uint32_t pos, uint32_t count, const UniStr& other)
{
    ReplaceAtPosition(pos, count, other.buffer_, other.Size());
    return *this;
}

UniStr& UniStr::Replace(uint32_t pos, uint32_t count, const wchar_t* s)
{
    ReplaceAtPosition(pos, count, s, UnitLength(s));
    return *this;
}

UniStr& UniStr::Replace(uint32_t pos, uint32_t count, const wchar_t* s, uint32_t n)
{
    ReplaceAtPosition(pos, count, s, n);
    return *this;
}

UniStr& UniStr::Replace(uint32_t pos, uint32_t count, const UniStr& other, uint32_t otherPos, uint32_t n)
{
    if (otherPos >= other.Size() || n > other.capacity_ - otherPos) throw OutOfRange();
    ReplaceAtPosition(pos, count, other.buffer_ + otherPos, n);
    return *this;
}

UniStr& UniStr::Replace(uint32_t pos, uint32_t count, uint32_t n, wchar_t c)
{
    UniStr units;
    units.Assign(n, c);
    return Replace(pos, count, units);
}

UniStr& UniStr::Replace(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last,
                        const UniStr& other)
{
    return Replace(IndexOf(first), Distance(first, last), other);
}

UniStr& UniStr::Replace(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last,
                        const wchar_t* s, uint32_t n)
{
    return Replace(IndexOf(first), Distance(first, last), s, n);
}

UniStr& UniStr::Replace(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last, uint32_t n,
                        wchar_t c)
{
    return Replace(IndexOf(first), Distance(first, last), n, c);
}

UniStr& UniStr::Replace(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last,
                        unistr_iterator_const<wchar_t> sourceFirst, unistr_iterator_const<wchar_t> sourceLast)
{
    return Replace(IndexOf(first), Distance(first, last), sourceFirst.position_,
                   Distance(sourceFirst, sourceLast));
}

UniStr& UniStr::Erase(uint32_t pos, uint32_t n)
{
    if (pos >= Size()) throw OutOfRange();
    ReplaceAtPosition(pos, n, nullptr, 0);
    return *this;
}

UniStr::unistr_iterator<wchar_t> UniStr::Erase(unistr_iterator_const<wchar_t> it)
{
    const uint32_t pos = IndexOf(it);
    Erase(pos, 1);
    return Begin() + pos;
}

UniStr::unistr_iterator<wchar_t> UniStr::Erase(unistr_iterator_const<wchar_t> first,
                                               unistr_iterator_const<wchar_t> last)
{
    const uint32_t pos = IndexOf(first);
    const uint32_t count = Distance(first, last);
    if (count != 0) ReplaceAtPosition(pos, count, nullptr, 0);
    return Begin() + std::min(pos, Size());
}

UniStr& UniStr::Resize(uint32_t n, wchar_t c)
{
    const uint32_t length = Size();
    if (n < length) {
        SetEnd(buffer_ + n);
    } else if (n > length) {
        if (n >= capacity_) {
            GrowTo(capacity_ + Align(uint64_t{n} - capacity_ + 1, kCapacityUnit) + kCapacityStep);
        }
        FillUnits(end_, n - length, c);
        SetEnd(buffer_ + n);
    }
    return *this;
}

UniStr UniStr::Substring(uint32_t pos, uint32_t n) const
{
    if (pos > Size()) throw OutOfRange();
    const uint32_t rest = Size() - pos;
    if (n == kNpos) n = rest;
    if (n > rest) throw OutOfRange();
    return UniStr(buffer_ + pos, n);
}

UniStr operator+(const UniStr& a, const UniStr& b)
{
    UniStr result(a);
    result += b;
    return result;
}

UniStr operator+(const UniStr& a, const wchar_t* b)
{
    UniStr result(a);
    result += b;
    return result;
}

UniStr operator+(const wchar_t* a, const UniStr& b)
{
    UniStr result(a);
    result += b;
    return result;
}

}  // namespace vorn
