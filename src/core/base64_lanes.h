// base64_lanes.h - Base64 with SSE4.1 and AVX2 (`Unit`: vector_sse41.h, vector_avx2.h), written once for
// both: 16 characters in each lane. Without linkage: each file that is compiled for a vector unit gets its
// own copy.
#ifndef VORN_CORE_BASE64_LANES_H
#define VORN_CORE_BASE64_LANES_H

#include "core/base64.h"

#include <cstring>
#include <immintrin.h>

namespace vorn::detail {

namespace {

constexpr size_t kLaneBytes = 12;
constexpr size_t kLaneCharacters = 16;

// ---- encoding

// Of the twelve bytes from `first` on, each three b0 b1 b2 become the four b1 b0 b2 b1, in which each sextet
// lies in one piece.
template <int first>
__m128i Spread()
{
    return _mm_setr_epi8(first + 1, first, first + 2, first + 1, first + 4, first + 3, first + 5, first + 4,
                         first + 7, first + 6, first + 8, first + 7, first + 10, first + 9, first + 11,
                         first + 10);
}

// The characters of sextets that lie as Spread puts them.
template <class Unit>
typename Unit::V Characters(typename Unit::V spread)
{
    const auto even =
        Unit::MultiplyHigh16(Unit::And(spread, Unit::Set32(0x0FC0FC00)), Unit::Set32(0x04000040));
    const auto odd = Unit::MultiplyLow16(Unit::And(spread, Unit::Set32(0x003F03F0)), Unit::Set32(0x01000010));
    const auto sextets = Unit::Or(even, odd);
    // What to add to a sextet, by range: entry 13 capital letters, 0 small letters, 1 to 10 digits, 11 and 12
    // the signs.
    const auto offsets =
        Unit::EveryLane(_mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                      '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
    const auto capital = Unit::Greater8(Unit::Set8(26), sextets);
    const auto range =
        Unit::Or(Unit::SubtractClamped8(sextets, Unit::Set8(51)), Unit::And(capital, Unit::Set8(13)));
    return Unit::Add8(sextets, Unit::Shuffle(offsets, range));
}

// Twelve bytes for each lane. Reads 16 from `data` on, in two lanes exactly the 24; with isLast, the 16 that
// end with the twelve.
template <class Unit, bool isLast>
void Encode(const uint8_t* data, char* text)
{
    constexpr int kBefore = Unit::kLanes == 1 && isLast ? 4 : 0;
    const auto bytes = Unit::LoadLanes(data - kBefore, data + kLaneBytes - 4);
    const auto spread = Unit::Shuffle(bytes, Unit::Join(Spread<kBefore>(), Spread<4>()));
    Unit::Store(text, Characters<Unit>(spread));
}

template <class Unit>
size_t EncodeLines(const uint8_t* data, size_t length, char* text)
{
    constexpr size_t kStep = kLaneBytes * Unit::kLanes;
    constexpr size_t kLast = kBase64LineBytes - kStep;  // it begins with bytes that were encoded before
    const size_t lines = length / kBase64LineBytes;
    for (size_t line = 0; line < lines; ++line, data += kBase64LineBytes, text += kBase64LineSize) {
        for (size_t i = 0; i < kLast; i += kStep) Encode<Unit, false>(data + i, text + i / 3 * 4);
        Encode<Unit, true>(data + kLast, text + kLast / 3 * 4);
        text[kBase64LineCharacters] = '\r';
        text[kBase64LineCharacters + 1] = '\n';
    }
    return lines;
}

// ---- decoding

template <class Unit>
typename Unit::V HighNibbles(typename Unit::V characters)
{
    return Unit::And(Unit::ShiftRight32(characters, 4), Unit::Set8(0x0F));
}

// A bit for each character outside the alphabet. The high nibble puts a character into a class (0x01 signs,
// 0x02 digits, 0x04 and 0x08 first and second half of the letters, 0x10 none); the low nibble names the
// classes in which it is wrong.
template <class Unit>
uint32_t Wrong(typename Unit::V characters)
{
    const auto classOf = Unit::EveryLane(_mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10,
                                                       0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10));
    const auto wrongIn = Unit::EveryLane(_mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                                       0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A));
    const auto low = Unit::And(characters, Unit::Set8(0x0F));
    const auto both =
        Unit::And(Unit::Shuffle(classOf, HighNibbles<Unit>(characters)), Unit::Shuffle(wrongIn, low));
    // The classes are positive.
    return Unit::SignBits8(Unit::Greater8(both, Unit::Zero()));
}

void StoreTwelve(uint8_t* data, __m128i bytes)
{
    _mm_storel_epi64(reinterpret_cast<__m128i*>(data), bytes);
    const int last = _mm_extract_epi32(bytes, 2);
    std::memcpy(data + 8, &last, sizeof last);
}

// Characters of the alphabet to twelve bytes for each lane. Writes exactly those.
template <class Unit>
void Decode(typename Unit::V characters, uint8_t* data)
{
    // What to add to a character, by high nibble, the slash one entry lower.
    const auto offsets =
        Unit::EveryLane(_mm_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0));
    const auto isSlash = Unit::Equal8(characters, Unit::Set8('/'));
    const auto offset = Unit::Shuffle(offsets, Unit::Add8(isSlash, HighNibbles<Unit>(characters)));
    const auto values = Unit::Add8(characters, offset);
    const auto pairs = Unit::MultiplyAdd8(values, Unit::Set32(0x01400140));
    const auto triples = Unit::MultiplyAdd16(pairs, Unit::Set32(0x00011000));
    const auto bytes = Unit::Shuffle(
        triples, Unit::EveryLane(_mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1)));
    if constexpr (Unit::kLanes == 2) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(data), Unit::template Lane<0>(bytes));
        data += kLaneBytes;
    }
    StoreTwelve(data, Unit::template Lane<Unit::kLanes - 1>(bytes));
}

template <class Unit>
Base64Run DecodeGroups(const char* text, size_t length, uint8_t* data, size_t room)
{
    constexpr size_t kCharacters = kLaneCharacters * Unit::kLanes;
    constexpr size_t kBytes = kLaneBytes * Unit::kLanes;
    size_t read = 0;
    size_t written = 0;
    size_t lineStart = 0;  // no line break lies between here and `read`
    while (length - read >= kCharacters && room - written >= kBytes) {
        const auto characters = Unit::Load(text + read);
        const uint32_t wrong = Wrong<Unit>(characters);
        if (wrong == 0) {
            Decode<Unit>(characters, data + written);
            read += kCharacters;
            written += kBytes;
            continue;
        }
        const size_t groups = static_cast<size_t>(__builtin_ctz(wrong)) / 4;
        read += 4 * groups;
        written += 3 * groups;
        if (read - lineStart >= kCharacters) {
            // The end of a line, together with what was decoded before it.
            Decode<Unit>(Unit::Load(text + read - kCharacters), data + written - kBytes);
        } else {
            kBase64Plain.decodeGroups(text + read - 4 * groups, 4 * groups, data + written - 3 * groups,
                                      3 * groups);
        }
        const size_t lineBreak = Base64LineBreak(text + read, length - read);
        if (lineBreak == 0) return {read, written};
        read += lineBreak;
        lineStart = read;
    }
    const Base64Run rest =
        kBase64Plain.decodeGroups(text + read, length - read, data + written, room - written);
    return {read + rest.read, written + rest.written};
}

}  // namespace

}  // namespace vorn::detail

#endif
