// transcode_units.h - UTF-16 and UTF-32 into each other with SSE4.1 and AVX2, and what transcode_to_utf8.h
// shares with it. Without linkage: each file that is compiled for a vector unit gets its own copy.
//
// In the middle of a text a vector of units is converted at a time, and whole lanes are stored: what they
// hold in excess is overwritten by the characters behind. At the end eight units are converted at a time, and
// exactly what counts is stored.
#ifndef VORN_TEXT_TRANSCODE_UNITS_H
#define VORN_TEXT_TRANSCODE_UNITS_H

#include "core/vector_sse41.h"
#include "text/transcode.h"
#include "text/transcode_finish.h"
#include "text/transcode_lanes.h"

namespace vorn::detail {

namespace {

// The middle of a text ends where no more than this is left behind the vector. The last lane that is stored
// may hold as little as four bytes, of which a high surrogate at the end takes back two: up to 14 bytes are
// stored in excess, and so many units give at least that many.
constexpr size_t kUnitsBehind = 16;
constexpr size_t kRoomBehind = 18;

__m128i Dwords(uint32_t value)
{
    return _mm_set1_epi32(static_cast<int>(value));
}

size_t Least(size_t a, size_t b)
{
    return a < b ? a : b;
}

unsigned DwordBits(__m128i lanes)
{
    return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(lanes)));
}

// ---- surrogates

template <class Unit>
typename Unit::V Surrogates(typename Unit::V units)
{
    return Unit::Equal16(Unit::And(units, Unit::Set16(0xF800)), Unit::Set16(0xD800));
}

template <class Unit>
bool HasSurrogates(typename Unit::V units)
{
    return !Unit::IsZero(Surrogates<Unit>(units));
}

// A vector of units of which some are surrogates. The ones that stand alone are replaced.
template <class Unit>
struct Pairs {
    using V = typename Unit::V;

    // With the units that lie one before and one behind each.
    Pairs(V before, V text, V behind) : previous(before), units(text), next(behind)
    {
        const V mask = Unit::Set16(0xFC00);
        const V isHigh = Unit::Equal16(Unit::And(units, mask), Unit::Set16(0xD800));
        const V isLow = Unit::Equal16(Unit::And(units, mask), Unit::Set16(0xDC00));
        lows = Unit::And(isLow, Unit::Equal16(Unit::And(previous, mask), Unit::Set16(0xD800)));
        highs = Unit::And(isHigh, Unit::Equal16(Unit::And(next, mask), Unit::Set16(0xDC00)));
        const V alone = Unit::AndNot(Unit::Or(highs, lows), Unit::Or(isHigh, isLow));
        units = Unit::Choose(units, Unit::Set16(kReplacement), alone);
    }

    V previous;
    V units;
    V next;
    V highs;
    V lows;
};

// In the middle of a text the halves of a pair may lie in two vectors: each unit is looked at with its
// neighbours in the memory, so that no vector waits for what the one before takes.
template <class Unit>
Pairs<Unit> PairsAt(const wchar_t* text, bool isFirst)
{
    const auto units = Unit::Load(text);
    return {isFirst ? Unit::template Earlier<2>(units, Unit::Zero()) : Unit::Load(text - 1), units,
            Unit::Load(text + 1)};
}

// At the end of a text the eight units begin with a character, and a pair that is cut is left to the next
// eight: its first half then counts as standing alone.
Pairs<Sse41> PairsOf(__m128i units)
{
    return {_mm_slli_si128(units, 2), units, _mm_srli_si128(units, 2)};
}

bool IsPair(const wchar_t* text)
{
    return static_cast<uint16_t>(text[0]) >> 10 == 0xD800 >> 10 &&
           static_cast<uint16_t>(text[1]) >> 10 == 0xDC00 >> 10;
}

// Stores exactly the first `count` units of two lanes, of which `inFirst` are in the first.
template <class Out>
void StoreParts(Out* out, __m128i first, size_t inFirst, __m128i second, size_t count)
{
    StorePart(out, first, Least(count, inFirst) * sizeof(Out));
    if (count > inFirst) StorePart(out + inFirst, second, (count - inFirst) * sizeof(Out));
}

// One conversion on its way.
template <class In, class Out>
struct Progress {
    const In* Text() const { return src + done.read; }
    Out* End() const { return dst + done.written; }
    size_t Left() const { return length - done.read; }
    size_t Room() const { return room - done.written; }

    void Add(size_t read, size_t written)
    {
        done.read += read;
        done.written += written;
    }

    const In* src;
    size_t length;
    Out* dst;
    size_t room;
    Converted done;
};

// ---- UTF-16 to UTF-32

// The code points of a vector of units, in its first and last four of each lane's eight; a bit for each lane
// of the second half of a pair, which gives none.
template <class Unit>
struct CodePoints {
    using V = typename Unit::V;

    explicit CodePoints(const Pairs<Unit>& pairs)
    {
        const auto join = [](V both, V isHigh) {
            // 1024 times the first and once the second, both taken as negative.
            const V sum = Unit::MultiplyAdd16(both, Unit::Set32(0x00010400));
            const V pair = Unit::Add32(sum, Unit::Set32(0x04010000 - 0x35FDC00));
            return Unit::Choose(Unit::And(both, Unit::Set32(0xFFFF)), pair, isHigh);
        };
        low = join(Unit::InterleaveLow16(pairs.units, pairs.next),
                   Unit::InterleaveLow16(pairs.highs, pairs.highs));
        high = join(Unit::InterleaveHigh16(pairs.units, pairs.next),
                    Unit::InterleaveHigh16(pairs.highs, pairs.highs));
        lows = Unit::SignBits8(Unit::PackSigned16(pairs.lows));
    }

    // The bits of four lanes: the number is that of the four.
    unsigned LowsOf(int four) const { return lows >> (16 * (four / 2) + 4 * (four % 2)) & 15; }

    V low;
    V high;
    uint32_t lows;
};

// Shuffles each four lanes of a vector's eight or sixteen, and stores them one behind the other, whole lanes;
// gives the number of units that count.
template <class Unit, class ControlOf, class LengthOf, class Out>
size_t StoreFours(typename Unit::V low, typename Unit::V high, ControlOf controlOf, LengthOf lengthOf,
                  Out* out)
{
    low = Unit::Shuffle(low, Unit::Join(controlOf(0), controlOf(2)));
    high = Unit::Shuffle(high, Unit::Join(controlOf(1), controlOf(3)));
    size_t count = lengthOf(0);
    StoreLane(out, Unit::template Lane<0>(low));
    StoreLane(out + count, Unit::template Lane<0>(high));
    count += lengthOf(1);
    if constexpr (Unit::kLanes == 2) {
        StoreLane(out + count, Unit::template Lane<1>(low));
        count += lengthOf(2);
        StoreLane(out + count, Unit::template Lane<1>(high));
        count += lengthOf(3);
    }
    return count;
}

template <class Unit>
Converted Utf16ToUtf32(const wchar_t* src, size_t length, uint32_t* dst, size_t room)
{
    constexpr size_t kUnits = Unit::kBytes / 2;
    Progress<wchar_t, uint32_t> work{src, length, dst, room, {0, 0}};
    const auto isAhead = [&work] {
        return work.Left() >= kUnits + kUnitsBehind && work.Room() >= kUnits + kRoomBehind;
    };
    while (isAhead()) {
        auto units = Unit::Load(work.Text());
        if (!HasSurrogates<Unit>(units)) {
            Unit::StoreWide32(units, work.End(), work.End() + 8);
            work.Add(kUnits, kUnits);
            continue;
        }
        // Where there are surrogates, more of them are likely.
        do {
            const CodePoints<Unit> all(PairsAt<Unit>(work.Text(), work.done.read == 0));
            const size_t count = StoreFours<Unit>(
                all.low, all.high, [&all](int four) { return Control(kDropQuads.of[all.LowsOf(four)]); },
                [&all](int four) { return 4 - Bits(all.LowsOf(four)); }, work.End());
            work.Add(kUnits, count);
            units = Unit::Load(work.Text());
        } while (HasSurrogates<Unit>(units) && isAhead());
    }
    // A pair is written with its first half.
    if (work.done.read != 0 && work.Left() != 0 && IsPair(work.Text() - 1)) work.Add(1, 0);
    while (work.Left() != 0) {
        const size_t left = work.Left();
        const size_t read = Least(left, 8);
        const CodePoints<Sse41> all(PairsOf(LoadPart(work.Text(), 2 * read)));
        const size_t cut = left > 8 && IsPair(work.Text() + 7);
        const __m128i low = _mm_shuffle_epi8(all.low, Control(kDropQuads.of[all.LowsOf(0)]));
        const __m128i high = _mm_shuffle_epi8(all.high, Control(kDropQuads.of[all.LowsOf(1)]));
        const size_t count = 8 - Bits(all.lows) - cut - (8 - read);
        if (count > work.Room()) break;
        StoreParts(work.End(), low, 4 - Bits(all.LowsOf(0)), high, count);
        work.Add(read - cut, count);
    }
    return Finish(kTranscodePlain.utf16ToUtf32, work.done, src, length, dst, room);
}

// ---- reading UTF-32

// Reads two vectors of UTF-32. Whether they are the same in UTF-16, as `units`.
template <class Unit>
bool Narrow(const uint32_t* text, typename Unit::V* units)
{
    const auto first = Unit::Load(text);
    const auto second = Unit::Load(text + Unit::kBytes / 4);
    *units = Unit::Pack32(first, second);
    return Unit::HaveNone(Unit::Or(first, second), Unit::Set32(0xFFFF0000)) && !HasSurrogates<Unit>(*units);
}

// Up to eight UTF-32 values, those that are no code points replaced; zeros stand behind the end of a text.
struct Utf32Eight {
    Utf32Eight(const uint32_t* text, size_t count)
        : first(Replaced(LoadPart(text, 4 * count))),
          second(count > 4 ? Replaced(LoadPart(text + 4, 4 * (count - 4))) : _mm_setzero_si128())
    {}

    __m128i first;
    __m128i second;

private:
    static __m128i Replaced(__m128i values)
    {
        const __m128i isSurrogate =
            _mm_cmpeq_epi32(_mm_and_si128(values, Dwords(0xFFFFF800)), Dwords(0xD800));
        const __m128i isBeyond = Sse41::AtLeast32(values, kLastCodePoint + 1);
        return _mm_blendv_epi8(values, Dwords(kReplacement), _mm_or_si128(isSurrogate, isBeyond));
    }
};

struct FourUnits {
    __m128i units;
    size_t count;
};

// The UTF-16 units of four code points.
FourUnits UnitsOf(__m128i codePoints)
{
    const __m128i isPair = Sse41::AtLeast32(codePoints, 0x10000);
    const __m128i high = _mm_add_epi32(_mm_srli_epi32(codePoints, 10), Dwords(0xDC00D7C0));
    const __m128i low = _mm_and_si128(_mm_slli_epi32(codePoints, 16), Dwords(0x03FF0000));
    const unsigned bits = DwordBits(isPair);
    const __m128i lanes = _mm_blendv_epi8(codePoints, _mm_or_si128(high, low), isPair);
    return {_mm_shuffle_epi8(lanes, Control(kCloseUnits.of[bits])), 4 + Bits(bits)};
}

template <class Unit>
Converted Utf32ToUtf16(const uint32_t* src, size_t length, wchar_t* dst, size_t room)
{
    constexpr size_t kUnits = Unit::kBytes / 2;
    Progress<uint32_t, wchar_t> work{src, length, dst, room, {0, 0}};
    while (work.Left() >= kUnits + kUnitsBehind && work.Room() >= 16 + kRoomBehind) {
        typename Unit::V units;
        if (Narrow<Unit>(work.Text(), &units)) {
            Unit::Store(work.End(), units);
            work.Add(kUnits, kUnits);
            continue;
        }
        const Utf32Eight values(work.Text(), 8);
        const FourUnits first = UnitsOf(values.first);
        const FourUnits second = UnitsOf(values.second);
        StoreLane(work.End(), first.units);
        StoreLane(work.End() + first.count, second.units);
        work.Add(8, first.count + second.count);
    }
    while (work.Left() != 0) {
        const size_t read = Least(work.Left(), 8);
        const Utf32Eight values(work.Text(), read);
        const FourUnits first = UnitsOf(values.first);
        const FourUnits second = UnitsOf(values.second);
        const size_t count = first.count + second.count - (8 - read);
        if (count > work.Room()) break;
        StoreParts(work.End(), first.units, first.count, second.units, count);
        work.Add(read, count);
    }
    return Finish(kTranscodePlain.utf32ToUtf16, work.done, src, length, dst, room);
}

}  // namespace

}  // namespace vorn::detail

#endif
