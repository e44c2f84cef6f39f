#include <vorn/runtime.h>

#include "core/base64.h"

using namespace vorn::detail;

extern "C" VornStatus VornBase64EncodeBuffer(const uint8_t* data, int32_t length, char* text,
                                             uint32_t* textSize)
{
    if (data == nullptr || length <= 0 || textSize == nullptr) return VORN_E_INVALID_ARG;
    const size_t bytes = static_cast<size_t>(length);
    *textSize = static_cast<uint32_t>(Base64EncodedSize(bytes));
    if (text != nullptr) Base64Encode(Widest<Base64Codec, Base64CodecFor>(), data, bytes, text);
    return VORN_OK;
}

extern "C" VornStatus VornBase64DecodeBuffer(const char* text, uint32_t length, uint8_t* data,
                                             uint32_t* dataSize)
{
    if (text == nullptr || length == 0 || dataSize == nullptr) return VORN_E_INVALID_ARG;
    *dataSize = static_cast<uint32_t>(Base64DecodedBound(text, length));
    if (data == nullptr) return VORN_OK;
    size_t written = 0;
    if (!Base64Decode(Widest<Base64Codec, Base64CodecFor>(), text, length, data, &written)) {
        return VORN_E_BAD_DATA;
    }
    *dataSize = static_cast<uint32_t>(written);
    return VORN_OK;
}
