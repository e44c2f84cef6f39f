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

// One bit for each byte of a block.
struct Utf8Masks {
    uint64_t starts;     // a character starts here: a sequence or an ill-formed byte
    uint64_t illFormed;  // the byte becomes U+FFFD on its own
    uint64_t four;       // a sequence of four bytes starts here
    uint64_t beyond;     // the same, and its value is above U+10FFFF
    size_t length;       // the bytes that these characters take
};

// Describes the characters of a block that holds `length` bytes of text and zeros behind them. Unless the
// text ends with the block, sequences that may go on behind it are left to the next one.
Utf8Masks Describe(__m512i block, uint64_t nonAscii, size_t length, bool isLast)
{
    const uint64_t fromC0 = _mm512_cmpge_epu8_mask(block, Byte(0xC0));
    const uint64_t fromE0 = _mm512_cmpge_epu8_mask(block, Byte(0xE0));
    const uint64_t fromF0 = _mm512_cmpge_epu8_mask(block, Byte(0xF0));
    const uint64_t never = _mm512_cmpgt_epu8_mask(block, Byte(0xF4)) |
                           _mm512_cmpeq_epu8_mask(_mm512_and_si512(block, Byte(0xFE)), Byte(0xC0));
    const uint64_t continuation = nonAscii & ~fromC0;
    const uint64_t second = continuation >> 1;
    const uint64_t third = continuation >> 2 & second;
    const uint64_t fourth = continuation >> 3 & third;
    // The leads whose second byte has a smaller range.
    const uint64_t from90 = _mm512_cmpge_epu8_mask(block, Byte(0x90)) >> 1;
    const uint64_t fromA0 = _mm512_cmpge_epu8_mask(block, Byte(0xA0)) >> 1;
    const uint64_t isE0 = _mm512_cmpeq_epu8_mask(block, Byte(0xE0));
    const uint64_t isED = _mm512_cmpeq_epu8_mask(block, Byte(0xED));
    const uint64_t isF0 = _mm512_cmpeq_epu8_mask(block, Byte(0xF0));
    const uint64_t isF4 = _mm512_cmpeq_epu8_mask(block, Byte(0xF4));
    const uint64_t wrongSecond = (isE0 & ~fromA0) | (isED & fromA0) | (isF0 & ~from90);

    const uint64_t leads = fromC0 & ~never & ~wrongSecond;
    const uint64_t two = leads & ~fromE0 & second;
    const uint64_t three = leads & fromE0 & ~fromF0 & third;
    const uint64_t four = leads & fromF0 & fourth;
    const uint64_t sequences = two | three | four;
    const uint64_t covered = sequences << 1 | (three | four) << 2 | four << 3;

    Utf8Masks masks;
    uint64_t considered = LowBits(length);
    masks.length = length;
    if (!isLast) {
        // A sequence that starts at one of the last three bytes may be cut off by the block's end.
        considered >>= 3;
        masks.length = 61 + _tzcnt_u64(~(covered >> 61));
    }
    masks.starts = ~covered & considered;
    masks.illFormed = masks.starts & nonAscii & ~sequences;
    masks.four = four & considered;
    masks.beyond = masks.four & isF4 & from90;
    return masks;
}

// The next block of a text: all of it when 64 bytes are left.
struct Utf8Block {
    Utf8Block(const uint8_t* text, size_t left) : length(left < 64 ? left : 64), isLast(left <= 64)
    {
        bytes = length == 64 ? Load(text) : _mm512_maskz_loadu_epi8(LowBits(length), text);
        nonAscii = _mm512_movepi8_mask(bytes);
    }

    __m512i bytes;
    uint64_t nonAscii;
    size_t length;
    bool isLast;
};

// The units of up to 32 characters, whose positions in the block `at` holds twice in each lane. The position
// of the lead of a four-byte sequence yields the high surrogate, that of its third byte the low one.
__m512i Units16(__m512i block, __m512i at, bool hasFour)
{
    const __m512i both = _mm512_permutexvar_epi8(_mm512_add_epi8(at, Word(0x0100)), block);
    const __m512i third =
        _mm512_and_si512(_mm512_permutexvar_epi8(_mm512_add_epi8(at, Word(0x0002)), block), Word(0x003F));
    const __m512i lead = _mm512_slli_epi16(both, 8);
    // Five bits of the lead and six of the second byte.
    const __m512i two = _mm512_maddubs_epi16(_mm512_and_si512(both, Word(0x3F1F)), Word(0x0140));
    const __m512i three = _mm512_or_si512(_mm512_slli_epi16(two, 6), third);
    const __m512i one = _mm512_and_si512(both, Word(0x007F));
    __m512i units = _mm512_mask_mov_epi16(two, _mm512_cmpge_epu16_mask(lead, Word(0xE000)), three);
    units = _mm512_mask_mov_epi16(units, _mm512_cmplt_epu16_mask(lead, Word(0x8000)), one);
    if (hasFour) {
        // The lead's fifth bit, always set, is taken off again with the base.
        const __m512i high = _mm512_add_epi16(
            _mm512_or_si512(_mm512_slli_epi16(two, 2), _mm512_srli_epi16(third, 4)), Word(0xD7C0 - 0x1000));
        const __m512i low = _mm512_or_si512(two, Word(0xDC00));
        units = _mm512_mask_mov_epi16(units, _mm512_cmpge_epu16_mask(lead, Word(0xF000)), high);
        units = _mm512_mask_mov_epi16(units, _mm512_cmplt_epi16_mask(lead, Word(0xC000)), low);
    }
    return units;
}

// The code points of up to 16 characters, whose positions in the block `at` holds four times in each lane.
__m512i Units32(__m512i block, __m512i at)
{
    const __m512i bytes = _mm512_permutexvar_epi8(_mm512_add_epi8(at, Dword(0x03020100)), block);
    const __m512i lead = _mm512_slli_epi32(bytes, 24);
    // Six bits of each of the four bytes; the shorter sequences are shifted out of it.
    const __m512i pairs = _mm512_maddubs_epi16(_mm512_and_si512(bytes, Byte(0x3F)), Word(0x0140));
    const __m512i all = _mm512_madd_epi16(pairs, Dword(0x00011000));
    const __m512i one = _mm512_and_si512(bytes, Dword(0x7F));
    const __m512i three = _mm512_and_si512(_mm512_srli_epi32(all, 6), Dword(0xFFFF));
    const __m512i four = _mm512_and_si512(all, Dword(0x1FFFFF));
    __m512i units = _mm512_srli_epi32(all, 12);
    units = _mm512_mask_mov_epi32(units, _mm512_cmplt_epu32_mask(lead, Dword(0x80000000)), one);
    units = _mm512_mask_mov_epi32(units, _mm512_cmpge_epu32_mask(lead, Dword(0xE0000000)), three);
    return _mm512_mask_mov_epi32(units, _mm512_cmpge_epu32_mask(lead, Dword(0xF0000000)), four);
}

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
    while (done.read < length) {
        const Utf8Block block(src + done.read, length - done.read);
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
        const Utf8Masks masks = Describe(block.bytes, block.nonAscii, block.length, block.isLast);
        const uint64_t units = masks.starts | (masks.four & ~masks.beyond) << 2;
        const size_t count = Bits(units);
        if (count > left) break;
        const __m512i positions = _mm512_maskz_compress_epi8(units, Load(kByteNumbers));
        const uint64_t replaced = _pext_u64(masks.illFormed | masks.beyond, units);
        const bool hasFour = masks.four != 0;
        const __m512i first =
            Units16(block.bytes, _mm512_permutexvar_epi8(Load(kLanes16[0]), positions), hasFour);
        Store16(out, _mm512_mask_mov_epi16(first, static_cast<__mmask32>(replaced), Word(kReplacement)),
                count);
        if (count > 32) {
            const __m512i second =
                Units16(block.bytes, _mm512_permutexvar_epi8(Load(kLanes16[1]), positions), hasFour);
            Store16(out + 32,
                    _mm512_mask_mov_epi16(second, static_cast<__mmask32>(replaced >> 32), Word(kReplacement)),
                    count - 32);
        }
        done.read += masks.length;
        done.written += count;
    }
    return Finish(kTranscodePlain.utf8ToUtf16, done, src, length, dst, room);
}

Converted Utf8ToUtf32(const uint8_t* src, size_t length, uint32_t* dst, size_t room)
{
    Converted done{0, 0};
    while (done.read < length) {
        const Utf8Block block(src + done.read, length - done.read);
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
        const Utf8Masks masks = Describe(block.bytes, block.nonAscii, block.length, block.isLast);
        const size_t count = Bits(masks.starts);
        if (count > left) break;
        const __m512i positions = _mm512_maskz_compress_epi8(masks.starts, Load(kByteNumbers));
        const uint64_t replaced = _pext_u64(masks.illFormed | masks.beyond, masks.starts);
        for (size_t i = 0; 16 * i < count; ++i) {
            const __m512i units = Units32(block.bytes, _mm512_permutexvar_epi8(Load(kLanes32[i]), positions));
            Store32(
                out + 16 * i,
                _mm512_mask_mov_epi32(units, static_cast<__mmask16>(replaced >> 16 * i), Dword(kReplacement)),
                count - 16 * i);
        }
        done.read += masks.length;
        done.written += count;
    }
    return Finish(kTranscodePlain.utf8ToUtf32, done, src, length, dst, room);
}

template <bool kPairsCountTwice>
Utf8Count CountUtf8(const uint8_t* src, size_t length)
{
    Utf8Count count{0, 0};
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
        const Utf8Block block(src + read, length - read);
        const Utf8Masks masks = Describe(block.bytes, block.nonAscii, block.length, block.isLast);
        count.units += Bits(masks.starts);
        if (masks.four != 0) {
            if (kPairsCountTwice) count.units += Bits(masks.four & ~masks.beyond);
            count.beyond += Bits(masks.beyond);
        }
        read += masks.length;
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
            const auto join = [&next](__m512i units, __mmask16 highs, __m256i lows) {
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
