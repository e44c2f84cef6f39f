// unistr_storage.cpp - construction, assignment, growth and access of UniStr.
// Everything that may throw happens before the string is changed.
#include <vorn/unistr.hpp>

#include "text/unistr_units.h"

#include <algorithm>
#include <utility>

namespace vorn {

using namespace detail;

namespace {

// Terminators for strings without a buffer of their own: texts of no units, never written.
wchar_t movedFrom[1];
wchar_t neverAllocated[1];

}  // namespace

UniStr::UniStr()
    : buffer_(AllocateUnits(kSmallestCapacity).release()),
      end_(buffer_),
      capacity_(kSmallestCapacity),
      narrow_(nullptr),
      narrowEnd_(nullptr),
      narrowCapacity_(0),
      allocated_(kSmallestCapacity)
{
    *end_ = 0;
}

UniStr::UniStr(const wchar_t* s)
{
    ConstructFromUnits(s, UnitLength(s));
}

UniStr::UniStr(const wchar_t* s, uint32_t n)
{
    ConstructFromUnits(s, n != 0 ? n : UnitLength(s));
}

UniStr::UniStr(const UniStr& other)
{
    ConstructFromUnits(other.buffer_, other.Size());
}

UniStr::UniStr(SpanTag, UnitSpan span)
{
    ConstructFromUnits(span.data, CheckedLength(span.size));
}

UniStr::UniStr(const char* s)
{
    ConstructFromCodepage(s, 0);
}

UniStr::UniStr(const char* s, uint32_t n)
{
    ConstructFromCodepage(s, n);
}

UniStr::UniStr(UniStr&& other) noexcept
{
    TakeOver(other);
}

UniStr::~UniStr()
{
    if (capacity_ != 0) delete[] buffer_;
    delete[] narrow_;
}

// Only for constructors: the fields hold nothing yet.
void UniStr::ConstructFromUnits(const wchar_t* s, size_t n)
{
    const uint64_t capacity = FreshCapacity(n);
    UnitArray buffer = AllocateUnits(capacity);
    CopyUnits(buffer.get(), s, n);
    AdoptBuffer(buffer.release(), static_cast<uint32_t>(n), static_cast<uint32_t>(capacity));
}

// Only for constructors. A null buffer leaves the string without one.
void UniStr::AdoptBuffer(wchar_t* buffer, uint32_t length, uint32_t capacity) noexcept
{
    buffer_ = buffer != nullptr ? buffer : neverAllocated;
    end_ = buffer_ + length;
    if (buffer != nullptr) *end_ = 0;
    capacity_ = capacity;
    narrow_ = nullptr;
    narrowEnd_ = nullptr;
    narrowCapacity_ = 0;
    allocated_ = capacity;
}

// Takes the other's fields without looking at this string's own.
void UniStr::TakeOver(UniStr& other) noexcept
{
    buffer_ = std::exchange(other.buffer_, movedFrom);
    end_ = std::exchange(other.end_, movedFrom);
    capacity_ = std::exchange(other.capacity_, 0);
    narrow_ = std::exchange(other.narrow_, nullptr);
    narrowEnd_ = std::exchange(other.narrowEnd_, nullptr);
    narrowCapacity_ = std::exchange(other.narrowCapacity_, 0);
    allocated_ = std::exchange(other.allocated_, 0);
}

void UniStr::ReplaceBuffer(wchar_t* buffer, uint32_t length, uint32_t capacity) noexcept
{
    if (capacity_ != 0) delete[] buffer_;
    buffer_ = buffer;
    end_ = buffer + length;
    *end_ = 0;
    capacity_ = capacity;
    allocated_ = capacity;
}

void UniStr::DiscardCodepageCopy() const noexcept
{
    delete[] narrow_;
    narrow_ = nullptr;
    narrowCapacity_ = 0;
}

const wchar_t* UniStr::UnownedText() const noexcept
{
    return buffer_ == neverAllocated ? nullptr : buffer_;
}

uint64_t UniStr::Align(uint64_t value, uint32_t alignment) noexcept
{
    if (value <= alignment) return alignment;
    return (value + alignment - 1) / alignment * alignment;
}

uint64_t UniStr::GrowthStep(uint32_t n) const noexcept
{
    return uint64_t{capacity_} + Align(n, kCapacityUnit) + kCapacityStep;
}

// The capacity after growing by one step each time the buffer is full, until `length` units fit.
uint64_t UniStr::SingleUnitGrowth(uint64_t length) const noexcept
{
    if (length < capacity_) return capacity_;
    const uint64_t steps = (length - capacity_) / kCapacityStep + 1;
    return capacity_ + steps * kCapacityStep;
}

void UniStr::IncreaseCapacity(uint32_t n)
{
    GrowTo(uint64_t{capacity_} + n);
}

// The units to allocate for a capacity that the buffer lacks: at least twice what it has, so that a text made
// of many small ones is copied only a few times.
uint64_t UniStr::AllocationFor(uint64_t capacity) const noexcept
{
    return std::max(capacity, std::min(uint64_t{allocated_} * 2, kLargestCapacity));
}

void UniStr::GrowTo(uint64_t capacity)
{
    if (capacity <= capacity_) return;
    if (capacity > allocated_) {
        const uint64_t allocation = AllocationFor(capacity);
        UnitArray buffer = AllocateUnits(allocation);
        const uint32_t length = Size();
        CopyUnits(buffer.get(), buffer_, length);
        ReplaceBuffer(buffer.release(), length, static_cast<uint32_t>(allocation));
    }
    capacity_ = static_cast<uint32_t>(capacity);
}

void UniStr::AssignString(const wchar_t* s, uint32_t n)
{
    if (n == 0) n = UnitLength(s);
    if (n < capacity_) {
        MoveUnits(buffer_, s, n);  // s may lie in this buffer
        SetEnd(buffer_ + n);
        return;
    }
    const uint64_t capacity = FreshCapacity(n);
    UnitArray buffer = AllocateUnits(capacity);
    CopyUnits(buffer.get(), s, n);
    ReplaceBuffer(buffer.release(), n, static_cast<uint32_t>(capacity));
    DiscardCodepageCopy();
}

UniStr& UniStr::operator=(const UniStr& other)
{
    AssignString(other.buffer_, other.Size());
    return *this;
}

UniStr& UniStr::operator=(const wchar_t* s)
{
    AssignString(s, 0);
    return *this;
}

UniStr& UniStr::operator=(UniStr&& other) noexcept
{
    if (this == &other) return *this;
    if (capacity_ != 0) delete[] buffer_;
    delete[] narrow_;
    TakeOver(other);
    return *this;
}

UniStr& UniStr::Assign(const wchar_t* s, uint32_t n)
{
    if (n == 0) return Clear();
    AssignString(s, n);
    return *this;
}

UniStr& UniStr::Assign(const UniStr& other)
{
    return Assign(other.buffer_, other.Size());
}

UniStr& UniStr::Assign(const UniStr& other, uint32_t pos, uint32_t n)
{
    if (pos >= other.Size()) throw OutOfRange();
    return Assign(other.buffer_ + pos, std::min(n, other.Size() - pos));
}

UniStr& UniStr::Assign(uint32_t n, wchar_t c)
{
    if (n != 0) GrowTo(SingleUnitGrowth(n));
    Clear();
    FillAtPosition(0, n, c);
    return *this;
}

UniStr& UniStr::Assign(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last)
{
    if (first >= last) return Clear();
    const uint32_t n = CheckedLength(static_cast<size_t>(last - first));
    GrowTo(SingleUnitGrowth(n));  // a range of this string fits and moves no buffer
    if (narrow_ != nullptr) *narrow_ = '\0';
    MoveUnits(buffer_, first.position_, n);
    SetEnd(buffer_ + n);
    return *this;
}

UniStr& UniStr::AssignSpan(UnitSpan span)
{
    return Assign(span.data, CheckedLength(span.size));
}

UniStr& UniStr::Reserve(uint32_t n)
{
    if (n < capacity_) return *this;
    GrowTo(GrowthStep(n));
    return *this;
}

UniStr& UniStr::Clear()
{
    end_ = buffer_;
    if (capacity_ != 0) *end_ = 0;
    if (narrow_ != nullptr) *narrow_ = '\0';
    return *this;
}

UniStr& UniStr::Swap(UniStr& other) noexcept
{
    std::swap(buffer_, other.buffer_);
    std::swap(end_, other.end_);
    std::swap(capacity_, other.capacity_);
    std::swap(narrow_, other.narrow_);
    std::swap(narrowCapacity_, other.narrowCapacity_);
    std::swap(allocated_, other.allocated_);
    return *this;
}

wchar_t& UniStr::At(uint32_t i)
{
    if (i >= Size()) throw OutOfRange();
    return buffer_[i];
}

const wchar_t& UniStr::At(uint32_t i) const
{
    if (i >= Size()) throw OutOfRange();
    return buffer_[i];
}

UniStr::operator std::u16string_view() const noexcept
{
    return {reinterpret_cast<const char16_t*>(buffer_), Size()};
}

}  // namespace vorn
