// The converters with SSE4.1.

#include "core/vector_sse41.h"
#include "text/transcode_sizes.h"
#include "text/transcode_to_utf8.h"
#include "text/transcode_units.h"
#include "text/transcode_utf8.h"

namespace vorn::detail {

const TranscodeTable kTranscodeSse41{
    Utf8ToUtf16<Sse41>,       Utf8ToUtf32<Sse41>,      Utf16ToUtf32<Sse41>,     Utf16ToUtf8<Sse41>,
    Utf32ToUtf8<Sse41>,       Utf32ToUtf16<Sse41>,     CountUtf8<Sse41, true>,  CountUtf8<Sse41, false>,
    CountUtf16<Sse41, false>, CountUtf16<Sse41, true>, CountUtf32<Sse41, true>, CountUtf32<Sse41, false>,
};

}  // namespace vorn::detail
