// unit_string.h - std::basic_string over UTF-16 units that also works on the host, where the C library's and
// the standard library's own wide functions take wchar_t for four bytes.
#ifndef VORN_TESTS_TEXT_UNIT_STRING_H
#define VORN_TESTS_TEXT_UNIT_STRING_H

#include <algorithm>
#include <cstring>
#include <string>

namespace vorn_test {

struct UnitTraits : std::char_traits<wchar_t> {
    static size_t length(const wchar_t* s)
    {
        size_t units = 0;
        while (s[units] != 0) ++units;
        return units;
    }
    static int compare(const wchar_t* a, const wchar_t* b, size_t n)
    {
        for (size_t i = 0; i < n; ++i) {
            if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
        }
        return 0;
    }
    static const wchar_t* find(const wchar_t* s, size_t n, const wchar_t& c)
    {
        const wchar_t* const found = std::find(s, s + n, c);
        return found == s + n ? nullptr : found;
    }
    static wchar_t* copy(wchar_t* to, const wchar_t* from, size_t n) { return std::copy_n(from, n, to), to; }
    static wchar_t* move(wchar_t* to, const wchar_t* from, size_t n)
    {
        return static_cast<wchar_t*>(std::memmove(to, from, n * sizeof(wchar_t)));
    }
    static wchar_t* assign(wchar_t* s, size_t n, wchar_t c) { return std::fill_n(s, n, c), s; }
    static void assign(wchar_t& to, const wchar_t& from) { to = from; }
};

using UnitString = std::basic_string<wchar_t, UnitTraits>;

}  // namespace vorn_test

#endif
