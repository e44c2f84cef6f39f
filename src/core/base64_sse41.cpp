// Base64 with SSSE3: 16 characters at a time.

#include "core/base64.h"

#include <cstring>
#include <smmintrin.h>

namespace vorn::detail {

namespace {

// The twelve of 16 bytes that start at `first` to 16 characters.
template <int first>
void Encode12(const uint8_t* data, char* text)
{
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data));
    const __m128i spread =
        _mm_shuffle_epi8(bytes, _mm_setr_epi8(first + 1, first, first + 2, first + 1, first + 4, first + 3,
                                              first + 5, first + 4, first + 7, first + 6, first + 8,
                                              first + 7, first + 10, first + 9, first + 11, first + 10));
    const __m128i even =
        _mm_mulhi_epu16(_mm_and_si128(spread, _mm_set1_epi32(0x0FC0FC00)), _mm_set1_epi32(0x04000040));
    const __m128i odd =
        _mm_mullo_epi16(_mm_and_si128(spread, _mm_set1_epi32(0x003F03F0)), _mm_set1_epi32(0x01000010));
    const __m128i sextets = _mm_or_si128(even, odd);
    // What to add to a sextet, by range: entry 13 capital letters, 0 small letters, 1 to 10 digits, 11 and 12
    // the signs.
    const __m128i offsets =
        (_mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                       '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
    const __m128i capital = _mm_cmpgt_epi8(_mm_set1_epi8(26), sextets);
    const __m128i range =
        _mm_or_si128(_mm_subs_epu8(sextets, _mm_set1_epi8(51)), _mm_and_si128(capital, _mm_set1_epi8(13)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(text),
                     _mm_add_epi8(sextets, _mm_shuffle_epi8(offsets, range)));
}

size_t EncodeLines(const uint8_t* data, size_t length, char* text)
{
    const size_t lines = length / kBase64LineBytes;
    for (size_t line = 0; line < lines; ++line, data += kBase64LineBytes, text += kBase64LineSize) {
        Encode12<0>(data, text);
        Encode12<0>(data + 12, text + 16);
        Encode12<0>(data + 24, text + 32);
        Encode12<0>(data + 36, text + 48);
        Encode12<4>(data + 41, text + 60);
        text[76] = '\r';
        text[77] = '\n';
    }
    return lines;
}

__m128i HighNibbles(__m128i characters)
{
    return _mm_and_si128(_mm_srli_epi32(characters, 4), _mm_set1_epi8(0x0F));
}

// A bit for each character outside the alphabet. The high nibble puts a character into a class (0x01 signs,
// 0x02 digits, 0x04 and 0x08 first and second half of the letters, 0x10 none); the low nibble names the
// classes in which it is wrong.
uint32_t Wrong(__m128i characters)
{
    const __m128i classOf = _mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10,
                                          0x10, 0x10, 0x10, 0x10, 0x10);
    const __m128i wrongIn = _mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13,
                                          0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
    const __m128i low = _mm_and_si128(characters, _mm_set1_epi8(0x0F));
    const __m128i both =
        _mm_and_si128(_mm_shuffle_epi8(classOf, HighNibbles(characters)), _mm_shuffle_epi8(wrongIn, low));
    return 0xFFFF & ~static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(both, _mm_setzero_si128())));
}

// 16 characters of the alphabet to 12 bytes. Writes exactly the 12 bytes.
void Decode16(__m128i characters, uint8_t* data)
{
    // What to add to a character, by high nibble, the slash one entry lower.
    const __m128i offsets = _mm_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
    const __m128i isSlash = _mm_cmpeq_epi8(characters, _mm_set1_epi8('/'));
    const __m128i offset = _mm_shuffle_epi8(offsets, _mm_add_epi8(isSlash, HighNibbles(characters)));
    const __m128i values = _mm_add_epi8(characters, offset);
    const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
    const __m128i triples = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
    const __m128i bytes =
        _mm_shuffle_epi8(triples, _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(data), bytes);
    const int last = _mm_extract_epi32(bytes, 2);
    std::memcpy(data + 8, &last, sizeof last);
}

__m128i Load(const char* text)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
}

Base64Run DecodeGroups(const char* text, size_t length, uint8_t* data, size_t room)
{
    size_t read = 0;
    size_t written = 0;
    size_t lineStart = 0;  // no line break lies between here and `read`
    while (length - read >= 16 && room - written >= 12) {
        const __m128i characters = Load(text + read);
        const uint32_t wrong = Wrong(characters);
        if (wrong == 0) {
            Decode16(characters, data + written);
            read += 16;
            written += 12;
            continue;
        }
        const size_t groups = __builtin_ctz(wrong) / 4;
        read += 4 * groups;
        written += 3 * groups;
        if (read - lineStart >= 16) {
            // The end of a line, together with what was decoded before it.
            Decode16(Load(text + read - 16), data + written - 12);
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

const Base64Codec kBase64Sse41{EncodeLines, DecodeGroups};

}  // namespace vorn::detail
