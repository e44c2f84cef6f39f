// text.h - between the UTF-16 of names and the UTF-8 of what is printed.
#ifndef LINESTAT_TEXT_H
#define LINESTAT_TEXT_H

#include <cstdint>
#include <string>

namespace linestat {

std::string Utf8(const std::wstring& text);

// How many columns a UTF-8 text takes, one for each code point.
size_t Columns(const std::string& utf8);

}  // namespace linestat

#endif
