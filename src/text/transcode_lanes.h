// transcode_lanes.h - what the converters with SSE4.1 and AVX2 share: counting bits, and loading and storing
// 16 bytes or the first few of them. Only for files that are compiled for a vector unit; without linkage.
#ifndef VORN_TEXT_TRANSCODE_LANES_H
#define VORN_TEXT_TRANSCODE_LANES_H

#include "text/transcode_shuffles.h"

#include <cstddef>
#include <cstring>
#include <immintrin.h>

namespace vorn::detail {

namespace {

size_t Bits(uint64_t mask)
{
    return static_cast<size_t>(__builtin_popcountll(mask));
}

constexpr uint64_t LowBits(size_t count)
{
    return count >= 64 ? ~uint64_t{0} : (uint64_t{1} << count) - 1;
}

__m128i Control(const Shuffle& shuffle)
{
    return _mm_load_si128(reinterpret_cast<const __m128i*>(&shuffle));
}

__m128i LoadLane(const void* from)
{
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

void StoreLane(void* to, __m128i lane)
{
    _mm_storeu_si128(static_cast<__m128i*>(to), lane);
}

// Eight bytes as elements of 16 bits.
__m128i LoadWide(const uint8_t* from)
{
    return _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)));
}

template <class Word>
uint64_t LoadWord(const uint8_t* from)
{
    Word word;
    std::memcpy(&word, from, sizeof word);
    return word;
}

template <class Word>
void StoreWord(uint8_t* to, uint64_t value)
{
    const Word word = static_cast<Word>(value);
    std::memcpy(to, &word, sizeof word);
}

// The first `bytes` of a lane, at most 16, and zeros. Reads no more than those; two words may overlap.
__m128i LoadPart(const void* from, size_t bytes)
{
    if (bytes >= 16) return LoadLane(from);
    const uint8_t* const text = static_cast<const uint8_t*>(from);
    uint64_t low = 0;
    uint64_t high = 0;
    if (bytes > 8) {
        low = LoadWord<uint64_t>(text);
        high = LoadWord<uint64_t>(text + bytes - 8) >> (8 * (16 - bytes));
    } else if (bytes >= 4) {
        low = LoadWord<uint32_t>(text) | LoadWord<uint32_t>(text + bytes - 4) << (8 * (bytes - 4));
    } else if (bytes >= 2) {
        low = LoadWord<uint16_t>(text) | uint64_t{text[bytes - 1]} << (8 * (bytes - 1));
    } else if (bytes == 1) {
        low = text[0];
    }
    return _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low));
}

struct Positions {
    uint8_t at[24];
};

constexpr Positions MakePositions()
{
    Positions positions{};
    for (int i = 0; i < 24; ++i) positions.at[i] = static_cast<uint8_t>(i);
    return positions;
}

constexpr Positions kPositions = MakePositions();

// Stores the first `bytes` of a lane, at most 16, and nothing else.
void StorePart(void* to, __m128i lane, size_t bytes)
{
    uint8_t* const text = static_cast<uint8_t*>(to);
    if (bytes >= 16) return StoreLane(to, lane);
    if (bytes >= 8) {
        const __m128i end = _mm_shuffle_epi8(lane, LoadLane(kPositions.at + bytes - 8));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(text), lane);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(text + bytes - 8), end);
        return;
    }
    const uint64_t word = static_cast<uint64_t>(_mm_cvtsi128_si64(lane));
    if (bytes >= 4) {
        StoreWord<uint32_t>(text, word);
        StoreWord<uint32_t>(text + bytes - 4, word >> (8 * (bytes - 4)));
    } else if (bytes >= 2) {
        StoreWord<uint16_t>(text, word);
        text[bytes - 1] = static_cast<uint8_t>(word >> (8 * (bytes - 1)));
    } else if (bytes == 1) {
        text[0] = static_cast<uint8_t>(word);
    }
}

}  // namespace

}  // namespace vorn::detail

#endif
