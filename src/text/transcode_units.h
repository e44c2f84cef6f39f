// transcode_units.h - reading UTF-16 and UTF-32, and writing UTF-8 from them, with vector units that have no
// compressing store, written once for both widths. See transcode_blocks.h.
//
// Vectors whose units all take one of the common shapes are converted at once; for surrogates and for values
// beyond U+FFFF the plain definition takes over for as many units as a vector holds.
#ifndef VORN_TEXT_TRANSCODE_UNITS_H
#define VORN_TEXT_TRANSCODE_UNITS_H

#include "text/transcode_blocks.h"

namespace vorn::detail {

namespace {

// For eight lanes of two bytes: both bytes of those whose bit is set, the first of the others.
constexpr Shuffles<256> MakeCloseTwo()
{
    Shuffles<256> table{};
    for (int bits = 0; bits < 256; ++bits) {
        int size = 0;
        for (int lane = 0; lane < 8; ++lane) {
            table.of[bits].at[size++] = static_cast<uint8_t>(2 * lane);
            if ((bits >> lane & 1) != 0) table.of[bits].at[size++] = static_cast<uint8_t>(2 * lane + 1);
        }
        while (size < 16) table.of[bits].at[size++] = 0x80;
    }
    return table;
}

// For four lanes of four bytes: one byte of each, one more for each of its two bits that is set.
constexpr Shuffles<256> MakeCloseThree()
{
    Shuffles<256> table{};
    for (int bits = 0; bits < 256; ++bits) {
        int size = 0;
        for (int lane = 0; lane < 4; ++lane) {
            const int length = 1 + (bits >> lane & 1) + (bits >> (lane + 4) & 1);
            for (int i = 0; i < length; ++i) table.of[bits].at[size++] = static_cast<uint8_t>(4 * lane + i);
        }
        while (size < 16) table.of[bits].at[size++] = 0x80;
    }
    return table;
}

constexpr Shuffles<256> kCloseTwo = MakeCloseTwo();
constexpr Shuffles<256> kCloseThree = MakeCloseThree();

// Converts characters the plain way until `stop` units are read. False if the next one has no room.
template <class From, class To>
bool ConvertUntil(size_t stop, const typename From::Unit* src, size_t length, typename To::Unit* dst,
                  size_t room, Converted* done)
{
    while (done->read < stop) {
        const Character character = From::Read(src + done->read, length - done->read);
        const uint32_t units = To::Length(character.codePoint);
        if (units > room - done->written) return false;
        To::Write(character.codePoint, dst + done->written);
        done->read += character.length;
        done->written += units;
    }
    return true;
}

// Eight UTF-16 units are stored as up to 24 bytes, of which the last 16 may be stored in excess; the same
// number of units and of room behind them makes sure that those are overwritten.
constexpr size_t kInPlaceUnits = 8 + 18;
constexpr size_t kInPlaceWriteRoom = 24 + 18;

__m128i LoadEight(const wchar_t* text)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
}

void StoreBytes(uint8_t* out, __m128i bytes)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
}

// One bit for each of eight 16-bit lanes, each all ones or zero.
unsigned Bits16(__m128i lanes)
{
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(lanes, _mm_setzero_si128())));
}

__m128i FromUnsigned16(__m128i units, int least)
{
    return _mm_cmpeq_epi16(_mm_max_epu16(units, _mm_set1_epi16(static_cast<short>(least))), units);
}

// Eight units below 0x800.
size_t StoreTwo(__m128i units, uint8_t* out)
{
    const __m128i from80 = FromUnsigned16(units, 0x80);
    const __m128i low = _mm_and_si128(_mm_slli_epi16(units, 8), _mm_set1_epi16(0x3F00));
    const __m128i two =
        _mm_or_si128(_mm_or_si128(_mm_srli_epi16(units, 6), low), _mm_set1_epi16(-0x7F40));  // 0x80C0
    const unsigned bits = Bits16(from80);
    StoreBytes(out, _mm_shuffle_epi8(_mm_blendv_epi8(units, two, from80), Control(kCloseTwo.of[bits])));
    return 8 + Bits(bits);
}

// Four code points below 0x10000, none a surrogate, one in each lane.
size_t StoreThree(__m128i codePoints, uint8_t* out)
{
    const auto set = [](int value) { return _mm_set1_epi32(value); };
    const __m128i from80 = _mm_cmpgt_epi32(codePoints, set(0x7F));
    const __m128i from800 = _mm_cmpgt_epi32(codePoints, set(0x7FF));
    const __m128i last = _mm_and_si128(codePoints, set(0x3F));
    const __m128i middle = _mm_and_si128(codePoints, set(0xFC0));
    const __m128i first = _mm_srli_epi32(codePoints, 12);
    const __m128i two =
        _mm_or_si128(_mm_or_si128(_mm_srli_epi32(codePoints, 6), _mm_slli_epi32(last, 8)), set(0x80C0));
    const __m128i three = _mm_or_si128(_mm_or_si128(first, _mm_slli_epi32(middle, 2)),
                                       _mm_or_si128(_mm_slli_epi32(last, 16), set(0x8080E0)));
    const __m128i lanes = _mm_blendv_epi8(_mm_blendv_epi8(codePoints, two, from80), three, from800);
    const unsigned bits = static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(from80)) |
                                                _mm_movemask_ps(_mm_castsi128_ps(from800)) << 4);
    StoreBytes(out, _mm_shuffle_epi8(lanes, Control(kCloseThree.of[bits])));
    return 4 + Bits(bits);
}

bool HasSurrogates(__m128i units)
{
    const __m128i high = _mm_and_si128(units, _mm_set1_epi16(-0x800));
    return _mm_movemask_epi8(_mm_cmpeq_epi16(high, _mm_set1_epi16(-0x2800))) != 0;  // 0xF800, 0xD800
}

bool AreAllBelow(__m128i units, uint32_t mask)
{
    return _mm_testz_si128(units, _mm_set1_epi32(static_cast<int>(mask))) != 0;
}

Converted Utf16ToUtf8(const wchar_t* src, size_t length, uint8_t* dst, size_t room)
{
    Converted done{0, 0};
    while (length - done.read >= kInPlaceUnits && room - done.written >= kInPlaceWriteRoom) {
        uint8_t* const out = dst + done.written;
        const __m128i units = LoadEight(src + done.read);
        if (AreAllBelow(units, 0xFF80FF80)) {
            const __m128i more = LoadEight(src + done.read + 8);
            if (AreAllBelow(more, 0xFF80FF80)) {
                StoreBytes(out, _mm_packus_epi16(units, more));
                done.read += 16;
                done.written += 16;
                continue;
            }
        }
        if (AreAllBelow(units, 0xF800F800)) {
            done.written += StoreTwo(units, out);
            done.read += 8;
        } else if (!HasSurrogates(units)) {
            const __m128i zero = _mm_setzero_si128();
            const size_t first = StoreThree(_mm_unpacklo_epi16(units, zero), out);
            done.written += first + StoreThree(_mm_unpackhi_epi16(units, zero), out + first);
            done.read += 8;
        } else {
            ConvertUntil<Utf16, Utf8>(done.read + 8, src, length, dst, room, &done);
        }
    }
    ConvertUntil<Utf16, Utf8>(length, src, length, dst, room, &done);
    return done;
}

Converted Utf16ToUtf32(const wchar_t* src, size_t length, uint32_t* dst, size_t room)
{
    Converted done{0, 0};
    while (length - done.read >= 8 && room - done.written >= 8) {
        const __m128i units = LoadEight(src + done.read);
        if (HasSurrogates(units)) {
            ConvertUntil<Utf16, Utf32>(done.read + 8, src, length, dst, room, &done);
            continue;
        }
        const __m128i zero = _mm_setzero_si128();
        __m128i* const out = reinterpret_cast<__m128i*>(dst + done.written);
        _mm_storeu_si128(out, _mm_unpacklo_epi16(units, zero));
        _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(units, zero));
        done.read += 8;
        done.written += 8;
    }
    ConvertUntil<Utf16, Utf32>(length, src, length, dst, room, &done);
    return done;
}

// Eight values below 0x10000 as UTF-16 units. False if there are others.
bool Narrow(const uint32_t* text, __m128i* units)
{
    const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + 4));
    *units = _mm_packus_epi32(first, second);
    return AreAllBelow(_mm_or_si128(first, second), 0xFFFF0000);
}

Converted Utf32ToUtf16(const uint32_t* src, size_t length, wchar_t* dst, size_t room)
{
    Converted done{0, 0};
    while (length - done.read >= 8 && room - done.written >= 16) {
        __m128i units;
        if (Narrow(src + done.read, &units) && !HasSurrogates(units)) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + done.written), units);
            done.read += 8;
            done.written += 8;
        } else {
            ConvertUntil<Utf32, Utf16>(done.read + 8, src, length, dst, room, &done);
        }
    }
    ConvertUntil<Utf32, Utf16>(length, src, length, dst, room, &done);
    return done;
}

Converted Utf32ToUtf8(const uint32_t* src, size_t length, uint8_t* dst, size_t room)
{
    Converted done{0, 0};
    while (length - done.read >= kInPlaceUnits && room - done.written >= kInPlaceWriteRoom) {
        uint8_t* const out = dst + done.written;
        __m128i units;
        if (!Narrow(src + done.read, &units) || HasSurrogates(units)) {
            ConvertUntil<Utf32, Utf8>(done.read + 8, src, length, dst, room, &done);
            continue;
        }
        done.read += 8;
        if (AreAllBelow(units, 0xFF80FF80)) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(units, units));
            done.written += 8;
        } else if (AreAllBelow(units, 0xF800F800)) {
            done.written += StoreTwo(units, out);
        } else {
            const __m128i zero = _mm_setzero_si128();
            const size_t first = StoreThree(_mm_unpacklo_epi16(units, zero), out);
            done.written += first + StoreThree(_mm_unpackhi_epi16(units, zero), out + first);
        }
    }
    ConvertUntil<Utf32, Utf8>(length, src, length, dst, room, &done);
    return done;
}

// ---- sizes

// A pair is counted where its high surrogate stands, so that any part of a text can be counted by itself.
bool BeginsPair(const wchar_t* text, size_t left)
{
    return text[0] >> 10 == 0xD800 >> 10 && left > 1 && text[1] >> 10 == 0xDC00 >> 10;
}

template <class Unit, bool kAsUtf8>
size_t CountUtf16(const wchar_t* src, size_t length)
{
    using V = typename Unit::V;
    constexpr size_t kUnits = Unit::kBytes / 2;
    size_t count = length;
    size_t read = 0;
    for (; length - read > kUnits; read += kUnits) {
        const V units = Unit::Load(src + read);
        const V next = Unit::Load(src + read + 1);
        const V mask = Unit::Set16(0xFC00);
        const V pairs = Unit::And(Unit::Equal16(Unit::And(units, mask), Unit::Set16(0xD800)),
                                  Unit::Equal16(Unit::And(next, mask), Unit::Set16(0xDC00)));
        const size_t pairCount = Bits(Unit::SignBits(pairs)) / 2;
        if (kAsUtf8) {
            // Each half of a pair is counted as three bytes and stands for two.
            count += (Bits(Unit::SignBits(Unit::From16(units, 0x80))) +
                      Bits(Unit::SignBits(Unit::From16(units, 0x800)))) /
                         2 -
                     2 * pairCount;
        } else {
            count -= pairCount;
        }
    }
    for (; read < length; ++read) {
        const size_t pairCount = BeginsPair(src + read, length - read);
        if (kAsUtf8) count += static_cast<size_t>((src[read] >= 0x80) + (src[read] >= 0x800));
        count -= kAsUtf8 ? 2 * pairCount : pairCount;
    }
    return count;
}

template <class Unit, bool kAsUtf8>
size_t CountUtf32(const uint32_t* src, size_t length)
{
    using V = typename Unit::V;
    constexpr size_t kUnits = Unit::kBytes / 4;
    size_t count = length;
    size_t read = 0;
    const auto from = [](V units, uint32_t least) {
        return Bits(Unit::SignBits(Unit::From32(units, least))) / 4;
    };
    for (; length - read >= kUnits; read += kUnits) {
        const V units = Unit::Load(src + read);
        count += from(units, 0x10000) - from(units, 0x110000);
        if (kAsUtf8) count += from(units, 0x80) + from(units, 0x800);
    }
    for (; read < length; ++read) {
        const uint32_t unit = src[read];
        count += static_cast<size_t>(unit >= 0x10000) - static_cast<size_t>(unit >= 0x110000);
        if (kAsUtf8) count += static_cast<size_t>((unit >= 0x80) + (unit >= 0x800));
    }
    return count;
}

}  // namespace

}  // namespace vorn::detail

#endif
