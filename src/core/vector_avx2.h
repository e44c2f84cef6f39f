// vector_avx2.h - the operations of AVX2 under the names that code for several vector units uses: 32 bytes,
// two lanes of 16. See vector_sse41.h. Only for source files that are compiled for AVX2; without linkage.
#ifndef VORN_CORE_VECTOR_AVX2_H
#define VORN_CORE_VECTOR_AVX2_H

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace vorn::detail {

namespace {

struct Avx2 {
    using V = __m256i;
    static constexpr size_t kBytes = 32;
    static constexpr size_t kLanes = 2;

    static V Load(const void* from) { return _mm256_loadu_si256(static_cast<const V*>(from)); }
    static void Store(void* to, V a) { _mm256_storeu_si256(static_cast<V*>(to), a); }
    static V Zero() { return _mm256_setzero_si256(); }
    static V Set8(int value) { return _mm256_set1_epi8(static_cast<char>(value)); }
    static V Set16(int value) { return _mm256_set1_epi16(static_cast<short>(value)); }
    static V Set32(uint32_t value) { return _mm256_set1_epi32(static_cast<int>(value)); }

    static V And(V a, V b) { return _mm256_and_si256(a, b); }
    static V AndNot(V a, V b) { return _mm256_andnot_si256(a, b); }  // b without a
    static V Or(V a, V b) { return _mm256_or_si256(a, b); }
    static V Xor(V a, V b) { return _mm256_xor_si256(a, b); }
    static V Choose(V otherwise, V chosen, V where) { return _mm256_blendv_epi8(otherwise, chosen, where); }

    static V Equal8(V a, V b) { return _mm256_cmpeq_epi8(a, b); }
    static V Equal16(V a, V b) { return _mm256_cmpeq_epi16(a, b); }
    static V Equal32(V a, V b) { return _mm256_cmpeq_epi32(a, b); }
    static V Greater8(V a, V b) { return _mm256_cmpgt_epi8(a, b); }
    static V Greater16(V a, V b) { return _mm256_cmpgt_epi16(a, b); }
    static V Greater32(V a, V b) { return _mm256_cmpgt_epi32(a, b); }
    static V AtLeast16(V a, int least) { return Equal16(_mm256_max_epu16(a, Set16(least)), a); }
    static V AtLeast32(V a, uint32_t least) { return Equal32(_mm256_max_epu32(a, Set32(least)), a); }
    static V AtMost32(V a, uint32_t most) { return _mm256_min_epu32(a, Set32(most)); }
    static V Max8(V a, V b) { return _mm256_max_epu8(a, b); }
    static bool IsZero(V a) { return _mm256_testz_si256(a, a) != 0; }
    static bool HaveNone(V a, V bits) { return _mm256_testz_si256(a, bits) != 0; }
    static uint32_t SignBits8(V a) { return static_cast<uint32_t>(_mm256_movemask_epi8(a)); }

    static V Add8(V a, V b) { return _mm256_add_epi8(a, b); }
    static V Add16(V a, V b) { return _mm256_add_epi16(a, b); }
    static V Subtract16(V a, V b) { return _mm256_sub_epi16(a, b); }
    static V Subtract32(V a, V b) { return _mm256_sub_epi32(a, b); }
    static V SubtractClamped8(V a, V b) { return _mm256_subs_epu8(a, b); }
    static V MultiplyAdd8(V a, V b) { return _mm256_maddubs_epi16(a, b); }  // a unsigned, b signed
    static V MultiplyAdd16(V a, V b) { return _mm256_madd_epi16(a, b); }
    static V MultiplyLow16(V a, V b) { return _mm256_mullo_epi16(a, b); }
    static V MultiplyHigh16(V a, V b) { return _mm256_mulhi_epu16(a, b); }  // unsigned
    static V Add32(V a, V b) { return _mm256_add_epi32(a, b); }
    static V ShiftLeft16(V a, int bits) { return _mm256_slli_epi16(a, bits); }
    static V ShiftRight16(V a, int bits) { return _mm256_srli_epi16(a, bits); }
    static V ShiftRightSigned16(V a, int bits) { return _mm256_srai_epi16(a, bits); }
    static V ShiftRight32(V a, int bits) { return _mm256_srli_epi32(a, bits); }
    static uint64_t Sum8(V a)
    {
        const V sums = _mm256_sad_epu8(a, Zero());
        const __m128i both = _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
        return static_cast<uint64_t>(_mm_cvtsi128_si64(both)) +
               static_cast<uint64_t>(_mm_extract_epi64(both, 1));
    }

    static V Pack16(V a, V b) { return InOrder(_mm256_packus_epi16(a, b)); }
    // Within each lane: the signed elements narrowed, and as many zeros.
    static V PackSigned16(V a) { return _mm256_packs_epi16(a, Zero()); }
    static V Pack32(V a, V b) { return InOrder(_mm256_packus_epi32(a, b)); }

    template <int count>
    static V Earlier(V a, V before)
    {
        return _mm256_alignr_epi8(a, _mm256_permute2x128_si256(before, a, 0x21), 16 - count);
    }

    static V Shuffle(V bytes, V at) { return _mm256_shuffle_epi8(bytes, at); }
    // Pairs of elements, one of each, from the lower and from the upper half of each lane.
    static V InterleaveLow16(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
    static V InterleaveHigh16(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
    static V EveryLane(__m128i lane) { return _mm256_broadcastsi128_si256(lane); }
    static V Join(__m128i first, __m128i second) { return _mm256_set_m128i(second, first); }
    template <int number>
    static __m128i Lane(V a)
    {
        return _mm256_extracti128_si256(a, number);
    }
    static V LoadLanes(const void* first, const void* second)
    {
        return Join(_mm_loadu_si128(static_cast<const __m128i*>(first)),
                    _mm_loadu_si128(static_cast<const __m128i*>(second)));
    }
    static void StoreLanes(V lanes, void* first, void* second)
    {
        _mm_storeu_si128(static_cast<__m128i*>(first), _mm256_castsi256_si128(lanes));
        _mm_storeu_si128(static_cast<__m128i*>(second), _mm256_extracti128_si256(lanes, 1));
    }

    static void StoreWide16(void* to, __m128i bytes) { Store(to, _mm256_cvtepu8_epi16(bytes)); }
    static void StoreWide32(V lanes, void* first, void* second)
    {
        Store(first, _mm256_cvtepu16_epi32(_mm256_castsi256_si128(lanes)));
        Store(second, _mm256_cvtepu16_epi32(_mm256_extracti128_si256(lanes, 1)));
    }

private:
    // A pack works lane by lane.
    static V InOrder(V packed) { return _mm256_permute4x64_epi64(packed, 0xD8); }
};

}  // namespace

}  // namespace vorn::detail

#endif
