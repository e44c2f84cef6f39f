// transcode_avx512_utf8.h - reading UTF-8 with AVX-512 VBMI2, 64 bytes at a time. Only for
// transcode_avx512.cpp.
//
// A block is first described by bit masks, one bit for each byte: where characters start, and which of them
// are ill-formed. Whether a sequence is well-formed depends on its own bytes alone, and a lead never
// continues another sequence, so all of them are judged at once; the next block only needs to know how many
// of its bytes belong to sequences of this one. The positions of the characters are then packed close
// together, the bytes of each character gathered into one lane, and all lanes turned into units at once.
#ifndef VORN_TEXT_TRANSCODE_AVX512_UTF8_H
#define VORN_TEXT_TRANSCODE_AVX512_UTF8_H

#include "text/transcode_avx512.h"

namespace vorn::detail {

namespace {

// For lanes of `kLane` bytes from the lane `first` on: the number of the lane, in each of its bytes.
template <int kLane>
constexpr Table64 MakeLaneNumbers(int first)
{
    Table64 table{};
    for (int i = 0; i < 64; ++i) table.at[i] = static_cast<uint8_t>(first + i / kLane);
    return table;
}

constexpr Table64 kByteNumbers = MakeLaneNumbers<1>(0);
constexpr Table64 kLanes16[2] = {MakeLaneNumbers<2>(0), MakeLaneNumbers<2>(32)};
constexpr Table64 kLanes32[4] = {MakeLaneNumbers<4>(0), MakeLaneNumbers<4>(16), MakeLaneNumbers<4>(32),
                                 MakeLaneNumbers<4>(48)};

// What may follow a lead byte, by its lowest six bits: the first byte allowed and how many. None for a byte
// that leads nothing.
struct SecondBytes {
    Table64 first;
    Table64 count;
};

constexpr SecondBytes MakeSecondBytes()
{
    SecondBytes bytes{};
    for (int lead = 0xC2; lead <= 0xF4; ++lead) {
        bytes.first.at[lead & 0x3F] = 0x80;
        bytes.count.at[lead & 0x3F] = 0x40;
    }
    bytes.first.at[0xE0 & 0x3F] = 0xA0;
    bytes.count.at[0xE0 & 0x3F] = 0x20;
    bytes.count.at[0xED & 0x3F] = 0x20;
    bytes.first.at[0xF0 & 0x3F] = 0x90;
    bytes.count.at[0xF0 & 0x3F] = 0x30;
    return bytes;
}

constexpr SecondBytes kSecondBytes = MakeSecondBytes();

// What sequences that started in the block before take of this one.
struct Utf8Carry {
    uint64_t covered = 0;       // a bit for each byte, at most the first three
    uint64_t lowSurrogate = 0;  // 1 if the first byte stands for a low surrogate still to be written
};

// Up to 64 bytes of a text, described by one bit for each byte. Sequences may go on behind the block.
class Utf8Block {
public:
    Utf8Block(const uint8_t* text, size_t left) : length(left < 64 ? left : 64)
    {
        if (left >= 64 + 3) {
            bytes = Load(text);
            second = Load(text + 1);
            third = Load(text + 2);
            fourth = Load(text + 3);
        } else {
            // The zeros behind the text go on with no sequence.
            bytes = _mm512_maskz_loadu_epi8(LowBits(length), text);
            second = _mm512_maskz_loadu_epi8(LowBits(left > 1 ? left - 1 : 0), text + 1);
            third = _mm512_maskz_loadu_epi8(LowBits(left > 2 ? left - 2 : 0), text + 2);
            fourth = _mm512_maskz_loadu_epi8(LowBits(left > 3 ? left - 3 : 0), text + 3);
        }
        nonAscii = _mm512_movepi8_mask(bytes);
    }

    // To be called for blocks that are not all ASCII. Leaves in *carry what it takes of the next block.
    void Describe(Utf8Carry* carry)
    {
        const __m512i distance =
            _mm512_sub_epi8(second, _mm512_permutexvar_epi8(bytes, Load(kSecondBytes.first)));
        const __mmask64 fromC0 = _mm512_cmpge_epu8_mask(bytes, Byte(0xC0));
        const uint64_t secondFits = _mm512_mask_cmplt_epu8_mask(
            fromC0, distance, _mm512_permutexvar_epi8(bytes, Load(kSecondBytes.count)));
        const uint64_t thirdFits = _mm512_cmplt_epi8_mask(third, Byte(0xC0));
        const uint64_t fourthFits = _mm512_cmplt_epi8_mask(fourth, Byte(0xC0));
        const uint64_t fromE0 = _mm512_cmpge_epu8_mask(bytes, Byte(0xE0));
        const uint64_t fromF0 = _mm512_cmpge_epu8_mask(bytes, Byte(0xF0));
        const uint64_t sequences = secondFits & (~fromE0 | thirdFits) & (~fromF0 | fourthFits);
        const uint64_t longer = sequences & fromE0;
        four = sequences & fromF0;
        starts = ~(sequences << 1 | longer << 2 | four << 3 | carry->covered) & LowBits(length);
        replaced = starts & nonAscii & ~sequences;
        lowSurrogates = carry->lowSurrogate;
        *carry = {sequences >> 63 | longer >> 62 | four >> 61, 0};
        if (four != 0) {
            beyond =
                four & _mm512_cmpeq_epu8_mask(bytes, Byte(0xF4)) & _mm512_cmpge_epu8_mask(second, Byte(0x90));
            replaced |= beyond;
            lowSurrogates |= (four & ~beyond) << 1;
            carry->lowSurrogate = (four & ~beyond) >> 63;
        }
    }

    // The units of up to 32 characters, whose positions `at` holds twice in each lane. The position of the
    // lead of a four-byte sequence yields the high surrogate, the one behind it the low one.
    __m512i Units16(__m512i at) const
    {
        const __mmask64 oddBytes = 0xAAAAAAAAAAAAAAAA;
        const __m512i both =
            _mm512_mask_permutexvar_epi8(_mm512_permutexvar_epi8(at, bytes), oddBytes, at, second);
        const __m512i last = _mm512_and_si512(_mm512_permutexvar_epi8(at, third), Word(0x003F));
        const __m512i lead = _mm512_slli_epi16(both, 8);
        // Five bits of the lead and six of the second byte.
        const __m512i two = _mm512_maddubs_epi16(_mm512_and_si512(both, Word(0x3F1F)), Word(0x0140));
        const __m512i three = _mm512_or_si512(_mm512_slli_epi16(two, 6), last);
        const __m512i one = _mm512_and_si512(both, Word(0x007F));
        __m512i units = _mm512_mask_mov_epi16(two, _mm512_cmpge_epu16_mask(lead, Word(0xE000)), three);
        units = _mm512_mask_mov_epi16(units, _mm512_cmplt_epu16_mask(lead, Word(0x8000)), one);
        if ((four | lowSurrogates) != 0) {
            // The lead's fifth bit, always set, is taken off again with the base.
            const __m512i high =
                _mm512_add_epi16(_mm512_or_si512(_mm512_slli_epi16(two, 2), _mm512_srli_epi16(last, 4)),
                                 Word(0xD7C0 - 0x1000));
            const __m512i low = _mm512_or_si512(_mm512_and_si512(three, Word(0x03FF)), Word(0xDC00));
            units = _mm512_mask_mov_epi16(units, _mm512_cmpge_epu16_mask(lead, Word(0xF000)), high);
            units = _mm512_mask_mov_epi16(units, _mm512_cmplt_epi16_mask(lead, Word(0xC000)), low);
        }
        return units;
    }

    // The code points of up to 16 characters, whose positions `at` holds four times in each lane.
    __m512i Units32(__m512i at) const
    {
        __m512i all = _mm512_permutexvar_epi8(at, bytes);
        all = _mm512_mask_permutexvar_epi8(all, 0x2222222222222222, at, second);
        all = _mm512_mask_permutexvar_epi8(all, 0x4444444444444444, at, third);
        all = _mm512_mask_permutexvar_epi8(all, 0x8888888888888888, at, fourth);
        const __m512i lead = _mm512_slli_epi32(all, 24);
        const __m512i one = _mm512_and_si512(all, Dword(0x7F));
        // Six bits of each of the four bytes; the shorter sequences are shifted out of it.
        const __m512i pairs = _mm512_maddubs_epi16(_mm512_and_si512(all, Byte(0x3F)), Word(0x0140));
        const __m512i payload = _mm512_madd_epi16(pairs, Dword(0x00011000));
        const __m512i three = _mm512_and_si512(_mm512_srli_epi32(payload, 6), Dword(0xFFFF));
        const __m512i fourBytes = _mm512_and_si512(payload, Dword(0x1FFFFF));
        __m512i units = _mm512_srli_epi32(payload, 12);
        units = _mm512_mask_mov_epi32(units, _mm512_cmplt_epu32_mask(lead, Dword(0x80000000)), one);
        units = _mm512_mask_mov_epi32(units, _mm512_cmpge_epu32_mask(lead, Dword(0xE0000000)), three);
        return _mm512_mask_mov_epi32(units, _mm512_cmpge_epu32_mask(lead, Dword(0xF0000000)), fourBytes);
    }

    const size_t length;
    __m512i bytes;  // each byte, and beside it the three that follow
    __m512i second;
    __m512i third;
    __m512i fourth;
    uint64_t nonAscii;
    uint64_t starts = 0;         // a character starts here: a sequence or an ill-formed byte
    uint64_t replaced = 0;       // an ill-formed byte, or a sequence above U+10FFFF
    uint64_t four = 0;           // a sequence of four bytes starts here
    uint64_t beyond = 0;         // one above U+10FFFF
    uint64_t lowSurrogates = 0;  // the byte stands for the low surrogate of the sequence that began before it
};

Converted Utf8ToUtf16(const uint8_t* src, size_t length, wchar_t* dst, size_t room)
{
    Converted done{0, 0};
    Utf8Carry carry;
    while (done.read < length) {
        Utf8Block block(src + done.read, length - done.read);
        const size_t left = room - done.written;
        wchar_t* const out = dst + done.written;
        if (block.nonAscii == 0) {
            if (block.length > left) break;
            Store16(out, _mm512_cvtepu8_epi16(Lower(block.bytes)), block.length);
            if (block.length > 32)
                Store16(out + 32, _mm512_cvtepu8_epi16(Upper(block.bytes)), block.length - 32);
            done.read += block.length;
            done.written += block.length;
            continue;
        }
        const Utf8Carry before = carry;
        block.Describe(&carry);
        const uint64_t units = block.starts | block.lowSurrogates;
        const size_t count = Bits(units);
        // A pair is not begun unless it can be finished in the next block.
        if (count + carry.lowSurrogate > left) {
            carry = before;
            break;
        }
        const __m512i positions = _mm512_maskz_compress_epi8(units, Load(kByteNumbers));
        const uint64_t replaced = block.replaced != 0 ? _pext_u64(block.replaced, units) : 0;
        const __m512i first = block.Units16(_mm512_permutexvar_epi8(Load(kLanes16[0]), positions));
        Store16(out, _mm512_mask_mov_epi16(first, static_cast<__mmask32>(replaced), Word(kReplacement)),
                count);
        if (count > 32) {
            const __m512i second = block.Units16(_mm512_permutexvar_epi8(Load(kLanes16[1]), positions));
            Store16(out + 32,
                    _mm512_mask_mov_epi16(second, static_cast<__mmask32>(replaced >> 32), Word(kReplacement)),
                    count - 32);
        }
        done.read += block.length;
        done.written += count;
    }
    if (done.read < length) {
        // Back to the last character that is whole.
        done.read += carry.lowSurrogate != 0 ? ~size_t{0} : Bits(carry.covered);
        done.written -= carry.lowSurrogate;
    }
    return Finish(kTranscodePlain.utf8ToUtf16, done, src, length, dst, room);
}

Converted Utf8ToUtf32(const uint8_t* src, size_t length, uint32_t* dst, size_t room)
{
    Converted done{0, 0};
    Utf8Carry carry;
    while (done.read < length) {
        Utf8Block block(src + done.read, length - done.read);
        const size_t left = room - done.written;
        uint32_t* const out = dst + done.written;
        if (block.nonAscii == 0 && block.length == 64) {
            if (left < 64) break;
            _mm512_storeu_si512(out, _mm512_cvtepu8_epi32(_mm512_castsi512_si128(block.bytes)));
            _mm512_storeu_si512(out + 16, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(block.bytes, 1)));
            _mm512_storeu_si512(out + 32, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(block.bytes, 2)));
            _mm512_storeu_si512(out + 48, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(block.bytes, 3)));
            done.read += 64;
            done.written += 64;
            continue;
        }
        const Utf8Carry before = carry;
        block.Describe(&carry);
        const size_t count = Bits(block.starts);
        if (count > left) {
            carry = before;
            break;
        }
        const __m512i positions = _mm512_maskz_compress_epi8(block.starts, Load(kByteNumbers));
        const uint64_t replaced = block.replaced != 0 ? _pext_u64(block.replaced, block.starts) : 0;
        for (size_t i = 0; 16 * i < count; ++i) {
            const __m512i units = block.Units32(_mm512_permutexvar_epi8(Load(kLanes32[i]), positions));
            Store32(
                out + 16 * i,
                _mm512_mask_mov_epi32(units, static_cast<__mmask16>(replaced >> 16 * i), Dword(kReplacement)),
                count - 16 * i);
        }
        done.read += block.length;
        done.written += count;
    }
    if (done.read < length) done.read += Bits(carry.covered);
    return Finish(kTranscodePlain.utf8ToUtf32, done, src, length, dst, room);
}

template <bool kAsUtf16>
Utf8Count CountUtf8(const uint8_t* src, size_t length)
{
    Utf8Count count{0, 0};
    Utf8Carry carry;
    size_t read = 0;
    while (read < length) {
        if (length - read >= 256) {
            const __m512i any =
                _mm512_or_si512(_mm512_or_si512(Load(src + read), Load(src + read + 64)),
                                _mm512_or_si512(Load(src + read + 128), Load(src + read + 192)));
            if (_mm512_movepi8_mask(any) == 0) {
                read += 256;
                count.units += 256;
                continue;
            }
        }
        Utf8Block block(src + read, length - read);
        block.Describe(&carry);
        count.units += Bits(block.starts);
        if (block.four != 0) {
            // A pair is two units, counted where its sequence begins.
            if (kAsUtf16) count.units += Bits(block.four & ~block.beyond);
            count.beyond += Bits(block.beyond);
        }
        read += block.length;
    }
    return count;
}

}  // namespace

}  // namespace vorn::detail

#endif
