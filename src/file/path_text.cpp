#include "file/path_text.h"

#include "core/win32.h"

#include "core/system_error.h"

#include <cstring>

namespace vorn::detail {

Buffer<wchar_t> Concatenate(const wchar_t* first, size_t firstUnits, const wchar_t* second,
                            size_t secondUnits) noexcept
{
    Buffer<wchar_t> text(firstUnits + secondUnits + 1);
    if (!text) return text;
    std::memcpy(text.Get(), first, firstUnits * sizeof(wchar_t));
    std::memcpy(text.Get() + firstUnits, second, secondUnits * sizeof(wchar_t));
    text[firstUnits + secondUnits] = 0;
    return text;
}

VornStatus CurrentDirectoryPrefix(Buffer<wchar_t>* prefix) noexcept
{
    // Another thread may change the directory between the two questions: then the longer text is asked for.
    for (DWORD size = GetCurrentDirectoryW(0, nullptr); size != 0;) {
        Buffer<wchar_t> text(size_t{size} + 1);  // one more for the backslash
        if (!text) return VORN_E_NO_MEMORY;
        DWORD units = GetCurrentDirectoryW(size, text.Get());
        if (units >= size) {
            size = units;
            continue;
        }
        if (units == 0) break;
        if (text[units - 1] != L'\\') text[units++] = L'\\';
        text[units] = 0;
        *prefix = std::move(text);
        return VORN_OK;
    }
    return StatusFromSystemError(GetLastError());
}

}  // namespace vorn::detail
