// pointer_set.h - a set of pointer values that answers "is it in" in constant time.
//
// Open addressing with linear probing over one array of words, so that a look-up touches one or two cache
// lines however many values are live, and Prefetch can fetch the first of them before a lock is taken.
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
    bool Contains(const void* value) const noexcept;
    // Takes out one value, whichever; null when the set is empty.
    const void* TakeAny() noexcept;
    size_t Size() const noexcept { return size_; }

    // Asks the processor for the cache line where the value would be. Any thread may call this at any
    // time: a table that is replaced meanwhile makes it useless, never wrong.
    void Prefetch(const void* value) const noexcept;

private:
    size_t SlotOf(uintptr_t value) const noexcept;
    bool Grow() noexcept;

    std::atomic<uintptr_t*> table_{nullptr};  // 0 marks an empty slot
    std::atomic<unsigned> shift_{64};         // 64 minus the logarithm of the table's size
    size_t size_ = 0;
};

}  // namespace vorn::detail

#endif
