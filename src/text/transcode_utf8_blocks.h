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

// The bits of those in which a lead is followed by a continuation.
constexpr int kErrorsOfContinuations = 0x7C;

constexpr Shuffle kErrorsOfHigh = MakeErrorBits(&Utf8Error::high);
constexpr Shuffle kErrorsOfLow = MakeErrorBits(&Utf8Error::low);
constexpr Shuffle kErrorsOfNext = MakeErrorBits(&Utf8Error::next);

// ---- blocks

constexpr size_t kBlock = 64;

// Where the last character starts of those that start in the first `within` bytes, as `starts` tells; it is
// one of the last four.
unsigned LastStart(uint64_t starts, unsigned within)
{
    // Two bits for each value of the last four bits: which of them is the highest that is set.
    constexpr uint32_t kHighest = 0xFFFFAA50;
    const unsigned lastFour = static_cast<unsigned>(starts >> (within - 4));
    return within - 4 + (kHighest >> 2 * lastFour & 3);
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
    // may go on behind it. `before` ends with the bytes before the block. Without kHasFour, there is no lead
    // of four bytes in either.
    template <bool kHasFour>
    bool IsWellFormed(V before) const
    {
        V errors = Unit::Zero();
        for (const V bytes : parts_) {
            const V second = Unit::template Earlier<2>(bytes, before);
            // The sign bit is set behind a lead of three or four bytes, and two behind one of four.
            V isDue = Unit::SubtractClamped8(second, Unit::Set8(0xE0 - 0x80));
            if (kHasFour) {
                const V third = Unit::template Earlier<3>(bytes, before);
                isDue = Unit::Or(isDue, Unit::SubtractClamped8(third, Unit::Set8(0xF0 - 0x80)));
            }
            const V isDueBit = Unit::And(isDue, Unit::Set8(0x80));
            errors = Unit::Or(errors, Unit::Xor(Errors(bytes, before), isDueBit));
            before = bytes;
        }
        return Unit::IsZero(errors);
    }

    // A bit for each byte that continues no character; in a well-formed block, where characters start.
    uint64_t Starts() const
    {
        return ~Mask([](V bytes) { return Unit::Greater8(Unit::Set8(0xC0), bytes); });
    }

    // Of a well-formed block that begins with a character, up to the last one that starts in `within` bytes;
    // without the sequences of four bytes.
    Utf8Masks Masks(unsigned within) const
    {
        const uint64_t starts = Starts() & LowBits(within);
        const unsigned length = LastStart(starts, within);
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

    // Of a block that begins with a character and holds anything. A lead begins a sequence if all its
    // continuations are there and the first of them is a right one. A sequence above U+10FFFF is one as well.
    Utf8Masks MasksOfAny() const
    {
        const uint64_t continuations = ~Starts();
        const uint64_t leads = Mask([](V bytes) { return bytes; }) & ~continuations;
        const uint64_t fromE0 =
            Mask([](V bytes) { return Unit::SubtractClamped8(bytes, Unit::Set8(0xE0 - 0x80)); });
        const uint64_t fromF0 = LeadsOfFour();
        const uint64_t areF4 = Mask([](V bytes) { return Unit::Equal8(bytes, Unit::Set8(0xF4)); });
        V before = Unit::Zero();
        const uint64_t secondIsRight = Mask([&before](V bytes) {
            const V errors = Unit::And(Errors(bytes, before), Unit::Set8(kErrorsOfContinuations));
            before = bytes;
            return Unit::Equal8(errors, Unit::Zero());
        });
        // What lies behind the block is taken for right: it only matters to the last character.
        const auto behind = [](uint64_t mask, int distance) {
            return mask >> distance | ~(~uint64_t{0} >> distance);
        };
        const uint64_t hasRightSecond = behind(secondIsRight, 1);
        const uint64_t sequences = leads & behind(continuations, 1) & (hasRightSecond | areF4) &
                                   (~fromE0 | behind(continuations, 2)) &
                                   (~fromF0 | behind(continuations, 3));
        const uint64_t longer = sequences & fromE0;
        const uint64_t four = sequences & fromF0;
        Utf8Masks masks;
        const uint64_t starts = ~(sequences << 1 | longer << 2 | four << 3);
        masks.length = LastStart(starts, kBlock);
        masks.starts = starts & LowBits(masks.length);
        masks.beyond = four & ~hasRightSecond & masks.starts;
        masks.four = four & hasRightSecond & masks.starts;
        masks.replaced = (masks.starts & (leads | continuations) & ~sequences) | masks.beyond;
        return masks;
    }

    V Last() const { return parts_[kParts - 1]; }

private:
    static constexpr size_t kParts = kBlock / Unit::kBytes;

    // A bit for each of kUtf8Errors that a byte makes with the one before it.
    static V Errors(V bytes, V before)
    {
        const V first = Unit::template Earlier<1>(bytes, before);
        const V nibble = Unit::Set8(0x0F);
        const V high = Unit::And(Unit::ShiftRight16(first, 4), nibble);
        const V low = Unit::And(first, nibble);
        const V next = Unit::And(Unit::ShiftRight16(bytes, 4), nibble);
        return Unit::And(Unit::And(LookUp(kErrorsOfHigh, high), LookUp(kErrorsOfLow, low)),
                         LookUp(kErrorsOfNext, next));
    }

    static V LookUp(const Shuffle& table, V nibbles)
    {
        return Unit::Shuffle(Unit::EveryLane(Control(table)), nibbles);
    }

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

// Apart from the loops that need it now and then, which are better off without its registers.
template <class Unit>
[[gnu::noinline]] Utf8Masks MasksOfAny(const uint8_t* text)
{
    return Utf8Block<Unit>(text).MasksOfAny();
}

}  // namespace

}  // namespace vorn::detail

#endif
