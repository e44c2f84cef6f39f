#include "text.h"

#include <vorn/vorn.h>

namespace linestat {

std::string Utf8(const std::wstring& text)
{
    if (text.empty()) return {};
    const auto length = static_cast<uint32_t>(text.size());
    uint32_t size = 0;  // asks for the size
    VornUtf16ToUtf8(text.data(), length, nullptr, &size);
    std::string result(size, '\0');
    VornUtf16ToUtf8(text.data(), length, result.data(), &size);
    return result;
}

size_t Columns(const std::string& utf8)
{
    size_t columns = 0;
    for (char byte : utf8) columns += (static_cast<uint8_t>(byte) & 0xC0) != 0x80;
    return columns;
}

}  // namespace linestat
