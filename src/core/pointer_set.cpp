#include "core/pointer_set.h"

#include <cstdlib>

namespace vorn::detail {

namespace {

constexpr unsigned kSmallestLog = 4;

}  // namespace

PointerSet::~PointerSet()
{
    std::free(table_.load(std::memory_order_relaxed));
}

bool PointerSet::Insert(const void* value) noexcept
{
    if (value == nullptr) return false;
    if (Contains(value)) return true;
    const uintptr_t* table = table_.load(std::memory_order_relaxed);
    const size_t capacity = table == nullptr ? 0 : size_t{1} << (64 - shift_.load(std::memory_order_relaxed));
    // At most seven eighths full: an empty slot always ends a probe, and the table stays small enough for
    // the processor's second cache with a hundred thousand values.
    if ((size_ + 1) * 8 > capacity * 7 && !Grow()) return false;
    const uintptr_t word = reinterpret_cast<uintptr_t>(value);
    table_.load(std::memory_order_relaxed)[SlotOf(word)] = word;
    ++size_;
    return true;
}

bool PointerSet::Erase(const void* value) noexcept
{
    if (!Contains(value)) return false;
    uintptr_t* table = table_.load(std::memory_order_relaxed);
    const unsigned shift = shift_.load(std::memory_order_relaxed);
    const size_t mask = (size_t{1} << (64 - shift)) - 1;
    size_t hole = SlotOf(reinterpret_cast<uintptr_t>(value));
    // Values behind the hole move into it where their own probe would have met it, so that no look-up
    // ends early at an empty slot.
    for (size_t slot = (hole + 1) & mask; table[slot] != 0; slot = (slot + 1) & mask) {
        const size_t home = Hash(table[slot], shift);
        if (((slot - home) & mask) >= ((slot - hole) & mask)) {
            table[hole] = table[slot];
            hole = slot;
        }
    }
    table[hole] = 0;
    --size_;
    return true;
}

const void* PointerSet::TakeAny() noexcept
{
    if (size_ == 0) return nullptr;
    const uintptr_t* table = table_.load(std::memory_order_relaxed);
    while (*table == 0) ++table;
    const void* const value = reinterpret_cast<const void*>(*table);
    Erase(value);
    return value;
}

bool PointerSet::Grow() noexcept
{
    uintptr_t* old = table_.load(std::memory_order_relaxed);
    const unsigned oldShift = shift_.load(std::memory_order_relaxed);
    const unsigned log = old == nullptr ? kSmallestLog : 64 - oldShift + 1;
    uintptr_t* table = static_cast<uintptr_t*>(std::calloc(size_t{1} << log, sizeof(uintptr_t)));
    if (table == nullptr) return false;
    table_.store(table, std::memory_order_relaxed);
    shift_.store(64 - log, std::memory_order_relaxed);
    const size_t oldCapacity = old == nullptr ? 0 : size_t{1} << (64 - oldShift);
    for (size_t i = 0; i < oldCapacity; ++i) {
        if (old[i] != 0) table[SlotOf(old[i])] = old[i];
    }
    std::free(old);
    return true;
}

}  // namespace vorn::detail
