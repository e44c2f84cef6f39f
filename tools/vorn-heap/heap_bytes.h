// heap_bytes.h - a private copy of a heap's bytes, from an image file or from a live shared heap.
#ifndef VORN_TOOLS_HEAP_BYTES_H
#define VORN_TOOLS_HEAP_BYTES_H

#include <cstdint>
#include <string>
#include <vector>

namespace heap_tool {

// Each gives false and a sentence when the bytes cannot be had.

bool ReadImage(const wchar_t* fileName, std::vector<uint8_t>* bytes, std::string* problem);

// Takes the heap's lock, waiting at most timeoutMs, copies its memory and gives the lock back. The memory is
// mapped for reading only, and the heap's attach count is left alone.
bool ReadSharedHeap(const wchar_t* name, uint32_t timeoutMs, std::vector<uint8_t>* bytes,
                    std::string* problem);

}  // namespace heap_tool

#endif
