// utf16_text.h - the tests' UTF-16 literals as the library's wide text. On the host the C library's wide
// strings have 4-byte units, so std::wstring is of no use there.
#ifndef VORN_TESTS_PROC_UTF16_TEXT_H
#define VORN_TESTS_PROC_UTF16_TEXT_H

#include <string>

namespace vorn_test {

inline const wchar_t* Wide(const char16_t* text)
{
    return reinterpret_cast<const wchar_t*>(text);
}
inline const wchar_t* Wide(const std::u16string& text)
{
    return Wide(text.c_str());
}
inline std::u16string Narrowed(const wchar_t* text)
{
    return reinterpret_cast<const char16_t*>(text);
}

}  // namespace vorn_test

#endif
