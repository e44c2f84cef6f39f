// Base64 with SSE4.1.

#include "core/base64_lanes.h"
#include "core/vector_sse41.h"

namespace vorn::detail {

const Base64Codec kBase64Sse41{EncodeLines<Sse41>, DecodeGroups<Sse41>};

}  // namespace vorn::detail
