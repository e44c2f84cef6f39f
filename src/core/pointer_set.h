// pointer_set.h - a set of pointer values that answers "is it in" in constant time.
//
// Open addressing with linear probing over one array of words, so that a look-up touches one or two cache
// lines however many values are live, and Prefetch can fetch the first of them before a lock is taken.
// Looking a value up is part of every validated call, and stands in the header to be part of its code too.
// Not synchronised, except Prefetch. Null is never in the set.
#ifndef VORN_CORE_POINTER_SET_H
#define VORN_CORE_POINTER_SET_H

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vorn::detail {

class PointerSet {
public:
    PointerSet() noexcept = default;
    PointerSet(const PointerSet&) = delete;
    PointerSet& operator=(const PointerSet&) = delete;
    ~PointerSet();

    // True when the value is in the set afterwards; false when memory is exhausted (nothing changed).
    bool Insert(const void* value) noexcept;
    // True when the value was in the set.
    bool Erase(const void* value) noexcept;
    bool Contains(const void* value) const noexcept
    {
        if (value == nullptr || size_ == 0) return false;
        const uintptr_t word = reinterpret_cast<uintptr_t>(value);
        return table_.load(std::memory_order_relaxed)[SlotOf(word)] == word;
    }
    // A value for which `matches` is true; null when there is none. Looks at every slot.
    template <class Predicate>
    const void* FindIf(Predicate matches) const
    {
        const uintptr_t* table = table_.load(std::memory_order_relaxed);
        for (size_t left = size_; left != 0; ++table) {
            if (*table == 0) continue;
            const void* const value = reinterpret_cast<const void*>(*table);
            if (matches(value)) return value;
            --left;
        }
        return nullptr;
    }
    // Takes out one value, whichever; null when the set is empty.
    const void* TakeAny() noexcept;
    size_t Size() const noexcept { return size_; }

    // Asks the processor for the cache line where the value would be. Any thread may call this at any
    // time: a table that is replaced meanwhile makes it useless, never wrong.
    void Prefetch(const void* value) const noexcept
    {
        const unsigned shift = shift_.load(std::memory_order_relaxed);
        if (shift >= 64) return;
        const uintptr_t* table = table_.load(std::memory_order_relaxed);
        __builtin_prefetch(table + Hash(reinterpret_cast<uintptr_t>(value), shift));
    }

private:
    // Multiplicative hashing: the high bits of the product depend on every bit of the value.
    static size_t Hash(uintptr_t value, unsigned shift) noexcept
    {
        return static_cast<size_t>((value * 0x9E3779B97F4A7C15u) >> shift);
    }
    // The slot that holds the value, or the empty slot where it would go. The table is never full.
    size_t SlotOf(uintptr_t value) const noexcept
    {
        const uintptr_t* table = table_.load(std::memory_order_relaxed);
        const unsigned shift = shift_.load(std::memory_order_relaxed);
        const size_t mask = (size_t{1} << (64 - shift)) - 1;
        size_t slot = Hash(value, shift);
        while (table[slot] != 0 && table[slot] != value) slot = (slot + 1) & mask;
        return slot;
    }
    bool Grow() noexcept;

    std::atomic<uintptr_t*> table_{nullptr};  // 0 marks an empty slot
    std::atomic<unsigned> shift_{64};         // 64 minus the logarithm of the table's size
    size_t size_ = 0;
};

}  // namespace vorn::detail

#endif
