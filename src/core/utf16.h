// utf16.h - lengths of zero-terminated UTF-16 text, where the C library's wide functions may count 4-byte
// units.
#ifndef VORN_CORE_UTF16_H
#define VORN_CORE_UTF16_H

#include "text/terminated.h"

namespace vorn::detail {

// Units before the terminating zero.
inline size_t LengthUnits(const wchar_t* text) noexcept
{
    static_assert(sizeof(wchar_t) == 2, "text is UTF-16");
    return TerminatedLength(text);
}

}  // namespace vorn::detail

#endif
