// layout_checker.h - reads a heap's bytes by the layout alone and says what is wrong with them.
// It shares no code and no constant with the library, and is stricter than the library's own check.
#ifndef VORN_TESTS_HEAP_LAYOUT_CHECKER_H
#define VORN_TESTS_HEAP_LAYOUT_CHECKER_H

#include <cstdint>
#include <string>
#include <vector>

namespace heap_test {

struct SeenBlock {
    uint64_t offset;
    uint64_t size;  // header included
    uint64_t userSize;
    bool allocated;
};

struct SeenNode {
    uint64_t offset;
    uint64_t size;
    uint64_t parent;
    uint64_t left;
    uint64_t right;
    uint32_t colour;
};

struct SeenHeap {
    std::string problem;             // empty for a sound heap
    std::vector<SeenBlock> blocks;   // between the start and the end block, in address order
    std::vector<SeenNode> freeTree;  // in order, from the leftmost node
    uint64_t root = 0;
};

// `size` is the area's size as given at creation; an odd last byte is not part of the heap.
SeenHeap LookAtHeap(const uint8_t* area, uint64_t size);

uint32_t Read32(const uint8_t* area, uint64_t offset);
uint64_t Read64(const uint8_t* area, uint64_t offset);
void Write32(uint8_t* area, uint64_t offset, uint32_t value);
void Write64(uint8_t* area, uint64_t offset, uint64_t value);

// The payload that best fit must hand out for a request, 0 when none can hold it.
uint64_t PayloadByBestFit(const SeenHeap& heap, uint64_t request);

}  // namespace heap_test

#endif
