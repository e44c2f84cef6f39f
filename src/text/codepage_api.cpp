// The exported conversions between UTF-16 and the default code page.

#include <vorn/conversion.h>

#include "text/codepage_converter.h"

using vorn::detail::CodepageConverter;

namespace {

// ICU counts in signed numbers; a larger capacity is as good as its largest.
int32_t Capacity(uint32_t size) noexcept
{
    return size > INT32_MAX ? INT32_MAX : static_cast<int32_t>(size);
}

VornStatus Outcome(int32_t length, UErrorCode error, uint32_t* size) noexcept
{
    *size = static_cast<uint32_t>(length);
    if (error == U_BUFFER_OVERFLOW_ERROR) return VORN_E_BUFFER_TOO_SMALL;
    return U_FAILURE(error) ? VORN_E_CONVERTER : VORN_OK;
}

}  // namespace

extern "C" VornStatus VornCodepageToUtf16(const char* src, int32_t srcLength, wchar_t* dst, uint32_t* size)
{
    const CodepageConverter converter;
    if (!converter) return VORN_E_CONVERSION;
    UErrorCode error = U_ZERO_ERROR;
    const int32_t length = ucnv_toUChars(converter.Get(), reinterpret_cast<UChar*>(dst), Capacity(*size), src,
                                         srcLength, &error);
    return Outcome(length, error, size);
}

extern "C" VornStatus VornUtf16ToCodepage(const wchar_t* src, int32_t srcLength, char* dst, uint32_t* size)
{
    const CodepageConverter converter;
    if (!converter) return VORN_E_CONVERSION;
    UErrorCode error = U_ZERO_ERROR;
    const int32_t length = ucnv_fromUChars(converter.Get(), dst, Capacity(*size),
                                           reinterpret_cast<const UChar*>(src), srcLength, &error);
    return Outcome(length, error, size);
}
