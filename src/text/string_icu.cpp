// The operations on zero-terminated text that ICU does: comparison without case, case mapping, formatting.

#include <vorn/string.h>

#include <cstdarg>
#include <unicode/ustdio.h>
#include <unicode/ustring.h>

namespace {

const UChar* Icu(const wchar_t* text) noexcept
{
    return reinterpret_cast<const UChar*>(text);
}

UChar* Icu(wchar_t* text) noexcept
{
    return reinterpret_cast<UChar*>(text);
}

using CaseMapping = int32_t(UChar* dst, int32_t capacity, const UChar* src, int32_t length,
                            const char* locale, UErrorCode* error);

uint32_t MapCase(CaseMapping* map, wchar_t* dst, uint32_t* size, const wchar_t* src) noexcept
{
    UErrorCode error = U_ZERO_ERROR;
    const uint32_t needed = static_cast<uint32_t>(map(nullptr, 0, Icu(src), -1, nullptr, &error)) + 1;
    if (*size < needed) {
        *size = needed;
        return 0;
    }
    error = U_ZERO_ERROR;
    const int32_t capacity = *size > INT32_MAX ? INT32_MAX : static_cast<int32_t>(*size);
    return static_cast<uint32_t>(map(Icu(dst), capacity, Icu(src), -1, nullptr, &error));
}

}  // namespace

extern "C" int32_t VornStrICmp(const wchar_t* a, const wchar_t* b)
{
    UErrorCode error = U_ZERO_ERROR;
    return u_strCaseCompare(Icu(a), -1, Icu(b), -1, 0, &error);
}

extern "C" uint32_t VornStrToLower(wchar_t* dst, uint32_t* size, const wchar_t* src)
{
    return MapCase(u_strToLower, dst, size, src);
}

extern "C" uint32_t VornStrToUpper(wchar_t* dst, uint32_t* size, const wchar_t* src)
{
    return MapCase(u_strToUpper, dst, size, src);
}

extern "C" int32_t VornStrFormat(wchar_t* buffer, int32_t count, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = u_vsnprintf(Icu(buffer), count, format, arguments);
    va_end(arguments);
    return length;
}

extern "C" int32_t VornStrFormatU(wchar_t* buffer, int32_t count, const wchar_t* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = u_vsnprintf_u(Icu(buffer), count, Icu(format), arguments);
    va_end(arguments);
    return length;
}
