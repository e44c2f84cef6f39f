// transcode_avx512.h - what the converters with AVX-512 VBMI2 share: constants, stores of a part of a vector,
// and the way out when there is no room. Only for transcode_avx512.cpp and the headers that it is made of;
// without linkage.
#ifndef VORN_TEXT_TRANSCODE_AVX512_H
#define VORN_TEXT_TRANSCODE_AVX512_H

#include "text/transcode.h"
#include "text/transcode_finish.h"

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

}  // namespace

}  // namespace vorn::detail

#endif
