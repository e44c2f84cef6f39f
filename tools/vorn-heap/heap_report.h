// heap_report.h - what is to be said about the bytes of a heap.
#ifndef VORN_TOOLS_HEAP_REPORT_H
#define VORN_TOOLS_HEAP_REPORT_H

#include "heap/heap_walk.h"

#include <cstdint>
#include <string>
#include <vector>

namespace heap_tool {

struct Block {
    uint64_t offset;
    uint64_t size;       // header included
    uint64_t requested;  // bytes
    bool allocated;
};

struct Report {
    uint64_t areaSize = 0;      // bytes that there are, whatever the header says
    bool isHeap = false;        // magic and version are right, and a header is there at all
    std::vector<Block> blocks;  // up to the first fault; without the start and the end block
    vorn::detail::HeapVerdict verdict;
    uint64_t walkedTo = 0;  // where the walk over the blocks ended

    uint64_t allocatedBlocks = 0;
    uint64_t allocatedBytes = 0;  // headers included
    uint64_t requestedBytes = 0;
    uint64_t freeBlocks = 0;
    uint64_t freeBytes = 0;
    const Block* largestFree = nullptr;  // in `blocks`; null when nothing is free

    // The part of the free bytes that is not in the largest free block, 0 to 1.
    double Fragmentation() const;
};

// Reads nothing outside `bytes`, whatever they say.
Report Examine(std::vector<uint8_t>* bytes);

std::string DescribeHeader(const std::vector<uint8_t>& bytes, const Report& report);
std::string DescribeStatistics(const std::vector<uint8_t>& bytes, const Report& report);
std::string DescribeVerdict(const Report& report);
std::string ListBlocks(const std::vector<uint8_t>& bytes, const Report& report);

// Bytes as printable characters, others as dots.
std::string Preview(const uint8_t* bytes, uint64_t size, uint64_t most);

}  // namespace heap_tool

#endif
