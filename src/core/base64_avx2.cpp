// Base64 with AVX2: 32 characters at a time.

#include "core/base64.h"

#include <immintrin.h>

namespace vorn::detail {

namespace {

__m256i TwoLanes(__m128i lane)
{
    return _mm256_broadcastsi128_si256(lane);
}

// 24 bytes to 32 characters. Reads exactly the 24 bytes.
void Encode24(const uint8_t* data, char* text)
{
    // Each lane takes twelve bytes: the lower one from the start of what it loads, the upper one from the
    // end.
    const __m256i bytes = _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data))),
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 8)), 1);
    const __m256i spread =
        _mm256_shuffle_epi8(bytes, _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, 5, 4,
                                                    6, 5, 8, 7, 9, 8, 11, 10, 12, 11, 14, 13, 15, 14));
    const __m256i even = _mm256_mulhi_epu16(_mm256_and_si256(spread, _mm256_set1_epi32(0x0FC0FC00)),
                                            _mm256_set1_epi32(0x04000040));
    const __m256i odd = _mm256_mullo_epi16(_mm256_and_si256(spread, _mm256_set1_epi32(0x003F03F0)),
                                           _mm256_set1_epi32(0x01000010));
    const __m256i sextets = _mm256_or_si256(even, odd);
    // What to add to a sextet, by range: entry 13 capital letters, 0 small letters, 1 to 10 digits, 11 and 12
    // the signs.
    const __m256i offsets =
        TwoLanes(_mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                               '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
    const __m256i capital = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), sextets);
    const __m256i range = _mm256_or_si256(_mm256_subs_epu8(sextets, _mm256_set1_epi8(51)),
                                          _mm256_and_si256(capital, _mm256_set1_epi8(13)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(text),
                        _mm256_add_epi8(sextets, _mm256_shuffle_epi8(offsets, range)));
}

size_t EncodeLines(const uint8_t* data, size_t length, char* text)
{
    const size_t lines = length / kBase64LineBytes;
    for (size_t line = 0; line < lines; ++line, data += kBase64LineBytes, text += kBase64LineSize) {
        Encode24(data, text);
        Encode24(data + 24, text + 32);
        Encode24(data + 33, text + 44);
        text[76] = '\r';
        text[77] = '\n';
    }
    return lines;
}

__m256i HighNibbles(__m256i characters)
{
    return _mm256_and_si256(_mm256_srli_epi32(characters, 4), _mm256_set1_epi8(0x0F));
}

// A bit for each character outside the alphabet. The high nibble puts a character into a class (0x01 signs,
// 0x02 digits, 0x04 and 0x08 first and second half of the letters, 0x10 none); the low nibble names the
// classes in which it is wrong.
uint32_t Wrong(__m256i characters)
{
    const __m256i classOf = TwoLanes(_mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10,
                                                   0x10, 0x10, 0x10, 0x10, 0x10, 0x10));
    const __m256i wrongIn = TwoLanes(_mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                                   0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A));
    const __m256i low = _mm256_and_si256(characters, _mm256_set1_epi8(0x0F));
    const __m256i both = _mm256_and_si256(_mm256_shuffle_epi8(classOf, HighNibbles(characters)),
                                          _mm256_shuffle_epi8(wrongIn, low));
    return ~static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(both, _mm256_setzero_si256())));
}

// 32 characters of the alphabet to 24 bytes. Writes exactly the 24 bytes.
void Decode32(__m256i characters, uint8_t* data)
{
    // What to add to a character, by high nibble, the slash one entry lower.
    const __m256i offsets = TwoLanes(_mm_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0));
    const __m256i isSlash = _mm256_cmpeq_epi8(characters, _mm256_set1_epi8('/'));
    const __m256i offset = _mm256_shuffle_epi8(offsets, _mm256_add_epi8(isSlash, HighNibbles(characters)));
    const __m256i values = _mm256_add_epi8(characters, offset);
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
    const __m256i triples = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    const __m256i packed = _mm256_shuffle_epi8(
        triples, TwoLanes(_mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1)));
    const __m256i bytes = _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(data), _mm256_castsi256_si128(bytes));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(data + 16), _mm256_extracti128_si256(bytes, 1));
}

__m256i Load(const char* text)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text));
}

Base64Run DecodeGroups(const char* text, size_t length, uint8_t* data, size_t room)
{
    size_t read = 0;
    size_t written = 0;
    size_t lineStart = 0;  // no line break lies between here and `read`
    while (length - read >= 32 && room - written >= 24) {
        const __m256i characters = Load(text + read);
        const uint32_t wrong = Wrong(characters);
        if (wrong == 0) {
            Decode32(characters, data + written);
            read += 32;
            written += 24;
            continue;
        }
        const size_t groups = _tzcnt_u32(wrong) / 4;
        read += 4 * groups;
        written += 3 * groups;
        if (read - lineStart >= 32) {
            // The end of a line, together with what was decoded before it.
            Decode32(Load(text + read - 32), data + written - 24);
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

const Base64Codec kBase64Avx2{EncodeLines, DecodeGroups};

}  // namespace vorn::detail
