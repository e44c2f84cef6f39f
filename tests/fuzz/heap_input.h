// heap_input.h - what a fuzzer of heaps makes of its input: numbers, bytes, and a heap that is sound.
#ifndef VORN_TESTS_FUZZ_HEAP_INPUT_H
#define VORN_TESTS_FUZZ_HEAP_INPUT_H

#include "heap/heap_blocks.h"
#include "heap/heap_walk.h"

#include <cstdlib>
#include <cstring>

namespace heap_fuzz {

class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    bool Empty() const { return size_ == 0; }
    size_t Left() const { return size_; }
    uint64_t Number(size_t bytes)
    {
        uint64_t value = 0;
        for (size_t i = 0; i < bytes && size_ != 0; ++i, ++data_, --size_) value = value << 8 | *data_;
        return value;
    }
    void Bytes(uint8_t* out, size_t count)
    {
        const size_t take = count < size_ ? count : size_;
        if (take != 0) std::memcpy(out, data_, take);
        data_ += take;
        size_ -= take;
    }

private:
    const uint8_t* data_;
    size_t size_;
};

// Ends the run as a finding.
inline void Require(bool condition)
{
    if (!condition) std::abort();
}

constexpr unsigned kPayloads = 16;

// Lays out a heap of `size` bytes; allocates kPayloads blocks, as far as they fit, and frees some of them.
// Gives the payloads' offsets, freed ones included.
inline void FillSoundHeap(uint8_t* bytes, uint64_t size, Input& input, uint64_t (&payloads)[kPayloads])
{
    vorn::detail::LayOutHeap(bytes, size);
    const vorn::detail::HeapArea area(bytes, size);
    for (uint64_t& payload : payloads) {
        payload = 0;
        vorn::detail::AllocateBlock(area, input.Number(1), &payload);
    }
    const uint64_t freed = input.Number(2);
    for (unsigned i = 0; i < kPayloads; ++i) {
        if ((freed >> i & 1) != 0) Require(vorn::detail::ReleaseBlock(area, payloads[i]) == VORN_OK);
    }
    Require(vorn::detail::CheckHeap(area).fault == vorn::detail::HeapFault::kNone);
    vorn::detail::StampHeap(bytes);
}

// Replaces up to `most` bytes.
inline void Damage(uint8_t* bytes, uint64_t size, Input& input, uint64_t most)
{
    for (uint64_t changes = input.Number(1) % (most + 1); changes != 0; --changes) {
        const uint64_t offset = input.Number(2) % size;
        bytes[offset] = static_cast<uint8_t>(input.Number(1));
    }
}

}  // namespace heap_fuzz

#endif
