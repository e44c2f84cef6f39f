// The converters with AVX2.

#include "core/vector_avx2.h"
#include "text/transcode_sizes.h"
#include "text/transcode_to_utf8.h"
#include "text/transcode_units.h"
#include "text/transcode_utf8.h"

namespace vorn::detail {

const TranscodeTable kTranscodeAvx2{
    Utf8ToUtf16<Avx2>,       Utf8ToUtf32<Avx2>,      Utf16ToUtf32<Avx2>,     Utf16ToUtf8<Avx2>,
    Utf32ToUtf8<Avx2>,       Utf32ToUtf16<Avx2>,     CountUtf8<Avx2, true>,  CountUtf8<Avx2, false>,
    CountUtf16<Avx2, false>, CountUtf16<Avx2, true>, CountUtf32<Avx2, true>, CountUtf32<Avx2, false>,
};

}  // namespace vorn::detail
