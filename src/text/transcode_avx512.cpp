// The converters with AVX-512 VBMI2: 64 bytes or 16 to 32 units at a time. Reading UTF-8 is in a header of
// its own.
//
// To write UTF-8, each unit spreads its bytes over one lane, and the bytes in use are packed close together.
// Blocks that are cut short by the end of the text are loaded and stored under masks, so nothing outside the
// buffers is touched.

#include "text/transcode_avx512.h"

#include "text/transcode_avx512_utf8.h"

namespace vorn::detail {

namespace {

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
        // The other half of a high surrogate at the very end may begin the next block.
        const uint32_t deferred = left > 32 ? high >> 31 : 0;
        length -= deferred;
        const uint32_t lone = surrogates & ~(pairHighs | pairLows | deferred << 31);
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
            const __m512i unusedHalf = Dword(0xFFFF0000);
            first = _mm512_mask_or_epi32(first, static_cast<__mmask16>(pairs), unusedHalf,
                                         _mm512_cvtepu16_epi32(Lower(bytes)));
            second = _mm512_mask_or_epi32(second, static_cast<__mmask16>(pairs >> 16), unusedHalf,
                                          _mm512_cvtepu16_epi32(Upper(bytes)));
        }
        const uint32_t inText = static_cast<uint32_t>(LowBits(block.length));
        const __m512i unused = Dword(0xFFFFFFFF);
        first = _mm512_mask_mov_epi32(unused, static_cast<__mmask16>(inText), first);
        second = _mm512_mask_mov_epi32(unused, static_cast<__mmask16>(inText >> 16), second);
        const uint64_t keptFirst = _mm512_cmpneq_epu8_mask(first, Byte(kUnused));
        const uint64_t keptSecond = _mm512_cmpneq_epu8_mask(second, Byte(kUnused));
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

// Whether the next 128 units are ASCII.
bool IsAscii(const wchar_t* text)
{
    const __m512i any = _mm512_or_si512(_mm512_or_si512(Load(text), Load(text + 32)),
                                        _mm512_or_si512(Load(text + 64), Load(text + 96)));
    return _mm512_test_epi16_mask(any, Word(0xFF80)) == 0;
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
        if (kAsUtf8) {
            const uint32_t from80 = _mm512_cmpge_epu16_mask(units, Word(0x80));
            if (from80 == 0) {
                // ASCII adds nothing, and more of it is likely.
                while (length - read >= 32 + 128 && IsAscii(src + read + 32)) read += 128;
                continue;
            }
            const uint32_t from800 = _mm512_cmpge_epu16_mask(units, Word(0x800));
            count += Bits(from80) + Bits(from800);
            // Each half of a pair has been counted as three bytes and stands for two.
            if (from800 != 0) count -= 2 * CountPairs(units, src + read, left);
        } else {
            count -= CountPairs(units, src + read, left);
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
