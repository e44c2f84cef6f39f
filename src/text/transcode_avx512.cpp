// The converters with AVX-512 VBMI2: 64 bytes or 16 to 32 units at a time.
//
// A block of UTF-8 is first described by bit masks, one bit for each byte: where characters start, and which
// of them are ill-formed. The positions of the characters are then packed close together, the bytes of each
// character gathered into one lane, and all lanes turned into units at once. Writing UTF-8 goes the other
// way: each unit spreads its bytes over one lane, and the bytes in use are packed close together. Blocks that
// are cut short by the end of the text are loaded and stored under masks, so nothing outside the buffers is
// touched.

#include "text/transcode.h"

#include <immintrin.h>

namespace vorn::detail {

namespace {

// The lowest `count` bits, at most 64.
uint64_t LowBits(size_t count)
{
    return _bzhi_u64(~uint64_t{0}, static_cast<unsigned>(count));
}

size_t Bits(uint64_t mask)
{
    return static_cast<size_t>(_mm_popcnt_u64(mask));
}

struct alignas(64) Table64 {
    uint8_t at[64];
};

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

__m512i Load(const void* from)
{
    return _mm512_loadu_si512(from);
}

__m512i Load(const Table64& table)
{
    return _mm512_load_si512(&table);
}

__m512i Byte(int value)
{
    return _mm512_set1_epi8(static_cast<char>(value));
}

__m512i Word(int value)
{
    return _mm512_set1_epi16(static_cast<short>(value));
}

__m512i Dword(uint32_t value)
{
    return _mm512_set1_epi32(static_cast<int>(value));
}

// ---- reading UTF-8

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

// What has no room, and whatever is left behind it, goes the plain way, which stops at the right character.
template <class In, class Out>
Converted Finish(Converted (*plain)(const In*, size_t, Out*, size_t), Converted done, const In* src,
                 size_t length, Out* dst, size_t room)
{
    if (done.read == length) return done;
    const Converted rest =
        plain(src + done.read, length - done.read, dst + done.written, room - done.written);
    return {done.read + rest.read, done.written + rest.written};
}

void Store16(wchar_t* dst, __m512i units, size_t count)
{
    if (count >= 32) {
        _mm512_storeu_si512(dst, units);
    } else {
        _mm512_mask_storeu_epi16(dst, static_cast<__mmask32>(LowBits(count)), units);
    }
}

void Store32(uint32_t* dst, __m512i units, size_t count)
{
    if (count >= 16) {
        _mm512_storeu_si512(dst, units);
    } else {
        _mm512_mask_storeu_epi32(dst, static_cast<__mmask16>(LowBits(count)), units);
    }
}

void Store8(uint8_t* dst, __m512i bytes, size_t count)
{
    if (count >= 64) {
        _mm512_storeu_si512(dst, bytes);
    } else {
        _mm512_mask_storeu_epi8(dst, LowBits(count), bytes);
    }
}

__m256i Lower(__m512i all)
{
    return _mm512_castsi512_si256(all);
}

__m256i Upper(__m512i all)
{
    return _mm512_extracti64x4_epi64(all, 1);
}

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

// ---- reading UTF-16

struct alignas(64) Table32 {
    uint16_t at[32];
};

constexpr Table32 MakeNeighbours(int distance)
{
    Table32 table{};
    for (int i = 0; i < 32; ++i) table.at[i] = static_cast<uint16_t>((i + 32 + distance) % 32);
    return table;
}

constexpr Table32 kPrevious = MakeNeighbours(-1);
constexpr Table32 kNext = MakeNeighbours(1);

// A block of up to 32 units, its lone surrogates replaced already.
struct Utf16Block {
    Utf16Block(const wchar_t* text, size_t left) : length(left < 32 ? left : 32)
    {
        units = length == 32 ? Load(text)
                             : _mm512_maskz_loadu_epi16(static_cast<__mmask32>(LowBits(length)), text);
        const uint32_t surrogates =
            _mm512_cmpeq_epi16_mask(_mm512_and_si512(units, Word(0xF800)), Word(0xD800));
        if (surrogates == 0) return;
        const uint32_t low = surrogates & _mm512_test_epi16_mask(units, Word(0x0400));
        const uint32_t high = surrogates & ~low;
        pairHighs = high & low >> 1;
        pairLows = low & high << 1;
        uint32_t lone = surrogates & ~(pairHighs | pairLows);
        if (left > 32 && high >> 31 != 0) {
            // Its other half may begin the next block.
            length = 31;
            lone &= 0x7FFFFFFF;
        }
        units = _mm512_mask_mov_epi16(units, lone, Word(kReplacement));
    }

    __m512i units;
    uint32_t pairHighs = 0;
    uint32_t pairLows = 0;
    size_t length;
};

Converted Utf16ToUtf32(const wchar_t* src, size_t length, uint32_t* dst, size_t room)
{
    Converted done{0, 0};
    while (done.read < length) {
        const Utf16Block block(src + done.read, length - done.read);
        uint32_t* const out = dst + done.written;
        const uint64_t characters = ~uint64_t{block.pairLows} & LowBits(block.length);
        const size_t count = Bits(characters);
        if (count > room - done.written) break;
        __m512i first = _mm512_cvtepu16_epi32(Lower(block.units));
        __m512i second = _mm512_cvtepu16_epi32(Upper(block.units));
        size_t inFirst = count < 16 ? count : 16;
        if (block.pairHighs != 0) {
            const __m512i next = _mm512_permutexvar_epi16(_mm512_load_si512(&kNext), block.units);
            const auto join = [&](__m512i units, __mmask16 highs, __m256i lows) {
                const __m512i pair =
                    _mm512_add_epi32(_mm512_slli_epi32(units, 10), _mm512_cvtepu16_epi32(lows));
                return _mm512_mask_sub_epi32(units, highs, pair, Dword(0x35FDC00));
            };
            first = join(first, static_cast<__mmask16>(block.pairHighs), Lower(next));
            second = join(second, static_cast<__mmask16>(block.pairHighs >> 16), Upper(next));
            first = _mm512_maskz_compress_epi32(static_cast<__mmask16>(characters), first);
            second = _mm512_maskz_compress_epi32(static_cast<__mmask16>(characters >> 16), second);
            inFirst = Bits(characters & 0xFFFF);
        }
        Store32(out, first, inFirst);
        if (count > inFirst) Store32(out + inFirst, second, count - inFirst);
        done.read += block.length;
        done.written += count;
    }
    return Finish(kTranscodePlain.utf16ToUtf32, done, src, length, dst, room);
}

// ---- writing UTF-8

// Marks the bytes of a lane that are not in use. No UTF-8 text contains it.
constexpr int kUnused = 0xFF;

// The bytes of up to 16 code points, one in each lane, in lanes that are filled up with kUnused.
__m512i Utf8Lanes(__m512i codePoints)
{
    const auto spread = [codePoints](int64_t bits, uint32_t payload, uint32_t marks) {
        const __m512i bytes = _mm512_multishift_epi64_epi8(_mm512_set1_epi64(bits), codePoints);
        return _mm512_or_si512(_mm512_and_si512(bytes, Dword(payload)), Dword(marks));
    };
    // For each byte of two lanes, the lowest of the bits that it takes.
    const __m512i two = spread(0x2020202600000006, 0x00003F1F, 0xFFFF80C0);
    const __m512i three = spread(0x2020262C0000060C, 0x003F3F0F, 0xFF8080E0);
    const __m512i one = _mm512_or_si512(codePoints, Dword(0xFFFFFF00));
    __m512i lanes = _mm512_mask_mov_epi32(two, _mm512_cmplt_epu32_mask(codePoints, Dword(0x80)), one);
    return _mm512_mask_mov_epi32(lanes, _mm512_cmpge_epu32_mask(codePoints, Dword(0x800)), three);
}

__m512i Utf8LanesOfFour(__m512i codePoints)
{
    const __m512i bytes = _mm512_multishift_epi64_epi8(_mm512_set1_epi64(0x20262C3200060C12), codePoints);
    return _mm512_or_si512(_mm512_and_si512(bytes, Dword(0x3F3F3F07)), Dword(0x808080F0));
}

// The two bytes that each half of a pair of surrogates gives.
__m512i PairBytes(const Utf16Block& block)
{
    const __m512i previous = _mm512_permutexvar_epi16(_mm512_load_si512(&kPrevious), block.units);
    const __m512i high = _mm512_sub_epi16(block.units, Word(0xD7C0));
    const __m512i ofHigh = _mm512_or_si512(_mm512_or_si512(_mm512_srli_epi16(high, 8), Word(0x80F0)),
                                           _mm512_and_si512(_mm512_slli_epi16(high, 6), Word(0x3F00)));
    const __m512i low = _mm512_or_si512(_mm512_and_si512(_mm512_slli_epi16(previous, 10), Word(0x0C00)),
                                        _mm512_and_si512(block.units, Word(0x03FF)));
    const __m512i ofLow = _mm512_or_si512(
        _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi16(low, 6), Word(0x003F)), Word(0x8080)),
        _mm512_and_si512(_mm512_slli_epi16(low, 8), Word(0x3F00)));
    return _mm512_mask_mov_epi16(ofHigh, block.pairLows, ofLow);
}

Converted Utf16ToUtf8(const wchar_t* src, size_t length, uint8_t* dst, size_t room)
{
    Converted done{0, 0};
    while (done.read < length) {
        const size_t left = room - done.written;
        uint8_t* const out = dst + done.written;
        if (length - done.read >= 64 && left >= 64) {
            const __m512i first = Load(src + done.read);
            const __m512i second = Load(src + done.read + 32);
            if (_mm512_test_epi16_mask(_mm512_or_si512(first, second), Word(0xFF80)) == 0) {
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm512_cvtepi16_epi8(first));
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 32), _mm512_cvtepi16_epi8(second));
                done.read += 64;
                done.written += 64;
                continue;
            }
        }
        const Utf16Block block(src + done.read, length - done.read);
        const uint32_t from80 = _mm512_cmpge_epu16_mask(block.units, Word(0x80));
        if (_mm512_cmpge_epu16_mask(block.units, Word(0x800)) == 0) {
            const uint64_t kept =
                (_pdep_u64(from80, 0xAAAAAAAAAAAAAAAA) | 0x5555555555555555) & LowBits(2 * block.length);
            const size_t count = Bits(kept);
            if (count > left) break;
            const __m512i two =
                _mm512_or_si512(_mm512_or_si512(_mm512_srli_epi16(block.units, 6), Word(0x80C0)),
                                _mm512_and_si512(_mm512_slli_epi16(block.units, 8), Word(0x3F00)));
            const __m512i lanes = _mm512_mask_mov_epi16(block.units, from80, two);
            Store8(out, _mm512_maskz_compress_epi8(kept, lanes), count);
            done.read += block.length;
            done.written += count;
            continue;
        }
        __m512i first = Utf8Lanes(_mm512_cvtepu16_epi32(Lower(block.units)));
        __m512i second = Utf8Lanes(_mm512_cvtepu16_epi32(Upper(block.units)));
        const uint32_t pairs = block.pairHighs | block.pairLows;
        if (pairs != 0) {
            const __m512i bytes = PairBytes(block);
            const __m512i unused = Dword(0xFFFF0000);
            first = _mm512_mask_or_epi32(first, static_cast<__mmask16>(pairs), unused,
                                         _mm512_cvtepu16_epi32(Lower(bytes)));
            second = _mm512_mask_or_epi32(second, static_cast<__mmask16>(pairs >> 16), unused,
                                          _mm512_cvtepu16_epi32(Upper(bytes)));
        }
        uint64_t keptFirst = _mm512_cmpneq_epu8_mask(first, Byte(kUnused));
        uint64_t keptSecond = _mm512_cmpneq_epu8_mask(second, Byte(kUnused));
        if (block.length < 32) {
            keptFirst &= LowBits(4 * block.length);
            keptSecond &= block.length > 16 ? LowBits(4 * block.length - 64) : 0;
        }
        const size_t inFirst = Bits(keptFirst);
        const size_t inSecond = Bits(keptSecond);
        if (inFirst + inSecond > left) break;
        Store8(out, _mm512_maskz_compress_epi8(keptFirst, first), inFirst);
        Store8(out + inFirst, _mm512_maskz_compress_epi8(keptSecond, second), inSecond);
        done.read += block.length;
        done.written += inFirst + inSecond;
    }
    return Finish(kTranscodePlain.utf16ToUtf8, done, src, length, dst, room);
}

// Up to 16 values, those that are no code points replaced.
struct Utf32Block {
    Utf32Block(const uint32_t* text, size_t left) : length(left < 16 ? left : 16)
    {
        units = length == 16 ? Load(text)
                             : _mm512_maskz_loadu_epi32(static_cast<__mmask16>(LowBits(length)), text);
        const __mmask16 surrogates =
            _mm512_cmpeq_epi32_mask(_mm512_and_si512(units, Dword(0xFFFFF800)), Dword(0xD800));
        const __mmask16 beyond = _mm512_cmpgt_epu32_mask(units, Dword(kLastCodePoint));
        units = _mm512_mask_mov_epi32(units, surrogates | beyond, Dword(kReplacement));
    }

    __m512i units;
    size_t length;
};

Converted Utf32ToUtf8(const uint32_t* src, size_t length, uint8_t* dst, size_t room)
{
    Converted done{0, 0};
    while (done.read < length) {
        const Utf32Block block(src + done.read, length - done.read);
        const size_t left = room - done.written;
        uint8_t* const out = dst + done.written;
        if (_mm512_cmpge_epu32_mask(block.units, Dword(0x80)) == 0) {
            if (block.length > left) break;
            _mm_mask_storeu_epi8(out, static_cast<__mmask16>(LowBits(block.length)),
                                 _mm512_cvtepi32_epi8(block.units));
            done.read += block.length;
            done.written += block.length;
            continue;
        }
        __m512i lanes = Utf8Lanes(block.units);
        const __mmask16 isFour = _mm512_cmpge_epu32_mask(block.units, Dword(0x10000));
        if (isFour != 0) lanes = _mm512_mask_mov_epi32(lanes, isFour, Utf8LanesOfFour(block.units));
        const uint64_t kept = _mm512_cmpneq_epu8_mask(lanes, Byte(kUnused)) & LowBits(4 * block.length);
        const size_t count = Bits(kept);
        if (count > left) break;
        Store8(out, _mm512_maskz_compress_epi8(kept, lanes), count);
        done.read += block.length;
        done.written += count;
    }
    return Finish(kTranscodePlain.utf32ToUtf8, done, src, length, dst, room);
}

Converted Utf32ToUtf16(const uint32_t* src, size_t length, wchar_t* dst, size_t room)
{
    Converted done{0, 0};
    while (done.read < length) {
        const Utf32Block block(src + done.read, length - done.read);
        const __mmask16 isPair = _mm512_cmpge_epu32_mask(block.units, Dword(0x10000));
        const uint32_t kept =
            (_pdep_u32(isPair, 0xAAAAAAAA) | 0x55555555) & static_cast<uint32_t>(LowBits(2 * block.length));
        const size_t count = Bits(kept);
        if (count > room - done.written) break;
        __m512i units;
        if (isPair == 0) {
            units = _mm512_castsi256_si512(_mm512_cvtepi32_epi16(block.units));
        } else {
            const __m512i high = _mm512_add_epi32(_mm512_srli_epi32(block.units, 10), Dword(0xD7C0));
            const __m512i low = _mm512_or_si512(_mm512_slli_epi32(block.units, 16), Dword(0xDC000000));
            const __m512i pairs = _mm512_or_si512(
                high, _mm512_or_si512(_mm512_and_si512(low, Dword(0x03FF0000)), Dword(0xDC000000)));
            units = _mm512_maskz_compress_epi16(kept, _mm512_mask_mov_epi32(block.units, isPair, pairs));
        }
        Store16(dst + done.written, units, count);
        done.read += block.length;
        done.written += count;
    }
    return Finish(kTranscodePlain.utf32ToUtf16, done, src, length, dst, room);
}

// ---- sizes of UTF-16 and UTF-32

// The number of pairs whose high surrogate is one of the first 32 units; `left` units are there.
size_t CountPairs(__m512i units, const wchar_t* text, size_t left)
{
    const uint32_t high = _mm512_cmpeq_epi16_mask(_mm512_and_si512(units, Word(0xFC00)), Word(0xD800));
    if (high == 0) return 0;
    const __m512i next = left > 32
                             ? Load(text + 1)
                             : _mm512_maskz_loadu_epi16(static_cast<__mmask32>(LowBits(left - 1)), text + 1);
    return Bits(high & _mm512_cmpeq_epi16_mask(_mm512_and_si512(next, Word(0xFC00)), Word(0xDC00)));
}

template <bool kAsUtf8>
size_t CountUtf16(const wchar_t* src, size_t length)
{
    size_t count = length;
    for (size_t read = 0; read < length; read += 32) {
        const size_t left = length - read;
        const __m512i units =
            left >= 32 ? Load(src + read)
                       : _mm512_maskz_loadu_epi16(static_cast<__mmask32>(LowBits(left)), src + read);
        const size_t pairs = CountPairs(units, src + read, left);
        if (kAsUtf8) {
            // Each half of a pair is counted as three bytes and stands for two.
            count += Bits(_mm512_cmpge_epu16_mask(units, Word(0x80))) +
                     Bits(_mm512_cmpge_epu16_mask(units, Word(0x800))) - 2 * pairs;
        } else {
            count -= pairs;
        }
    }
    return count;
}

template <bool kAsUtf8>
size_t CountUtf32(const uint32_t* src, size_t length)
{
    size_t count = length;
    for (size_t read = 0; read < length; read += 16) {
        const size_t left = length - read;
        const __m512i units =
            left >= 16 ? Load(src + read)
                       : _mm512_maskz_loadu_epi32(static_cast<__mmask16>(LowBits(left)), src + read);
        if (kAsUtf8) {
            count += Bits(_mm512_cmpge_epu32_mask(units, Dword(0x80))) +
                     Bits(_mm512_cmpge_epu32_mask(units, Dword(0x800)));
        }
        count += Bits(_mm512_cmplt_epu32_mask(_mm512_sub_epi32(units, Dword(0x10000)), Dword(0x100000)));
    }
    return count;
}

}  // namespace

const TranscodeTable kTranscodeAvx512{
    Utf8ToUtf16,       Utf8ToUtf32,      Utf16ToUtf32,     Utf16ToUtf8,
    Utf32ToUtf8,       Utf32ToUtf16,     CountUtf8<true>,  CountUtf8<false>,
    CountUtf16<false>, CountUtf16<true>, CountUtf32<true>, CountUtf32<false>,
};

}  // namespace vorn::detail
