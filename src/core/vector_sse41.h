// vector_sse41.h - the operations of SSE4.1 under the names that code for several vector units uses: 16
// bytes, one lane of 16. vector_avx2.h has the same for AVX2.
//
// Only for source files that are compiled for SSE4.1 or more; without linkage. Numbers in the names are the
// bits of an element. Comparisons give elements of all ones or zero. AtLeast, AtMost, Max and SubtractClamped
// see unsigned elements, Greater signed ones.
#ifndef VORN_CORE_VECTOR_SSE41_H
#define VORN_CORE_VECTOR_SSE41_H

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace vorn::detail {

namespace {

struct Sse41 {
    using V = __m128i;
    static constexpr size_t kBytes = 16;
    static constexpr size_t kLanes = 1;

    static V Load(const void* from) { return _mm_loadu_si128(static_cast<const V*>(from)); }
    static void Store(void* to, V a) { _mm_storeu_si128(static_cast<V*>(to), a); }
    static V Zero() { return _mm_setzero_si128(); }
    static V Set8(int value) { return _mm_set1_epi8(static_cast<char>(value)); }
    static V Set16(int value) { return _mm_set1_epi16(static_cast<short>(value)); }
    static V Set32(uint32_t value) { return _mm_set1_epi32(static_cast<int>(value)); }

    static V And(V a, V b) { return _mm_and_si128(a, b); }
    static V AndNot(V a, V b) { return _mm_andnot_si128(a, b); }  // b without a
    static V Or(V a, V b) { return _mm_or_si128(a, b); }
    static V Xor(V a, V b) { return _mm_xor_si128(a, b); }
    static V Choose(V otherwise, V chosen, V where) { return _mm_blendv_epi8(otherwise, chosen, where); }

    static V Equal8(V a, V b) { return _mm_cmpeq_epi8(a, b); }
    static V Equal16(V a, V b) { return _mm_cmpeq_epi16(a, b); }
    static V Equal32(V a, V b) { return _mm_cmpeq_epi32(a, b); }
    static V Greater8(V a, V b) { return _mm_cmpgt_epi8(a, b); }
    static V Greater16(V a, V b) { return _mm_cmpgt_epi16(a, b); }
    static V Greater32(V a, V b) { return _mm_cmpgt_epi32(a, b); }
    static V AtLeast16(V a, int least) { return Equal16(_mm_max_epu16(a, Set16(least)), a); }
    static V AtLeast32(V a, uint32_t least) { return Equal32(_mm_max_epu32(a, Set32(least)), a); }
    static V AtMost32(V a, uint32_t most) { return _mm_min_epu32(a, Set32(most)); }
    static V Max8(V a, V b) { return _mm_max_epu8(a, b); }
    static bool IsZero(V a) { return _mm_testz_si128(a, a) != 0; }
    static bool HaveNone(V a, V bits) { return _mm_testz_si128(a, bits) != 0; }
    static uint32_t SignBits8(V a) { return static_cast<uint32_t>(_mm_movemask_epi8(a)); }

    static V Add8(V a, V b) { return _mm_add_epi8(a, b); }
    static V Add16(V a, V b) { return _mm_add_epi16(a, b); }
    static V Subtract16(V a, V b) { return _mm_sub_epi16(a, b); }
    static V Subtract32(V a, V b) { return _mm_sub_epi32(a, b); }
    static V SubtractClamped8(V a, V b) { return _mm_subs_epu8(a, b); }
    static V MultiplyAdd8(V a, V b) { return _mm_maddubs_epi16(a, b); }  // a unsigned, b signed
    static V MultiplyAdd16(V a, V b) { return _mm_madd_epi16(a, b); }
    static V MultiplyLow16(V a, V b) { return _mm_mullo_epi16(a, b); }
    static V MultiplyHigh16(V a, V b) { return _mm_mulhi_epu16(a, b); }  // unsigned
    static V Add32(V a, V b) { return _mm_add_epi32(a, b); }
    static V ShiftLeft16(V a, int bits) { return _mm_slli_epi16(a, bits); }
    static V ShiftRight16(V a, int bits) { return _mm_srli_epi16(a, bits); }
    static V ShiftRightSigned16(V a, int bits) { return _mm_srai_epi16(a, bits); }
    static V ShiftRight32(V a, int bits) { return _mm_srli_epi32(a, bits); }
    // The sum of all bytes.
    static uint64_t Sum8(V a)
    {
        const V sums = _mm_sad_epu8(a, Zero());
        return static_cast<uint64_t>(_mm_cvtsi128_si64(sums)) +
               static_cast<uint64_t>(_mm_extract_epi64(sums, 1));
    }

    // The elements of both, narrowed; those of `a` come first. What is out of range becomes the nearest
    // value.
    static V Pack16(V a, V b) { return _mm_packus_epi16(a, b); }
    // Within each lane: the signed elements narrowed, and as many zeros.
    static V PackSigned16(V a) { return _mm_packs_epi16(a, Zero()); }
    static V Pack32(V a, V b) { return _mm_packus_epi32(a, b); }

    // What lies `count` bytes before each byte of `a`, which follows `before`.
    template <int count>
    static V Earlier(V a, V before)
    {
        return _mm_alignr_epi8(a, before, 16 - count);
    }

    // Within each lane: the bytes at the positions `at`, zero where the sign bit of a position is set.
    static V Shuffle(V bytes, V at) { return _mm_shuffle_epi8(bytes, at); }
    // Pairs of elements, one of each, from the lower and from the upper half of each lane.
    static V InterleaveLow16(V a, V b) { return _mm_unpacklo_epi16(a, b); }
    static V InterleaveHigh16(V a, V b) { return _mm_unpackhi_epi16(a, b); }
    static V EveryLane(__m128i lane) { return lane; }
    static V Join(__m128i first, __m128i) { return first; }
    template <int number>
    static __m128i Lane(V a)
    {
        static_assert(number == 0);
        return a;
    }
    static V LoadLanes(const void* first, const void*) { return Load(first); }
    static void StoreLanes(V lanes, void* first, void*) { Store(first, lanes); }

    // 16 bytes as 16 elements of 16 bits, and each lane of 16-bit elements as eight of 32 bits.
    static void StoreWide16(void* to, __m128i bytes)
    {
        Store(to, _mm_unpacklo_epi8(bytes, Zero()));
        Store(static_cast<V*>(to) + 1, _mm_unpackhi_epi8(bytes, Zero()));
    }
    static void StoreWide32(V lanes, void* first, void*)
    {
        Store(first, _mm_unpacklo_epi16(lanes, Zero()));
        Store(static_cast<V*>(first) + 1, _mm_unpackhi_epi16(lanes, Zero()));
    }
};

}  // namespace

}  // namespace vorn::detail

#endif
