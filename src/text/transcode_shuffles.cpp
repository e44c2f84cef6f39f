#include "text/transcode_shuffles.h"

namespace vorn::detail {

namespace {

constexpr bool Has(int bits, int position)
{
    return (bits >> position & 1) != 0;
}

constexpr int Count(int bits)
{
    int count = 0;
    for (; bits != 0; bits &= bits - 1) ++count;
    return count;
}

// For each set of `kPositions` bits that has no more bits than there are lanes: for each bit, its position
// and those behind it, `kBytes` in all.
template <int kPositions, int kBytes>
constexpr Shuffles<1 << kPositions> MakeGather()
{
    Shuffles<1 << kPositions> table{};
    for (int bits = 0; bits < 1 << kPositions; ++bits) {
        if (Count(bits) * kBytes > 16) continue;
        int size = 0;
        for (int position = 0; position < kPositions; ++position) {
            if (!Has(bits, position)) continue;
            for (int i = 0; i < kBytes; ++i) table.of[bits].at[size++] = static_cast<uint8_t>(position + i);
        }
    }
    return table;
}

constexpr Shuffles<512> MakeGatherShort()
{
    Shuffles<512> table{};
    for (int bits = 0; bits < 512; ++bits) {
        int size = 0;
        for (int position = 0; position < 8; ++position) {
            if (!Has(bits, position)) continue;
            const bool isTwo = !Has(bits, position + 1);
            table.of[bits].at[size++] = static_cast<uint8_t>(position + isTwo);
            table.of[bits].at[size++] = isTwo ? static_cast<uint8_t>(position) : kNothing;
        }
    }
    return table;
}

constexpr int QuadLength(int bits, int lane)
{
    constexpr int kLength[4] = {1, 2, 4, 3};
    return kLength[bits >> 2 * lane & 3];
}

constexpr void FillUp(Shuffle* shuffle, int size)
{
    while (size < 16) shuffle->at[size++] = kNothing;
}

constexpr Shuffles<256> MakeCloseQuads()
{
    Shuffles<256> table{};
    for (int bits = 0; bits < 256; ++bits) {
        int size = 0;
        for (int lane = 0; lane < 4; ++lane) {
            for (int i = 4 - QuadLength(bits, lane); i < 4; ++i) {
                table.of[bits].at[size++] = static_cast<uint8_t>(4 * lane + i);
            }
        }
        FillUp(&table.of[bits], size);
    }
    return table;
}

constexpr ShuffledLengths MakeCloseQuadsLength()
{
    ShuffledLengths lengths{};
    for (int bits = 0; bits < 256; ++bits) {
        int size = 0;
        for (int lane = 0; lane < 4; ++lane) size += QuadLength(bits, lane);
        lengths.of[bits] = static_cast<uint8_t>(size);
    }
    return lengths;
}

constexpr Shuffles<256> MakeClosePairs()
{
    Shuffles<256> table{};
    for (int bits = 0; bits < 256; ++bits) {
        int size = 0;
        for (int lane = 0; lane < 8; ++lane) {
            if (Has(bits, lane)) table.of[bits].at[size++] = static_cast<uint8_t>(2 * lane);
            table.of[bits].at[size++] = static_cast<uint8_t>(2 * lane + 1);
        }
        FillUp(&table.of[bits], size);
    }
    return table;
}

constexpr Shuffles<16> MakeDropQuads()
{
    Shuffles<16> table{};
    for (int bits = 0; bits < 16; ++bits) {
        int size = 0;
        for (int lane = 0; lane < 4; ++lane) {
            if (Has(bits, lane)) continue;
            for (int i = 0; i < 4; ++i) table.of[bits].at[size++] = static_cast<uint8_t>(4 * lane + i);
        }
        FillUp(&table.of[bits], size);
    }
    return table;
}

constexpr Shuffles<16> MakeCloseUnits()
{
    Shuffles<16> table{};
    for (int bits = 0; bits < 16; ++bits) {
        int size = 0;
        for (int lane = 0; lane < 4; ++lane) {
            for (int i = 0; i < (Has(bits, lane) ? 4 : 2); ++i) {
                table.of[bits].at[size++] = static_cast<uint8_t>(4 * lane + i);
            }
        }
        FillUp(&table.of[bits], size);
    }
    return table;
}

}  // namespace

constexpr Shuffles<256> kGatherPairs8 = MakeGather<8, 2>();
constexpr Shuffles<4096> kGatherPairs12 = MakeGather<12, 2>();
constexpr Shuffles<512> kGatherShort8 = MakeGatherShort();
constexpr Shuffles<16> kGatherQuads4 = MakeGather<4, 4>();
constexpr Shuffles<256> kCloseQuads = MakeCloseQuads();
constexpr ShuffledLengths kCloseQuadsLength = MakeCloseQuadsLength();
constexpr Shuffles<256> kClosePairs = MakeClosePairs();
constexpr Shuffles<16> kDropQuads = MakeDropQuads();
constexpr Shuffles<16> kCloseUnits = MakeCloseUnits();

}  // namespace vorn::detail
