// The converters with AVX2.

#include "text/transcode_blocks.h"
#include "text/transcode_units.h"

namespace vorn::detail {

namespace {

// The operations of transcode_blocks.h on 32 bytes, two lanes of 16.
struct Avx2 {
    using V = __m256i;
    static constexpr size_t kBytes = 32;
    static constexpr size_t kLanes = 2;

    static V Load(const void* from) { return _mm256_loadu_si256(static_cast<const V*>(from)); }
    static V Set8(int value) { return _mm256_set1_epi8(static_cast<char>(value)); }
    static V Set16(int value) { return _mm256_set1_epi16(static_cast<short>(value)); }
    static V Set32(int value) { return _mm256_set1_epi32(value); }

    static V And(V a, V b) { return _mm256_and_si256(a, b); }
    static V AndNot(V a, V b) { return _mm256_andnot_si256(a, b); }  // b without a
    static V Or(V a, V b) { return _mm256_or_si256(a, b); }
    static V Choose(V otherwise, V chosen, V where) { return _mm256_blendv_epi8(otherwise, chosen, where); }

    static V Equal8(V a, V b) { return _mm256_cmpeq_epi8(a, b); }
    static V Equal16(V a, V b) { return _mm256_cmpeq_epi16(a, b); }
    static V Greater8(V a, V b) { return _mm256_cmpgt_epi8(a, b); }
    static V Greater16(V a, V b) { return _mm256_cmpgt_epi16(a, b); }
    static V Greater32(V a, V b) { return _mm256_cmpgt_epi32(a, b); }
    static V From16(V a, int least) { return Equal16(_mm256_max_epu16(a, Set16(least)), a); }  // unsigned
    static V From32(V a, uint32_t least)
    {
        return _mm256_cmpeq_epi32(_mm256_max_epu32(a, Set32(static_cast<int>(least))), a);
    }
    static uint32_t SignBits(V a) { return static_cast<uint32_t>(_mm256_movemask_epi8(a)); }

    static V Add16(V a, V b) { return _mm256_add_epi16(a, b); }
    static V MultiplyAdd8(V a, V b) { return _mm256_maddubs_epi16(a, b); }
    static V MultiplyAdd16(V a, V b) { return _mm256_madd_epi16(a, b); }
    static V ShiftLeft16(V a, int bits) { return _mm256_slli_epi16(a, bits); }
    static V ShiftRight16(V a, int bits) { return _mm256_srli_epi16(a, bits); }
    static V ShiftRight32(V a, int bits) { return _mm256_srli_epi32(a, bits); }

    static V Gather(V bytes, V at) { return _mm256_shuffle_epi8(bytes, at); }
    static V Join(__m128i first, __m128i second) { return _mm256_set_m128i(second, first); }
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
};

}  // namespace

const TranscodeTable kTranscodeAvx2{
    Utf8ToUtf16<Avx2>,
    Utf8ToUtf32<Avx2>,
    Utf16ToUtf32,
    Utf16ToUtf8,
    Utf32ToUtf8,
    Utf32ToUtf16,
    CountUtf8<Avx2, true>,
    CountUtf8<Avx2, false>,
    CountUtf16<Avx2, false>,
    CountUtf16<Avx2, true>,
    CountUtf32<Avx2, true>,
    CountUtf32<Avx2, false>,
};

}  // namespace vorn::detail
