// Base64 with AVX-512 VBMI: 64 characters at a time.

#include "core/base64.h"

#include <immintrin.h>

namespace vorn::detail {

namespace {

constexpr uint64_t k48Bytes = 0xFFFFFFFFFFFF;

// Byte tables for permutes, made when compiled.
struct alignas(64) Table64 {
    uint8_t at[64];
};

constexpr Table64 MakeAlphabet()
{
    Table64 table{};
    for (int i = 0; i < 26; ++i) {
        table.at[i] = static_cast<uint8_t>('A' + i);
        table.at[26 + i] = static_cast<uint8_t>('a' + i);
    }
    for (int i = 0; i < 10; ++i) table.at[52 + i] = static_cast<uint8_t>('0' + i);
    table.at[62] = '+';
    table.at[63] = '/';
    return table;
}

// Three bytes b0 b1 b2 become the four b1 b0 b2 b1, in which each sextet lies in one piece.
constexpr Table64 MakeSpread()
{
    Table64 table{};
    for (int group = 0; group < 16; ++group) {
        table.at[4 * group] = static_cast<uint8_t>(3 * group + 1);
        table.at[4 * group + 1] = static_cast<uint8_t>(3 * group);
        table.at[4 * group + 2] = static_cast<uint8_t>(3 * group + 2);
        table.at[4 * group + 3] = static_cast<uint8_t>(3 * group + 1);
    }
    return table;
}

// The lowest bit of each sextet, counted from the start of its quadword.
constexpr Table64 MakeShifts()
{
    constexpr uint8_t kShift[8] = {10, 4, 22, 16, 42, 36, 54, 48};
    Table64 table{};
    for (int i = 0; i < 64; ++i) table.at[i] = kShift[i % 8];
    return table;
}

// The values of the characters 0x00 to 0x3F and 0x40 to 0x7F; 0x80 for those outside the alphabet.
constexpr Table64 MakeReverse(int first)
{
    constexpr Table64 kAlphabet = MakeAlphabet();
    Table64 table{};
    for (int i = 0; i < 64; ++i) table.at[i] = 0x80;
    for (int value = 0; value < 64; ++value) {
        const int c = kAlphabet.at[value] - first;
        if (c >= 0 && c < 64) table.at[c] = static_cast<uint8_t>(value);
    }
    return table;
}

// The three low bytes of each 32-bit lane, highest first, close together.
constexpr Table64 MakePack()
{
    Table64 table{};
    for (int i = 0; i < 48; ++i) table.at[i] = static_cast<uint8_t>(i / 3 * 4 + 2 - i % 3);
    return table;
}

constexpr Table64 kAlphabet = MakeAlphabet();
constexpr Table64 kSpread = MakeSpread();
constexpr Table64 kShifts = MakeShifts();
constexpr Table64 kReverseLow = MakeReverse(0x00);
constexpr Table64 kReverseHigh = MakeReverse(0x40);
constexpr Table64 kPack = MakePack();

size_t EncodeLines(const uint8_t* data, size_t length, char* text)
{
    const __m512i alphabet = _mm512_load_si512(&kAlphabet);
    const __m512i spread = _mm512_load_si512(&kSpread);
    const __m512i shifts = _mm512_load_si512(&kShifts);
    const auto encode48 = [&](const uint8_t* from, char* to) {
        const __m512i bytes = _mm512_maskz_loadu_epi8(k48Bytes, from);
        const __m512i sextets = _mm512_multishift_epi64_epi8(shifts, _mm512_permutexvar_epi8(spread, bytes));
        _mm512_storeu_si512(to, _mm512_permutexvar_epi8(sextets, alphabet));
    };
    const size_t lines = length / kBase64LineBytes;
    for (size_t line = 0; line < lines; ++line, data += kBase64LineBytes, text += kBase64LineSize) {
        encode48(data, text);
        encode48(data + 9, text + 12);
        text[76] = '\r';
        text[77] = '\n';
    }
    return lines;
}

Base64Run DecodeGroups(const char* text, size_t length, uint8_t* data, size_t room)
{
    const __m512i reverseLow = _mm512_load_si512(&kReverseLow);
    const __m512i reverseHigh = _mm512_load_si512(&kReverseHigh);
    const __m512i pack = _mm512_load_si512(&kPack);
    size_t read = 0;
    size_t written = 0;
    while (read < length) {
        const size_t left = length - read;
        const __m512i characters =
            left >= 64
                ? _mm512_loadu_si512(text + read)
                : _mm512_maskz_loadu_epi8(_bzhi_u64(~uint64_t{0}, static_cast<unsigned>(left)), text + read);
        const __m512i values = _mm512_permutex2var_epi8(reverseLow, characters, reverseHigh);
        const uint64_t wrong = _mm512_movepi8_mask(_mm512_or_si512(values, characters));
        const __m512i pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi32(0x01400140));
        const __m512i triples = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
        const __m512i bytes = _mm512_permutexvar_epi8(pack, triples);
        if (wrong == 0 && room - written >= 48) {
            _mm512_mask_storeu_epi8(data + written, k48Bytes, bytes);
            read += 64;
            written += 48;
            continue;
        }
        size_t groups = wrong == 0 ? 16 : _tzcnt_u64(wrong) / 4;
        const size_t groupsWithRoom = (room - written) / 3;
        if (groups > groupsWithRoom) groups = groupsWithRoom;
        const uint64_t store = _bzhi_u64(~uint64_t{0}, static_cast<unsigned>(3 * groups));
        _mm512_mask_storeu_epi8(data + written, store, bytes);
        read += 4 * groups;
        written += 3 * groups;
        const size_t lineBreak = Base64LineBreak(text + read, length - read);
        if (lineBreak == 0) break;
        read += lineBreak;
    }
    return {read, written};
}

}  // namespace

const Base64Codec kBase64Avx512{EncodeLines, DecodeGroups};

}  // namespace vorn::detail
