// unit_text.h - UTF-16 text that works on every host: the C library behind std::wstring expects its own
// size of wchar_t, which is not everywhere that of a unit.
#ifndef VORN_TESTS_FILE_UNIT_TEXT_H
#define VORN_TESTS_FILE_UNIT_TEXT_H

#include <cstddef>
#include <string>

namespace vorn_test {

struct UnitTraits : std::char_traits<wchar_t> {
    static size_t length(const wchar_t* text)
    {
        size_t units = 0;
        while (text[units] != 0) ++units;
        return units;
    }
    static int compare(const wchar_t* a, const wchar_t* b, size_t count)
    {
        for (size_t i = 0; i < count; ++i) {
            if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
        }
        return 0;
    }
    static const wchar_t* find(const wchar_t* text, size_t count, const wchar_t& unit)
    {
        for (size_t i = 0; i < count; ++i) {
            if (text[i] == unit) return text + i;
        }
        return nullptr;
    }
    static wchar_t* move(wchar_t* to, const wchar_t* from, size_t count)
    {
        if (to <= from) return copy(to, from, count);
        while (count-- != 0) to[count] = from[count];
        return to;
    }
    static wchar_t* copy(wchar_t* to, const wchar_t* from, size_t count)
    {
        for (size_t i = 0; i < count; ++i) to[i] = from[i];
        return to;
    }
    static void assign(wchar_t& to, const wchar_t& from) { to = from; }
    static wchar_t* assign(wchar_t* to, size_t count, wchar_t unit)
    {
        for (size_t i = 0; i < count; ++i) to[i] = unit;
        return to;
    }
};

using UnitText = std::basic_string<wchar_t, UnitTraits>;

}  // namespace vorn_test

#endif
