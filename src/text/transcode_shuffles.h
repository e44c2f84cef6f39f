// transcode_shuffles.h - the tables by which the converters with SSE4.1 and AVX2 move bytes: for each set of
// bits that describes some neighbouring bytes or units, the positions from which a shuffle takes its bytes.
#ifndef VORN_TEXT_TRANSCODE_SHUFFLES_H
#define VORN_TEXT_TRANSCODE_SHUFFLES_H

#include <cstdint>

namespace vorn::detail {

struct alignas(16) Shuffle {
    uint8_t at[16];
};

template <int kCount>
struct Shuffles {
    Shuffle of[kCount];
};

// How many bytes each of 256 shuffles leaves.
struct ShuffledLengths {
    uint8_t of[256];
};

constexpr uint8_t kNothing = 0x80;  // a position that gives zero

// Reading UTF-8. One bit for each byte: a character starts here.

// The first two bytes of each character, in lanes of two: of characters that start in 8 bytes, and in 12
// bytes in which no more than 8 start.
extern const Shuffles<256> kGatherPairs8;
extern const Shuffles<4096> kGatherPairs12;

// Characters of one or two bytes that start in 8 bytes, in lanes of two, the last byte first. The ninth bit
// tells where the eighth byte's character ends.
extern const Shuffles<512> kGatherShort8;

// The first four bytes of each character that starts in 4 bytes, in lanes of four.
extern const Shuffles<16> kGatherQuads4;

// Writing.

// Four lanes of four bytes, which hold the bytes of a character at their end: those bytes close together. Two
// bits for each lane: 00 one byte, 01 two, 11 three, 10 four.
extern const Shuffles<256> kCloseQuads;
extern const ShuffledLengths kCloseQuadsLength;

// Eight lanes of two bytes: both bytes where the bit is set, elsewhere the second one.
extern const Shuffles<256> kClosePairs;

// Four lanes of four bytes: the lanes whose bit is not set.
extern const Shuffles<16> kDropQuads;

// Four lanes of two units: both where the bit is set, elsewhere the first one.
extern const Shuffles<16> kCloseUnits;

}  // namespace vorn::detail

#endif
