// Base64 with AVX2.

#include "core/base64_lanes.h"
#include "core/vector_avx2.h"

namespace vorn::detail {

const Base64Codec kBase64Avx2{EncodeLines<Avx2>, DecodeGroups<Avx2>};

}  // namespace vorn::detail
