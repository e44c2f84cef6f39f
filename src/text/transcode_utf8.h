// transcode_utf8.h - reading UTF-8 with vector units that have no compressing store, written once for SSE4.1
// and AVX2 (`Unit`: vector_sse41.h, vector_avx2.h). Without linkage: each file that is compiled for a vector
// unit gets its own copy.
//
// A text is read in blocks of up to 64 bytes that begin with a character and end before the last character
// that starts in those bytes, so each holds whole characters only. One bit for each byte tells where they
// start. Neighbouring bits choose a shuffle that gathers the bytes of the characters that start there, and
// all characters of a vector are turned into units at once.
//
// Results are stored as whole vectors: a block is only converted while so much text and room is left that
// every unit stored in excess is certain to be overwritten by a later character. What is then left goes the
// plain way.
#ifndef VORN_TEXT_TRANSCODE_UTF8_H
#define VORN_TEXT_TRANSCODE_UTF8_H

#include "text/transcode_utf8_blocks.h"

namespace vorn::detail {

namespace {

// ---- UTF-16

// The UTF-16 units of the characters whose first two bytes stand in each lane of `both`, the third in `last`.
// kHasFour: there may be leads of four-byte sequences, which yield high surrogates, and the bytes behind
// those, which yield low ones.
template <class Unit, bool kHasFour>
typename Unit::V Units16(typename Unit::V both, typename Unit::V last)
{
    using V = typename Unit::V;
    const V lead = Unit::ShiftLeft16(both, 8);
    // Five bits of the lead and six of the second byte.
    const V two = Unit::MultiplyAdd8(Unit::And(both, Unit::Set16(0x3F1F)), Unit::Set16(0x0140));
    const V three = Unit::Or(Unit::ShiftLeft16(two, 6), last);
    // The leads are negative, and ASCII is greater than all of them.
    V units = Unit::Choose(two, three, Unit::Greater16(lead, Unit::Set16(0xDFFF)));
    if (kHasFour) {
        // The lead's fifth bit, always set, is taken off again with the base.
        const V high = Unit::Add16(Unit::Or(Unit::ShiftLeft16(two, 2), Unit::ShiftRight16(last, 4)),
                                   Unit::Set16(0xD7C0 - 0x1000));
        const V low = Unit::Or(Unit::And(three, Unit::Set16(0x03FF)), Unit::Set16(0xDC00));
        units = Unit::Choose(units, high, Unit::Greater16(lead, Unit::Set16(0xEFFF)));
        units = Unit::Choose(units, low, Unit::Greater16(Unit::Set16(0xC000), lead));
    }
    return Unit::Choose(Unit::And(both, Unit::Set16(0x007F)), units, Unit::ShiftRightSigned16(lead, 15));
}

// Stores a vector of units, each lane whole, and moves *out behind those that count.
template <class Unit, class To>
void Put(typename Unit::V lanes, size_t inFirst, size_t inSecond, typename To::Out** out)
{
    To::StoreLanes(lanes, *out, *out + inFirst);
    *out += inFirst + (Unit::kLanes == 2 ? inSecond : 0);
}

// How many bytes give one lane its up to eight units: eight always do, twelve where Fits. With one lane, five
// times twelve bytes are a block, up to a character that starts behind them; else it takes all 64.
template <class Unit, unsigned kBytes>
struct Window {
    static constexpr size_t kBlockBytes = kBytes == 12 && Unit::kLanes == 1 ? 60 : kBlock;
    static constexpr unsigned kWithin = kBlockBytes < kBlock ? kBlockBytes + 1 : kBlock;

    static unsigned At(uint64_t places, size_t byte)
    {
        return static_cast<unsigned>(places >> byte & LowBits(kBytes));
    }

    static __m128i Gather(unsigned places)
    {
        if constexpr (kBytes == 12) return Control(kGatherPairs12.of[places]);
        return Control(kGatherPairs8.of[places]);
    }

    static bool Fits(uint64_t places)
    {
        size_t counts = 0;
        for (size_t i = 0; i < kBlockBytes; i += kBytes) counts |= Bits(At(places, i)) + 7;
        return counts < 16;
    }
};

// Stores the units of the characters and low surrogates at `places`, and up to eight in excess.
template <class Unit, class To, unsigned kBytes, bool kHasFour>
void StoreWindows(const uint8_t* text, uint64_t places, typename To::Out* out)
{
    using Each = Window<Unit, kBytes>;
    for (size_t i = 0; i < Each::kBlockBytes; i += kBytes * Unit::kLanes) {
        const unsigned first = Each::At(places, i);
        const unsigned second = Unit::kLanes == 2 ? Each::At(places >> kBytes, i) : 0;
        const auto bytes = Unit::LoadLanes(text + i, text + i + kBytes);
        const auto at = Unit::Join(Each::Gather(first), Each::Gather(second));
        const auto both = Unit::Shuffle(bytes, at);
        const auto last = Unit::And(Unit::Shuffle(bytes, Unit::Add16(at, Unit::Set16(2))), Unit::Set16(0x3F));
        Put<Unit, To>(Units16<Unit, kHasFour>(both, last), Bits(first), Bits(second), &out);
    }
}

// Characters of one or two bytes in a well-formed block.
template <class Unit, class To>
void StoreShort(const uint8_t* text, uint64_t places, unsigned length, typename To::Out* out)
{
    const uint64_t starts = places | uint64_t{1} << length;
    for (size_t i = 0; i < kBlock; i += 8 * Unit::kLanes) {
        const auto bytes = Unit::LoadLanes(text + i, text + i + 8);
        const auto at = Unit::Join(Control(kGatherShort8.of[starts >> i & 0x1FF]),
                                   Control(kGatherShort8.of[starts >> i >> 8 & 0x1FF]));
        const auto both = Unit::Shuffle(bytes, at);
        const auto units = Unit::Or(Unit::And(both, Unit::Set16(0x007F)),
                                    Unit::ShiftRight16(Unit::And(both, Unit::Set16(0x1F00)), 2));
        Put<Unit, To>(units, Bits(places >> i & 0xFF), Bits(places >> i >> 8 & 0xFF), &out);
    }
}

// ---- UTF-32

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

// ---- the two targets

template <class Unit>
struct Utf8To16 {
    using Out = wchar_t;

    static void StoreAscii(const uint8_t* text, wchar_t* out)
    {
        for (size_t i = 0; i < kBlock; i += 16) Unit::StoreWide16(out + i, LoadLane(text + i));
    }

    static void StoreLanes(typename Unit::V units, wchar_t* first, wchar_t* second)
    {
        Unit::StoreLanes(units, first, second);
    }

    // A low surrogate stands at the second byte of its sequence.
    static uint64_t Places(uint64_t starts, uint64_t four) { return starts | four << 1; }

    static void StoreFour(const uint8_t* text, uint64_t places, wchar_t* out)
    {
        StoreWindows<Unit, Utf8To16, 8, true>(text, places, out);
    }
};

template <class Unit>
struct Utf8To32 {
    using Out = uint32_t;

    static void StoreAscii(const uint8_t* text, uint32_t* out)
    {
        for (size_t i = 0; i < kBlock; i += 8 * Unit::kLanes) {
            const auto lanes = Unit::Join(LoadWide(text + i), LoadWide(text + i + 8));
            Unit::StoreWide32(lanes, out + i, out + i + 8);
        }
    }

    static void StoreLanes(typename Unit::V units, uint32_t* first, uint32_t* second)
    {
        Unit::StoreWide32(units, first, second);
    }

    static uint64_t Places(uint64_t starts, uint64_t) { return starts; }

    static void StoreFour(const uint8_t* text, uint64_t places, uint32_t* out)
    {
        for (size_t i = 0; i < kBlock; i += 4 * Unit::kLanes) {
            const unsigned first = static_cast<unsigned>(places >> i & 15);
            const unsigned second = static_cast<unsigned>(places >> i >> 4 & 15);
            const auto bytes = Unit::LoadLanes(text + i, text + i + 4);
            const auto at = Unit::Join(Control(kGatherQuads4.of[first]), Control(kGatherQuads4.of[second]));
            Unit::StoreLanes(Units32<Unit>(Unit::Shuffle(bytes, at)), out, out + Bits(first));
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

// ---- conversion

// Up to this many units are stored in excess.
constexpr size_t kExcess = 8;
// A block is converted when this many bytes are left: those behind it make at least kExcess units.
constexpr size_t kInPlaceBytes = kBlock + 3 * kExcess + 4;

// What a block that is not ASCII holds, which decides how it is converted.
enum class Shape {
    kShort,   // well-formed sequences of up to two bytes
    kSparse,  // well-formed ones of up to three bytes, nowhere more than eight in a window of twelve bytes
    kThree,   // anything of up to three bytes
    kFour,    // anything
};

template <class Unit, class To>
Converted ReadUtf8(Converted (*plain)(const uint8_t*, size_t, typename To::Out*, size_t), const uint8_t* src,
                   size_t length, typename To::Out* dst, size_t room)
{
    Converted done{0, 0};
    while (length - done.read >= kInPlaceBytes) {
        const uint8_t* const text = src + done.read;
        typename To::Out* const out = dst + done.written;
        const size_t leftRoom = room - done.written;
        const Utf8Block<Unit> block(text);
        if (block.IsAscii()) {
            if (leftRoom < kBlock) break;
            To::StoreAscii(text, out);
            done.read += kBlock;
            done.written += kBlock;
            continue;
        }
        const bool hasFour = block.HasLeadFrom(0xF0);
        const bool isWellFormed = hasFour ? block.template IsWellFormed<true>(Unit::Zero())
                                          : block.template IsWellFormed<false>(Unit::Zero());
        Utf8Masks masks;
        Shape shape;
        if (!isWellFormed) {
            masks = MasksOfAny<Unit>(text);
            shape = masks.four != 0 ? Shape::kFour : Shape::kThree;
        } else if (hasFour) {
            shape = Shape::kFour;
            masks = block.Masks(kBlock);
            masks.four = block.LeadsOfFour() & masks.starts;
        } else if (!block.HasLeadFrom(0xE0)) {
            shape = Shape::kShort;
            masks = block.Masks(kBlock);
        } else {
            shape = Shape::kSparse;
            masks = block.Masks(Window<Unit, 12>::kWithin);
            if (!Window<Unit, 12>::Fits(masks.starts)) {
                shape = Shape::kThree;
                masks = block.Masks(kBlock);
            }
        }
        const uint64_t places = To::Places(masks.starts, masks.four);
        const size_t count = Bits(places);
        // A pair of surrogates may have to stop one unit before the end.
        if (count + kExcess + 1 > leftRoom) break;
        switch (shape) {
            case Shape::kShort:
                StoreShort<Unit, To>(text, places, masks.length, out);
                break;
            case Shape::kSparse:
                StoreWindows<Unit, To, 12, false>(text, places, out);
                break;
            case Shape::kThree:
                StoreWindows<Unit, To, 8, false>(text, places, out);
                break;
            case Shape::kFour:
                To::StoreFour(text, places, out);
                break;
        }
        if (!isWellFormed) Replace(masks.replaced, places, out);
        done.read += masks.length;
        done.written += count;
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

// ---- sizes

// Well-formed blocks follow each other at 64 bytes, so that one need not wait for the other; a sequence may
// then lie in two of them and is counted in the first.
template <class Unit, bool kAsUtf16>
class Utf8Counter {
public:
    Utf8Counter(const uint8_t* src, size_t length) : src_(src), length_(length) {}

    Utf8Count Run()
    {
        while (length_ - read_ >= kBlock) {
            const Utf8Block<Unit> block(src_ + read_);
            if (isBoundary_ && block.IsAscii()) {
                count_.units += kBlock;
                read_ += kBlock;
                continue;
            }
            const bool hasFour = block.HasLeadFrom(0xF0);
            const bool isWellFormed = hasFour || hadFour_ ? block.template IsWellFormed<true>(before_)
                                                          : block.template IsWellFormed<false>(before_);
            if (isWellFormed) {
                count_.units += Bits(block.Starts());
                if (kAsUtf16 && hasFour) count_.units += Bits(block.LeadsOfFour());
                before_ = block.Last();
                hadFour_ = hasFour;
                isBoundary_ = block.IsAscii();
                read_ += kBlock;
            } else {
                StepBack();
                if (length_ - read_ < kBlock) break;
                const Utf8Masks masks = MasksOfAny<Unit>(src_ + read_);
                Add({Bits(masks.starts) + (kAsUtf16 ? Bits(masks.four) : 0), Bits(masks.beyond)});
                read_ += masks.length;
                before_ = Unit::Zero();
                hadFour_ = false;
                boundary_ = read_;
                isBoundary_ = true;
            }
        }
        StepBack();
        Add(kAsUtf16 ? kTranscodePlain.countUtf8ToUtf16(src_ + read_, length_ - read_)
                     : kTranscodePlain.countUtf8ToUtf32(src_ + read_, length_ - read_));
        return count_;
    }

private:
    void Add(Utf8Count count)
    {
        count_.units += count.units;
        count_.beyond += count.beyond;
    }

    // Back to the start of a sequence that goes on behind what was read.
    void StepBack()
    {
        for (size_t back = 1; back <= 3 && read_ - boundary_ >= back; ++back) {
            const uint8_t byte = src_[read_ - back];
            if (byte < 0xC0) continue;
            const bool goesOn = byte >= (back == 1 ? 0xC0 : back == 2 ? 0xE0 : 0xF0);
            if (!goesOn) return;
            read_ -= back;
            count_.units -= kAsUtf16 && byte >= 0xF0 ? 2 : 1;
            return;
        }
    }

    const uint8_t* const src_;
    const size_t length_;
    size_t read_ = 0;
    size_t boundary_ = 0;     // what lies before is counted for good
    bool isBoundary_ = true;  // `read_` is the start of a character
    bool hadFour_ = false;    // there are leads of four bytes in `before_`
    typename Unit::V before_ = Unit::Zero();
    Utf8Count count_{0, 0};
};

template <class Unit, bool kAsUtf16>
Utf8Count CountUtf8(const uint8_t* src, size_t length)
{
    return Utf8Counter<Unit, kAsUtf16>(src, length).Run();
}

}  // namespace

}  // namespace vorn::detail

#endif
