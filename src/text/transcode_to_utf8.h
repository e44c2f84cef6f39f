// transcode_to_utf8.h - writing UTF-8 from UTF-16 and UTF-32 with SSE4.1 and AVX2. Without linkage: each file
// that is compiled for a vector unit gets its own copy. See transcode_units.h.
//
// Each unit spreads its bytes over the end of four, a half of a pair of surrogates over the end of them too:
// it gives two bytes. A shuffle puts the bytes of four units close together.
#ifndef VORN_TEXT_TRANSCODE_TO_UTF8_H
#define VORN_TEXT_TRANSCODE_TO_UTF8_H

#include "text/transcode_units.h"

namespace vorn::detail {

namespace {

// The bytes of units at the end of four each.
template <class Unit>
struct Quads {
    using V = typename Unit::V;

    // No surrogates.
    explicit Quads(V units)
        : below80(Unit::Equal16(Unit::And(units, Unit::Set16(0xFF80)), Unit::Zero())),
          below800(Unit::Equal16(Unit::And(units, Unit::Set16(0xF800)), Unit::Zero())),
          firstTwo(Unit::Or(Unit::ShiftRight16(units, 4), Unit::Set16(0xE000)))
    {
        const V one = Unit::ShiftLeft16(units, 8);
        lastSixes = Unit::Or(Unit::And(Unit::ShiftRight16(units, 6), Unit::Set16(0x003F)),
                             Unit::Or(Unit::And(one, Unit::Set16(0x3F00)), Unit::Set16(0x8080)));
        // The first of two is a lead.
        const V lead = Unit::And(below800, Unit::Set16(0x0040));
        lastTwo = Unit::Choose(Unit::Or(lastSixes, lead), one, below80);
    }

    explicit Quads(const Pairs<Unit>& pairs) : Quads(pairs.units)
    {
        const V base = Unit::Add16(pairs.units, Unit::Set16(0x10000 - 0xD7C0));
        const V ofHigh = Unit::Or(Unit::Or(Unit::ShiftRight16(base, 8), Unit::Set16(0x80F0)),
                                  Unit::And(Unit::ShiftLeft16(base, 6), Unit::Set16(0x3F00)));
        // The lowest two bits of the high surrogate stand where the low one has two ones.
        const V ofLow =
            Unit::And(lastSixes, Unit::Or(Unit::ShiftLeft16(pairs.previous, 4), Unit::Set16(0xFFCF)));
        lastTwo = Unit::Choose(Unit::Choose(lastTwo, ofHigh, pairs.highs), ofLow, pairs.lows);
        below800 = Unit::Or(below800, Unit::Or(pairs.highs, pairs.lows));
    }

    // Two bits for each unit, as kCloseQuads wants them.
    uint32_t Lengths() const
    {
        const V oneOrTwo = Unit::And(below800, Unit::Set16(0xFF00));
        return ~Unit::SignBits8(Unit::Or(below80, oneOrTwo));
    }

    // The first and the last four of each lane's eight.
    V Low() const { return Unit::InterleaveLow16(firstTwo, lastTwo); }
    V High() const { return Unit::InterleaveHigh16(firstTwo, lastTwo); }

    V below80;
    V below800;  // or a half of a pair
    V firstTwo;  // only the second one counts
    V lastTwo;
    V lastSixes;
};

// Stores the bytes of a vector of units, and up to twelve in excess; gives their number.
template <class Unit>
size_t StoreQuads(const Quads<Unit>& quads, uint8_t* out)
{
    const uint32_t lengths = quads.Lengths();
    return StoreFours<Unit>(
        quads.Low(), quads.High(),
        [lengths](int four) { return Control(kCloseQuads.of[lengths >> 8 * four & 0xFF]); },
        [lengths](int four) { return 4 + Bits(lengths >> 8 * four & 0xFF); }, out);
}

// The same for units below 0x800.
template <class Unit>
size_t StoreShortUnits(typename Unit::V units, uint8_t* out)
{
    const auto from80 = Unit::AtLeast16(units, 0x80);
    const auto one = Unit::ShiftLeft16(units, 8);
    const auto two = Unit::Or(Unit::Or(Unit::ShiftRight16(units, 6), Unit::And(one, Unit::Set16(0x3F00))),
                              Unit::Set16(0x80C0));
    const auto pairs = Unit::Choose(one, two, from80);
    const uint32_t bits = Unit::SignBits8(Unit::PackSigned16(from80));
    const uint32_t first = bits & 0xFF;
    const uint32_t second = bits >> 16 & 0xFF;
    const auto at = Unit::Join(Control(kClosePairs.of[first]), Control(kClosePairs.of[second]));
    Unit::StoreLanes(Unit::Shuffle(pairs, at), out, out + 8 + Bits(first));
    return 8 * Unit::kLanes + Bits(first) + (Unit::kLanes == 2 ? Bits(second) : 0);
}

// Two lanes of up to 16 bytes.
struct Utf8Bytes {
    __m128i first;
    __m128i second;
    size_t inFirst;
    size_t inSecond;
};

// The bytes of eight units.
Utf8Bytes BytesOf(const Quads<Sse41>& quads)
{
    const unsigned lengths = quads.Lengths();
    const unsigned low = lengths & 0xFF;
    const unsigned high = lengths >> 8 & 0xFF;
    return {_mm_shuffle_epi8(quads.Low(), Control(kCloseQuads.of[low])),
            _mm_shuffle_epi8(quads.High(), Control(kCloseQuads.of[high])), 4 + Bits(low), 4 + Bits(high)};
}

// ---- UTF-16

template <class Unit>
bool IsAscii(typename Unit::V units)
{
    return Unit::HaveNone(units, Unit::Set16(0xFF80));
}

template <class Unit>
void ConvertAscii(Progress<wchar_t, uint8_t>* work)
{
    constexpr size_t kUnits = Unit::kBytes / 2;
    while (work->Left() >= 4 * kUnits && work->Room() >= 4 * kUnits) {
        const wchar_t* const text = work->Text();
        const auto a = Unit::Load(text);
        const auto b = Unit::Load(text + kUnits);
        const auto c = Unit::Load(text + 2 * kUnits);
        const auto d = Unit::Load(text + 3 * kUnits);
        if (!IsAscii<Unit>(Unit::Or(Unit::Or(a, b), Unit::Or(c, d)))) return;
        Unit::Store(work->End(), Unit::Pack16(a, b));
        Unit::Store(work->End() + 2 * kUnits, Unit::Pack16(c, d));
        work->Add(4 * kUnits, 4 * kUnits);
    }
}

template <class Unit>
Converted Utf16ToUtf8(const wchar_t* src, size_t length, uint8_t* dst, size_t room)
{
    constexpr size_t kUnits = Unit::kBytes / 2;
    Progress<wchar_t, uint8_t> work{src, length, dst, room, {0, 0}};
    while (work.Left() >= 16 && work.Room() >= 16) {
        const __m128i first = LoadLane(work.Text());
        const __m128i second = LoadLane(work.Text() + 8);
        if (IsAscii<Sse41>(_mm_or_si128(first, second))) {
            StoreLane(work.End(), _mm_packus_epi16(first, second));
            work.Add(16, 16);
            ConvertAscii<Unit>(&work);
            continue;
        }
        const auto isAhead = [&work] {
            return work.Left() >= kUnits + kUnitsBehind && work.Room() >= 3 * kUnits + kRoomBehind;
        };
        if (!isAhead()) break;
        auto units = Unit::Load(work.Text());
        if (Unit::HaveNone(units, Unit::Set16(0xF800))) {
            work.Add(kUnits, StoreShortUnits<Unit>(units, work.End()));
        } else if (!HasSurrogates<Unit>(units)) {
            work.Add(kUnits, StoreQuads<Unit>(Quads<Unit>(units), work.End()));
        } else {
            // Where there are surrogates, more of them are likely.
            do {
                const Quads<Unit> quads(PairsAt<Unit>(work.Text(), work.done.read == 0));
                work.Add(kUnits, StoreQuads<Unit>(quads, work.End()));
                units = Unit::Load(work.Text());
            } while (HasSurrogates<Unit>(units) && isAhead());
        }
    }
    // The first half of a pair is written again with the second one.
    if (work.done.read != 0 && work.Left() != 0 && IsPair(work.Text() - 1)) {
        --work.done.read;
        work.done.written -= 2;
    }
    while (work.Left() != 0) {
        const size_t left = work.Left();
        const size_t read = Least(left, 8);
        const Utf8Bytes bytes = BytesOf(Quads<Sse41>(PairsOf(LoadPart(work.Text(), 2 * read))));
        const size_t cut = left > 8 && IsPair(work.Text() + 7);
        // Zeros behind the text give a byte each.
        const size_t count = bytes.inFirst + bytes.inSecond - Utf8::Length(kReplacement) * cut - (8 - read);
        if (count > work.Room()) break;
        StoreParts(work.End(), bytes.first, bytes.inFirst, bytes.second, count);
        work.Add(read - cut, count);
    }
    return Finish(kTranscodePlain.utf16ToUtf8, work.done, src, length, dst, room);
}

// ---- UTF-32

// The bytes of four code points, at the end of four bytes each.
struct FourCharacters {
    __m128i bytes;
    size_t count;
};

FourCharacters BytesOf(__m128i codePoints)
{
    const auto pick = [codePoints](int left, int right, uint32_t bits) {
        const __m128i moved =
            left != 0 ? _mm_slli_epi32(codePoints, left) : _mm_srli_epi32(codePoints, right);
        return _mm_and_si128(moved, Dwords(bits));
    };
    const __m128i from80 = Sse41::AtLeast32(codePoints, 0x80);
    const __m128i from800 = Sse41::AtLeast32(codePoints, 0x800);
    const __m128i from10000 = Sse41::AtLeast32(codePoints, 0x10000);
    const __m128i payload = _mm_or_si128(_mm_or_si128(pick(24, 0, 0x3F000000), pick(10, 0, 0x003F0000)),
                                         _mm_or_si128(pick(0, 4, 0x00003F00), pick(0, 18, 0x00000007)));
    // The lead stands where the first of the bytes does.
    const __m128i lead = _mm_blendv_epi8(_mm_blendv_epi8(Dwords(0x80C08080), Dwords(0x8080E080), from800),
                                         Dwords(0x808080F0), from10000);
    const __m128i lanes =
        _mm_blendv_epi8(_mm_slli_epi32(codePoints, 24), _mm_or_si128(payload, lead), from80);
    // Two bits for each lane, as kCloseQuads wants them.
    const __m128i odd = _mm_blend_epi16(_mm_andnot_si128(from10000, from80), from800, 0xAA);
    const unsigned bits = Sse41::SignBits8(Sse41::PackSigned16(odd)) & 0xFF;
    return {_mm_shuffle_epi8(lanes, Control(kCloseQuads.of[bits])), kCloseQuadsLength.of[bits]};
}

Utf8Bytes BytesOf(const Utf32Eight& values)
{
    const FourCharacters first = BytesOf(values.first);
    const FourCharacters second = BytesOf(values.second);
    return {first.bytes, second.bytes, first.count, second.count};
}

template <class Unit>
Converted Utf32ToUtf8(const uint32_t* src, size_t length, uint8_t* dst, size_t room)
{
    constexpr size_t kUnits = Unit::kBytes / 2;
    Progress<uint32_t, uint8_t> work{src, length, dst, room, {0, 0}};
    while (work.Left() >= kUnits + kUnitsBehind && work.Room() >= 3 * kUnits + kRoomBehind) {
        typename Unit::V units;
        if (!Narrow<Unit>(work.Text(), &units)) {
            const Utf8Bytes bytes = BytesOf(Utf32Eight(work.Text(), 8));
            StoreLane(work.End(), bytes.first);
            StoreLane(work.End() + bytes.inFirst, bytes.second);
            work.Add(8, bytes.inFirst + bytes.inSecond);
        } else if (IsAscii<Unit>(units)) {
            Unit::Store(work.End(), Unit::Pack16(units, units));
            work.Add(kUnits, kUnits);
        } else if (Unit::HaveNone(units, Unit::Set16(0xF800))) {
            work.Add(kUnits, StoreShortUnits<Unit>(units, work.End()));
        } else {
            work.Add(kUnits, StoreQuads<Unit>(Quads<Unit>(units), work.End()));
        }
    }
    while (work.Left() != 0) {
        const size_t read = Least(work.Left(), 8);
        const Utf8Bytes bytes = BytesOf(Utf32Eight(work.Text(), read));
        const size_t count = bytes.inFirst + bytes.inSecond - (8 - read);
        if (count > work.Room()) break;
        StoreParts(work.End(), bytes.first, bytes.inFirst, bytes.second, count);
        work.Add(read, count);
    }
    return Finish(kTranscodePlain.utf32ToUtf8, work.done, src, length, dst, room);
}

}  // namespace

}  // namespace vorn::detail

#endif
