// transcode_blocks.h - reading UTF-8 with vector units that have no compressing store, written once for both
// widths.
//
// A file that is compiled for a vector unit names its operations in a class (`Unit`) and takes the functions
// here and in transcode_units.h into its table. Nothing here has linkage: each such file gets its own copy.
//
// UTF-8 is read in blocks of 64 bytes, which are described by bit masks as in transcode_avx512_utf8.h. Eight
// (for UTF-32 four) neighbouring bits choose a shuffle that gathers the bytes of the characters that start
// there. Results are stored as whole vectors while so much text is left that every unit stored in excess is
// certain to be overwritten by a later character; the end of a text is converted in buffers on the stack and
// copied.
#ifndef VORN_TEXT_TRANSCODE_BLOCKS_H
#define VORN_TEXT_TRANSCODE_BLOCKS_H

#include "text/transcode.h"

#include <cstring>
#include <immintrin.h>

namespace vorn::detail {

namespace {

size_t Bits(uint64_t mask)
{
    return static_cast<size_t>(__builtin_popcountll(mask));
}

// ---- shuffles

struct alignas(16) Shuffle {
    uint8_t at[16];
};

template <int kCount>
struct Shuffles {
    Shuffle of[kCount];
};

// For each set of bits, the positions of the bits and the bytes that follow each, `kBytes` for each position.
template <int kPositions, int kBytes>
constexpr Shuffles<1 << kPositions> MakeGather()
{
    Shuffles<1 << kPositions> table{};
    for (int bits = 0; bits < 1 << kPositions; ++bits) {
        int lane = 0;
        for (int position = 0; position < kPositions; ++position) {
            if ((bits >> position & 1) == 0) continue;
            for (int i = 0; i < kBytes; ++i) {
                table.of[bits].at[lane * kBytes + i] = static_cast<uint8_t>(position + i);
            }
            ++lane;
        }
    }
    return table;
}

constexpr Shuffles<256> kGather16 = MakeGather<8, 2>();
constexpr Shuffles<16> kGather32 = MakeGather<4, 4>();

__m128i Control(const Shuffle& shuffle)
{
    return _mm_load_si128(reinterpret_cast<const __m128i*>(&shuffle));
}

// ---- reading UTF-8

constexpr size_t kBlock = 64;
// A block is read up to this many bytes behind its start.
constexpr size_t kBlockReach = 80;
// A block may be converted in place when this many bytes and units are left: what lies behind it makes at
// least the eight units that its last store may have written in excess.
constexpr size_t kInPlaceBytes = kBlockReach + 40;
constexpr size_t kInPlaceRoom = kBlock + 10;

// What sequences that started in the block before take of this one.
struct Utf8Carry {
    uint64_t covered = 0;       // a bit for each byte, at most the first three
    uint64_t lowSurrogate = 0;  // 1 if the first byte stands for a low surrogate still to be written
};

// One bit for each byte of a block.
struct Utf8Masks {
    uint64_t nonAscii;
    uint64_t starts;         // a character starts here: a sequence or an ill-formed byte
    uint64_t replaced;       // an ill-formed byte, or a sequence above U+10FFFF
    uint64_t four;           // a sequence of four bytes starts here
    uint64_t beyond;         // one above U+10FFFF
    uint64_t lowSurrogates;  // the byte stands for the low surrogate of the sequence that began before it
};

template <class Unit>
uint64_t NonAscii(const uint8_t* text)
{
    uint64_t mask = 0;
    for (size_t i = 0; i < kBlock; i += Unit::kBytes)
        mask |= uint64_t{Unit::SignBits(Unit::Load(text + i))} << i;
    return mask;
}

// Describes the first `length` bytes of the block at `text`; zeros follow where the text ends.
template <class Unit>
Utf8Masks Describe(const uint8_t* text, size_t length, uint64_t nonAscii, Utf8Carry* carry)
{
    using V = typename Unit::V;
    uint64_t sequences = 0;
    uint64_t longer = 0;
    uint64_t four = 0;
    uint64_t fromF4 = 0;
    const auto isContinuation = [](V bytes) { return Unit::Greater8(Unit::Set8(0xC0), bytes); };
    for (size_t i = 0; i < kBlock; i += Unit::kBytes) {
        const V bytes = Unit::Load(text + i);
        const V second = Unit::Load(text + i + 1);
        // The bytes from 0x80 on are the negative ones, in their own order.
        const V lead =
            Unit::And(Unit::Greater8(bytes, Unit::Set8(0xC1)), Unit::Greater8(Unit::Set8(0xF5), bytes));
        const V fromE0 = Unit::Greater8(bytes, Unit::Set8(0xDF));
        const V fromF0 = Unit::Greater8(bytes, Unit::Set8(0xEF));
        const V fromA0 = Unit::Greater8(second, Unit::Set8(0x9F));
        const V from90 = Unit::Greater8(second, Unit::Set8(0x8F));
        const V isWrong = Unit::Or(Unit::Or(Unit::AndNot(fromA0, Unit::Equal8(bytes, Unit::Set8(0xE0))),
                                            Unit::And(fromA0, Unit::Equal8(bytes, Unit::Set8(0xED)))),
                                   Unit::AndNot(from90, Unit::Equal8(bytes, Unit::Set8(0xF0))));
        const V noThird = Unit::AndNot(isContinuation(Unit::Load(text + i + 2)), fromE0);
        const V noFourth = Unit::AndNot(isContinuation(Unit::Load(text + i + 3)), fromF0);
        const V isSequence = Unit::AndNot(Unit::Or(isWrong, Unit::Or(noThird, noFourth)),
                                          Unit::And(lead, isContinuation(second)));
        sequences |= uint64_t{Unit::SignBits(isSequence)} << i;
        longer |= uint64_t{Unit::SignBits(Unit::And(isSequence, fromE0))} << i;
        four |= uint64_t{Unit::SignBits(Unit::And(isSequence, fromF0))} << i;
        fromF4 |= uint64_t{Unit::SignBits(Unit::And(Unit::Equal8(bytes, Unit::Set8(0xF4)), from90))} << i;
    }
    Utf8Masks masks;
    const uint64_t inText = length == kBlock ? ~uint64_t{0} : (uint64_t{1} << length) - 1;
    masks.nonAscii = nonAscii;
    masks.starts = ~(sequences << 1 | longer << 2 | four << 3 | carry->covered) & inText;
    masks.four = four;
    masks.beyond = four & fromF4;
    masks.replaced = (masks.starts & nonAscii & ~sequences) | masks.beyond;
    const uint64_t pairs = four & ~fromF4;
    masks.lowSurrogates = pairs << 1 | carry->lowSurrogate;
    *carry = {sequences >> 63 | longer >> 62 | four >> 61, pairs >> 63};
    return masks;
}

// The UTF-16 units of the characters whose first two bytes stand in each lane of `both`, the third in `last`.
// hasFour: there may be leads of four-byte sequences, which yield high surrogates, and the bytes behind
// those, which yield low ones.
template <class Unit>
typename Unit::V Units16(typename Unit::V both, typename Unit::V last, bool hasFour)
{
    using V = typename Unit::V;
    const V lead = Unit::And(both, Unit::Set16(0x00FF));
    // Five bits of the lead and six of the second byte.
    const V two = Unit::MultiplyAdd8(Unit::And(both, Unit::Set16(0x3F1F)), Unit::Set16(0x0140));
    const V three = Unit::Or(Unit::ShiftLeft16(two, 6), last);
    V units = Unit::Choose(two, three, Unit::Greater16(lead, Unit::Set16(0xDF)));
    units =
        Unit::Choose(units, Unit::And(both, Unit::Set16(0x007F)), Unit::Greater16(Unit::Set16(0x80), lead));
    if (hasFour) {
        // The lead's fifth bit, always set, is taken off again with the base.
        const V high = Unit::Add16(Unit::Or(Unit::ShiftLeft16(two, 2), Unit::ShiftRight16(last, 4)),
                                   Unit::Set16(0xD7C0 - 0x1000));
        const V low = Unit::Or(Unit::And(three, Unit::Set16(0x03FF)), Unit::Set16(0xDC00));
        units = Unit::Choose(units, high, Unit::Greater16(lead, Unit::Set16(0xEF)));
        const V isLow =
            Unit::And(Unit::Greater16(lead, Unit::Set16(0x7F)), Unit::Greater16(Unit::Set16(0xC0), lead));
        units = Unit::Choose(units, low, isLow);
    }
    return units;
}

// The code points of the characters whose first four bytes stand in each lane.
template <class Unit>
typename Unit::V Units32(typename Unit::V bytes)
{
    using V = typename Unit::V;
    const V lead = Unit::And(bytes, Unit::Set32(0xFF));
    // Six bits of each of the four bytes; the shorter sequences are shifted out of it.
    const V pairs = Unit::MultiplyAdd8(Unit::And(bytes, Unit::Set8(0x3F)), Unit::Set16(0x0140));
    const V payload = Unit::MultiplyAdd16(pairs, Unit::Set32(0x00011000));
    const V three = Unit::And(Unit::ShiftRight32(payload, 6), Unit::Set32(0xFFFF));
    V units = Unit::ShiftRight32(payload, 12);
    units =
        Unit::Choose(units, Unit::And(bytes, Unit::Set32(0x7F)), Unit::Greater32(Unit::Set32(0x80), lead));
    units = Unit::Choose(units, three, Unit::Greater32(lead, Unit::Set32(0xDF)));
    return Unit::Choose(units, Unit::And(payload, Unit::Set32(0x1FFFFF)),
                        Unit::Greater32(lead, Unit::Set32(0xEF)));
}

template <class Unit>
struct Utf8To16 {
    using Out = wchar_t;
    static constexpr size_t kPairUnits = 1;

    static uint64_t Places(const Utf8Masks& masks) { return masks.starts | masks.lowSurrogates; }

    static void StoreAscii(const uint8_t* text, wchar_t* out)
    {
        const __m128i zero = _mm_setzero_si128();
        for (size_t i = 0; i < kBlock; i += 16) {
            const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(bytes, zero));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(bytes, zero));
        }
    }

    // Stores the units of a block, and up to eight in excess.
    static void Store(const uint8_t* text, uint64_t places, bool hasFour, wchar_t* out)
    {
        for (size_t i = 0; i < kBlock; i += 8 * Unit::kLanes) {
            const unsigned first = static_cast<uint8_t>(places >> i);
            const unsigned second = static_cast<uint8_t>(places >> i >> 8);
            const auto bytes = Unit::LoadLanes(text + i, text + i + 8);
            const auto at = Unit::Join(Control(kGather16.of[first]), Control(kGather16.of[second]));
            const auto both = Unit::Gather(bytes, at);
            const auto last =
                Unit::And(Unit::Gather(bytes, Unit::Add16(at, Unit::Set16(2))), Unit::Set16(0x3F));
            Unit::StoreLanes(Units16<Unit>(both, last, hasFour), out, out + Bits(first));
            out += Bits(first) + (Unit::kLanes == 2 ? Bits(second) : 0);
        }
    }
};

template <class Unit>
struct Utf8To32 {
    using Out = uint32_t;
    static constexpr size_t kPairUnits = 0;

    static uint64_t Places(const Utf8Masks& masks) { return masks.starts; }

    static void StoreAscii(const uint8_t* text, uint32_t* out)
    {
        for (size_t i = 0; i < kBlock; i += 4) {
            int bytes;
            std::memcpy(&bytes, text + i, sizeof bytes);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i),
                             _mm_cvtepu8_epi32(_mm_cvtsi32_si128(bytes)));
        }
    }

    static void Store(const uint8_t* text, uint64_t places, bool, uint32_t* out)
    {
        for (size_t i = 0; i < kBlock; i += 4 * Unit::kLanes) {
            const unsigned first = static_cast<unsigned>(places >> i & 15);
            const unsigned second = static_cast<unsigned>(places >> i >> 4 & 15);
            const auto bytes = Unit::LoadLanes(text + i, text + i + 4);
            const auto at = Unit::Join(Control(kGather32.of[first]), Control(kGather32.of[second]));
            Unit::StoreLanes(Units32<Unit>(Unit::Gather(bytes, at)), out, out + Bits(first));
            out += Bits(first) + (Unit::kLanes == 2 ? Bits(second) : 0);
        }
    }
};

// Puts U+FFFD where the characters of `replaced` were stored.
template <class Out>
void Replace(uint64_t replaced, uint64_t places, Out* out)
{
    for (; replaced != 0; replaced &= replaced - 1) {
        out[Bits(places & ((replaced & (0 - replaced)) - 1))] = static_cast<Out>(kReplacement);
    }
}

template <class Unit, class To>
Converted ReadUtf8(Converted (*plain)(const uint8_t*, size_t, typename To::Out*, size_t), const uint8_t* src,
                   size_t length, typename To::Out* dst, size_t room)
{
    using Out = typename To::Out;
    Converted done{0, 0};
    Utf8Carry carry;
    uint8_t endOfText[kBlockReach];
    Out converted[kBlock + 8];
    while (done.read < length) {
        const size_t left = length - done.read;
        const size_t leftRoom = room - done.written;
        const bool isInPlace = left >= kInPlaceBytes && leftRoom >= kInPlaceRoom;
        const uint8_t* text = src + done.read;
        if (left < kBlockReach) {
            std::memset(endOfText, 0, sizeof endOfText);
            std::memcpy(endOfText, text, left);
            text = endOfText;
        }
        Out* const out = isInPlace ? dst + done.written : converted;
        const size_t blockLength = left < kBlock ? left : kBlock;
        const uint64_t nonAscii = NonAscii<Unit>(text);
        size_t count = blockLength;
        Utf8Carry after;
        if (nonAscii == 0) {
            To::StoreAscii(text, out);
        } else {
            after = carry;
            const Utf8Masks masks = Describe<Unit>(text, blockLength, nonAscii, &after);
            const uint64_t places = To::Places(masks);
            count = Bits(places);
            // A pair is not begun unless it can be finished in the next block.
            if (count + To::kPairUnits * after.lowSurrogate > leftRoom) break;
            To::Store(text, places, (masks.four | masks.lowSurrogates) != 0, out);
            Replace(masks.replaced, places, out);
        }
        if (count > leftRoom) break;
        if (!isInPlace) std::memcpy(dst + done.written, converted, count * sizeof(Out));
        carry = after;
        done.read += blockLength;
        done.written += count;
    }
    if (done.read == length) return done;
    // What has no room goes the plain way, which stops at the right character; it begins with the last whole
    // one.
    if (To::kPairUnits * carry.lowSurrogate != 0) {
        --done.read;
        --done.written;
    } else {
        done.read += Bits(carry.covered);
    }
    const Converted rest =
        plain(src + done.read, length - done.read, dst + done.written, room - done.written);
    return {done.read + rest.read, done.written + rest.written};
}

template <class Unit>
Converted Utf8ToUtf16(const uint8_t* src, size_t length, wchar_t* dst, size_t room)
{
    return ReadUtf8<Unit, Utf8To16<Unit>>(kTranscodePlain.utf8ToUtf16, src, length, dst, room);
}

template <class Unit>
Converted Utf8ToUtf32(const uint8_t* src, size_t length, uint32_t* dst, size_t room)
{
    return ReadUtf8<Unit, Utf8To32<Unit>>(kTranscodePlain.utf8ToUtf32, src, length, dst, room);
}

template <class Unit, bool kAsUtf16>
Utf8Count CountUtf8(const uint8_t* src, size_t length)
{
    Utf8Count count{0, 0};
    Utf8Carry carry;
    uint8_t endOfText[kBlockReach];
    for (size_t read = 0; read < length; read += kBlock) {
        const size_t left = length - read;
        const uint8_t* text = src + read;
        if (left < kBlockReach) {
            std::memset(endOfText, 0, sizeof endOfText);
            std::memcpy(endOfText, text, left);
            text = endOfText;
        }
        const size_t blockLength = left < kBlock ? left : kBlock;
        const uint64_t nonAscii = NonAscii<Unit>(text);
        if (nonAscii == 0) {
            count.units += blockLength;
            continue;
        }
        const Utf8Masks masks = Describe<Unit>(text, blockLength, nonAscii, &carry);
        count.units += Bits(masks.starts);
        // A pair is two units, counted where its sequence begins.
        if (kAsUtf16) count.units += Bits(masks.four & ~masks.beyond);
        count.beyond += Bits(masks.beyond);
    }
    return count;
}

}  // namespace

}  // namespace vorn::detail

#endif
