// test_area.h - memory for a heap, exactly as large as asked for, so that a sanitizer sees any touch outside.
#ifndef VORN_TESTS_HEAP_TEST_AREA_H
#define VORN_TESTS_HEAP_TEST_AREA_H

#include "heap/heap_blocks.h"
#include "heap/layout_checker.h"

#include <cstring>
#include <memory>
#include <vector>

namespace heap_test {

class TestArea {
public:
    // Fills the memory with 0xA5 and lays out a heap over it.
    explicit TestArea(uint64_t size) : size_(size), bytes_(new uint8_t[size])
    {
        std::memset(bytes_.get(), 0xA5, size);
        vorn::detail::LayOutHeap(bytes_.get(), size);
        vorn::detail::StampHeap(bytes_.get());
    }

    uint8_t* Bytes() { return bytes_.get(); }
    uint64_t Size() const { return size_; }
    vorn::detail::HeapArea Area() { return vorn::detail::HeapArea(bytes_.get(), size_); }
    SeenHeap Look() { return LookAtHeap(bytes_.get(), size_); }
    std::vector<uint8_t> Copy() { return std::vector<uint8_t>(bytes_.get(), bytes_.get() + size_); }

    // The payload's offset, 0 on failure.
    uint64_t Allocate(uint64_t size)
    {
        uint64_t payload = 0;
        return vorn::detail::AllocateBlock(Area(), size, &payload) == VORN_OK ? payload : 0;
    }

private:
    uint64_t size_;
    std::unique_ptr<uint8_t[]> bytes_;
};

}  // namespace heap_test

#endif
