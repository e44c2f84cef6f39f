// unistr_support.h - what the tests of UniStr share: reading its text as a standard string.
#ifndef VORN_TESTS_TEXT_UNISTR_SUPPORT_H
#define VORN_TESTS_TEXT_UNISTR_SUPPORT_H

#include <vorn/unistr.hpp>

#include <gtest/gtest.h>
#include <string>

namespace unistr_test {

constexpr uint32_t kNpos = 0xFFFFFFFF;

// The units of the text by its length.
inline std::u16string Units(const vorn::UniStr& text)
{
    return std::u16string(static_cast<std::u16string_view>(text));
}

inline const wchar_t* Wide(const char16_t* text)
{
    return reinterpret_cast<const wchar_t*>(text);
}

// A string of n units that are all c.
inline vorn::UniStr Filled(uint32_t n, wchar_t c = L'a')
{
    vorn::UniStr text;
    text.Assign(n, c);
    return text;
}

// Expects the text, and that it is terminated.
#define EXPECT_TEXT(string, expected)                    \
    do {                                                 \
        EXPECT_EQ(unistr_test::Units(string), expected); \
        EXPECT_EQ((string)[(string).Size()], 0);         \
    } while (false)

// Expects the exception class and its message.
#define EXPECT_THROWS(statement, Class, message)   \
    do {                                           \
        try {                                      \
            statement;                             \
            ADD_FAILURE() << "nothing was thrown"; \
        } catch (const vorn::Class& e) {           \
            EXPECT_STREQ(e.What(), message);       \
        }                                          \
    } while (false)

#define EXPECT_OUT_OF_RANGE(statement) EXPECT_THROWS(statement, OutOfRange, "Out of range")

}  // namespace unistr_test

#endif
