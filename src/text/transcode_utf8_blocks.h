// transcode_utf8_blocks.h - 64 bytes of UTF-8 as SSE4.1 and AVX2 see them: whether they are well-formed, and
// where characters start. Only for transcode_utf8.h; without linkage.
#ifndef VORN_TEXT_TRANSCODE_UTF8_BLOCKS_H
#define VORN_TEXT_TRANSCODE_UTF8_BLOCKS_H

#include "text/transcode.h"
#include "text/transcode_lanes.h"

namespace vorn::detail {

namespace {

// ---- is it well-formed?

// What two neighbouring bytes must not be, as sets of nibbles: of the first byte's high and low one and the
// second byte's high one.
struct Utf8Error {
    unsigned high;
    unsigned low;
    unsigned next;
};

constexpr unsigned Nibbles(int first, int last)
{
    return (0xFFFFu >> (15 - last)) & (0xFFFFu << first);
}

constexpr unsigned kAnyNibble = Nibbles(0x0, 0xF);
constexpr unsigned kContinuation = Nibbles(0x8, 0xB);

// The last is no error where a third or fourth byte is due, and is one where it is missing.
constexpr Utf8Error kUtf8Errors[8] = {
    {Nibbles(0xC, 0xF), kAnyNibble, kAnyNibble & ~kContinuation},                   // nothing follows a lead
    {Nibbles(0x0, 0x7), kAnyNibble, kContinuation},                                 // no lead
    {Nibbles(0xC, 0xC), Nibbles(0x0, 0x1), kContinuation},                          // below U+0080
    {Nibbles(0xE, 0xE), Nibbles(0x0, 0x0), Nibbles(0x8, 0x9)},                      // below U+0800
    {Nibbles(0xE, 0xE), Nibbles(0xD, 0xD), Nibbles(0xA, 0xB)},                      // a surrogate
    {Nibbles(0xF, 0xF), Nibbles(0x0, 0x0) | Nibbles(0x5, 0xF), Nibbles(0x8, 0x8)},  // below U+10000; no lead
    {Nibbles(0xF, 0xF), Nibbles(0x4, 0xF), Nibbles(0x9, 0xB)},                      // above U+10FFFF
    {kContinuation, kAnyNibble, kContinuation},
};

// For each nibble, a bit for each of the errors whose set holds it.
constexpr Shuffle MakeErrorBits(unsigned Utf8Error::*set)
{
    Shuffle bits{};
    for (int nibble = 0; nibble < 16; ++nibble) {
        for (int error = 0; error < 8; ++error) {
            if ((kUtf8Errors[error].*set >> nibble & 1) != 0) {
                bits.at[nibble] = static_cast<uint8_t>(bits.at[nibble] | 1 << error);
            }
        }
    }
    return bits;
}

constexpr Shuffle kErrorsOfHigh = MakeErrorBits(&Utf8Error::high);
constexpr Shuffle kErrorsOfLow = MakeErrorBits(&Utf8Error::low);
constexpr Shuffle kErrorsOfNext = MakeErrorBits(&Utf8Error::next);

// ---- blocks

constexpr size_t kBlock = 64;

// Where the last character starts. One starts in each four bytes.
unsigned LastStart(uint64_t starts)
{
    return 63 - static_cast<unsigned>(__builtin_clzll(starts));
}

// A block, up to `length`, which is before the last character: one bit for each byte.
struct Utf8Masks {
    uint64_t starts;    // a character starts here: a sequence or an ill-formed byte
    uint64_t replaced;  // an ill-formed byte, or a sequence above U+10FFFF
    uint64_t four;      // a sequence of four bytes up to U+10FFFF starts here
    uint64_t beyond;    // one above it
    unsigned length;
};

// 64 bytes of a text.
template <class Unit>
class Utf8Block {
public:
    using V = typename Unit::V;

    explicit Utf8Block(const uint8_t* text)
    {
        for (size_t i = 0; i < kParts; ++i) parts_[i] = Unit::Load(text + i * Unit::kBytes);
    }

    bool IsAscii() const
    {
        V all = parts_[0];
        for (size_t i = 1; i < kParts; ++i) all = Unit::Or(all, parts_[i]);
        return Unit::SignBits8(all) == 0;
    }

    // Whether there is nothing ill-formed, and no sequence above U+10FFFF, up to the last byte; a sequence
    // may go on behind it. `before` ends with the bytes before the block.
    bool IsWellFormed(V before) const
    {
        const V highTable = Unit::EveryLane(Control(kErrorsOfHigh));
        const V lowTable = Unit::EveryLane(Control(kErrorsOfLow));
        const V nextTable = Unit::EveryLane(Control(kErrorsOfNext));
        V errors = Unit::Zero();
        for (size_t i = 0; i < kParts; ++i) {
            const V bytes = parts_[i];
            const V first = Unit::template Earlier<1>(bytes, before);
            const V second = Unit::template Earlier<2>(bytes, before);
            const V third = Unit::template Earlier<3>(bytes, before);
            const V nibble = Unit::Set8(0x0F);
            const V high = Unit::And(Unit::ShiftRight16(first, 4), nibble);
            const V low = Unit::And(first, nibble);
            const V next = Unit::And(Unit::ShiftRight16(bytes, 4), nibble);
            const V found = Unit::And(Unit::And(Unit::Shuffle(highTable, high), Unit::Shuffle(lowTable, low)),
                                      Unit::Shuffle(nextTable, next));
            // The sign bit is set behind a lead of three or four bytes, and two behind one of four.
            const V isDue = Unit::Or(Unit::SubtractClamped8(second, Unit::Set8(0xE0 - 0x80)),
                                     Unit::SubtractClamped8(third, Unit::Set8(0xF0 - 0x80)));
            errors = Unit::Or(errors, Unit::Xor(found, Unit::And(isDue, Unit::Set8(0x80))));
            before = bytes;
        }
        return Unit::IsZero(errors);
    }

    // A bit for each byte that continues no character; in a well-formed block, where characters start.
    uint64_t Starts() const
    {
        return Mask([](V bytes) { return Unit::Greater8(bytes, Unit::Set8(0xBF)); });
    }

    // Of a well-formed block that begins with a character, up to the last one that starts in `within` bytes;
    // without the sequences of four bytes.
    Utf8Masks Masks(size_t within) const
    {
        const uint64_t starts = Starts() & LowBits(within);
        const unsigned length = LastStart(starts);
        return {starts & LowBits(length), 0, 0, 0, length};
    }

    uint64_t LeadsOfFour() const
    {
        return Mask([](V bytes) { return Unit::SubtractClamped8(bytes, Unit::Set8(0xF0 - 0x80)); });
    }

    bool HasLeadFrom(int least) const
    {
        V greatest = parts_[0];
        for (size_t i = 1; i < kParts; ++i) greatest = Unit::Max8(greatest, parts_[i]);
        return !Unit::IsZero(Unit::SubtractClamped8(greatest, Unit::Set8(least - 1)));
    }

    V Last() const { return parts_[kParts - 1]; }

private:
    static constexpr size_t kParts = kBlock / Unit::kBytes;

    template <class Function>
    uint64_t Mask(Function function) const
    {
        uint64_t mask = 0;
        for (size_t i = 0; i < kParts; ++i) {
            mask |= uint64_t{Unit::SignBits8(function(parts_[i]))} << (i * Unit::kBytes);
        }
        return mask;
    }

    V parts_[kParts];
};

// Describes 64 bytes, whatever they hold, that begin with a character; looks at the next three as well.
template <class Unit>
Utf8Masks Describe(const uint8_t* text)
{
    using V = typename Unit::V;
    uint64_t nonAscii = 0;
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
        nonAscii |= uint64_t{Unit::SignBits8(bytes)} << i;
        sequences |= uint64_t{Unit::SignBits8(isSequence)} << i;
        longer |= uint64_t{Unit::SignBits8(Unit::And(isSequence, fromE0))} << i;
        four |= uint64_t{Unit::SignBits8(Unit::And(isSequence, fromF0))} << i;
        fromF4 |= uint64_t{Unit::SignBits8(Unit::And(Unit::Equal8(bytes, Unit::Set8(0xF4)), from90))} << i;
    }
    Utf8Masks masks;
    const uint64_t starts = ~(sequences << 1 | longer << 2 | four << 3);
    masks.length = LastStart(starts);
    const uint64_t inBlock = LowBits(masks.length);
    masks.starts = starts & inBlock;
    masks.beyond = four & fromF4 & inBlock;
    masks.four = four & ~fromF4 & inBlock;
    masks.replaced = (masks.starts & nonAscii & ~sequences) | masks.beyond;
    return masks;
}

}  // namespace

}  // namespace vorn::detail

#endif
