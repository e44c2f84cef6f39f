// The converters with SSE4.1.

#include "text/transcode_blocks.h"
#include "text/transcode_units.h"

namespace vorn::detail {

namespace {

// The operations of transcode_blocks.h on 16 bytes, one lane of 16.
struct Sse41 {
    using V = __m128i;
    static constexpr size_t kBytes = 16;
    static constexpr size_t kLanes = 1;

    static V Load(const void* from) { return _mm_loadu_si128(static_cast<const V*>(from)); }
    static V Set8(int value) { return _mm_set1_epi8(static_cast<char>(value)); }
    static V Set16(int value) { return _mm_set1_epi16(static_cast<short>(value)); }
    static V Set32(int value) { return _mm_set1_epi32(value); }

    static V And(V a, V b) { return _mm_and_si128(a, b); }
    static V AndNot(V a, V b) { return _mm_andnot_si128(a, b); }  // b without a
    static V Or(V a, V b) { return _mm_or_si128(a, b); }
    static V Choose(V otherwise, V chosen, V where) { return _mm_blendv_epi8(otherwise, chosen, where); }

    static V Equal8(V a, V b) { return _mm_cmpeq_epi8(a, b); }
    static V Equal16(V a, V b) { return _mm_cmpeq_epi16(a, b); }
    static V Greater8(V a, V b) { return _mm_cmpgt_epi8(a, b); }
    static V Greater16(V a, V b) { return _mm_cmpgt_epi16(a, b); }
    static V Greater32(V a, V b) { return _mm_cmpgt_epi32(a, b); }
    static V From16(V a, int least) { return Equal16(_mm_max_epu16(a, Set16(least)), a); }  // unsigned
    static V From32(V a, uint32_t least)
    {
        return _mm_cmpeq_epi32(_mm_max_epu32(a, Set32(static_cast<int>(least))), a);
    }
    static uint32_t SignBits(V a) { return static_cast<uint32_t>(_mm_movemask_epi8(a)); }

    static V Add16(V a, V b) { return _mm_add_epi16(a, b); }
    static V MultiplyAdd8(V a, V b) { return _mm_maddubs_epi16(a, b); }
    static V MultiplyAdd16(V a, V b) { return _mm_madd_epi16(a, b); }
    static V ShiftLeft16(V a, int bits) { return _mm_slli_epi16(a, bits); }
    static V ShiftRight16(V a, int bits) { return _mm_srli_epi16(a, bits); }
    static V ShiftRight32(V a, int bits) { return _mm_srli_epi32(a, bits); }

    static V Gather(V bytes, V at) { return _mm_shuffle_epi8(bytes, at); }
    static V Join(__m128i first, __m128i) { return first; }
    static V LoadLanes(const void* first, const void*) { return Load(first); }
    static void StoreLanes(V lanes, void* first, void*) { _mm_storeu_si128(static_cast<V*>(first), lanes); }
};

}  // namespace

const TranscodeTable kTranscodeSse41{
    Utf8ToUtf16<Sse41>,
    Utf8ToUtf32<Sse41>,
    Utf16ToUtf32,
    Utf16ToUtf8,
    Utf32ToUtf8,
    Utf32ToUtf16,
    CountUtf8<Sse41, true>,
    CountUtf8<Sse41, false>,
    CountUtf16<Sse41, false>,
    CountUtf16<Sse41, true>,
    CountUtf32<Sse41, true>,
    CountUtf32<Sse41, false>,
};

}  // namespace vorn::detail
