// unistr_failure_cases.h - every operation of UniStr that may allocate, each on a full string, and what has
// to hold when its allocation fails: std::bad_alloc passes and the string is what it was.
#ifndef VORN_TESTS_TEXT_UNISTR_FAILURE_CASES_H
#define VORN_TESTS_TEXT_UNISTR_FAILURE_CASES_H

#include "text/unistr_support.h"

#include <new>
#include <sstream>
#include <string>

namespace unistr_test {

struct FailureCase {
    const char* name;
    void (*edit)(vorn::UniStr& text);
};

// Sources that exist before any allocation fails.
inline const vorn::UniStr& Longer()
{
    static const vorn::UniStr longer = Filled(300, L'l');
    return longer;
}

inline const char* LongBytes()
{
    static const std::string bytes(300, 'b');
    return bytes.c_str();
}

inline const FailureCase kFailureCases[] = {
    {"UniStr()", [](vorn::UniStr&) { vorn::UniStr(); }},
    {"UniStr(s)", [](vorn::UniStr&) { vorn::UniStr(L"abc"); }},
    {"UniStr(s, n)", [](vorn::UniStr&) { vorn::UniStr(L"abc", 2); }},
    {"copy", [](vorn::UniStr& t) { vorn::UniStr copy(t); }},
    {"view", [](vorn::UniStr&) { vorn::UniStr(std::u16string_view(u"abc")); }},
    {"short bytes", [](vorn::UniStr&) { vorn::UniStr("abc"); }},
    {"long bytes", [](vorn::UniStr&) { vorn::UniStr text(LongBytes()); }},
    {"no bytes", [](vorn::UniStr&) { vorn::UniStr(""); }},
    {"= string", [](vorn::UniStr& t) { t = Longer(); }},
    {"= pointer", [](vorn::UniStr& t) { t = Longer().S_Str(); }},
    {"Assign(s, n)", [](vorn::UniStr& t) { t.Assign(Longer().S_Str(), 300); }},
    {"Assign(string)", [](vorn::UniStr& t) { t.Assign(Longer()); }},
    {"Assign(string, pos, n)", [](vorn::UniStr& t) { t.Assign(Longer(), 10, 200); }},
    {"Assign(n, c)", [](vorn::UniStr& t) { t.Assign(100, L'x'); }},
    {"Assign(range)", [](vorn::UniStr& t) { t.Assign(Longer().Begin(), Longer().End()); }},
    {"Assign(view)", [](vorn::UniStr& t) { t.Assign(std::wstring_view(Longer())); }},
    {"+= string", [](vorn::UniStr& t) { t += Longer(); }},
    {"+= itself", [](vorn::UniStr& t) { t += t; }},
    {"+= pointer", [](vorn::UniStr& t) { t += L"abc"; }},
    {"+= unit", [](vorn::UniStr& t) { t += L'x'; }},
    {"Append(s, n)", [](vorn::UniStr& t) { t.Append(L"abc", 2); }},
    {"Append(range)", [](vorn::UniStr& t) { t.Append(Longer().Begin(), Longer().End()); }},
    {"Insert(pos, s)", [](vorn::UniStr& t) { t.Insert(1, L"abc"); }},
    {"Insert(pos, s, n)", [](vorn::UniStr& t) { t.Insert(1, L"abc", 2); }},
    {"Insert(pos, string)", [](vorn::UniStr& t) { t.Insert(1, Longer()); }},
    {"Insert(pos, itself)", [](vorn::UniStr& t) { t.Insert(1, t); }},
    {"Insert(pos, string, opos, n)", [](vorn::UniStr& t) { t.Insert(1, Longer(), 1, 20); }},
    {"Insert(pos, n, c)", [](vorn::UniStr& t) { t.Insert(1, 5, L'x'); }},
    {"Insert(it, c)", [](vorn::UniStr& t) { t.Insert(t.Begin(), L'x'); }},
    {"Insert(it, range)", [](vorn::UniStr& t) { t.Insert(t.Begin(), Longer().Begin(), Longer().End()); }},
    {"Insert(it, n, c)", [](vorn::UniStr& t) { t.Insert(t.Begin(), 2, L'x'); }},
    {"Replace(pos, count, string)", [](vorn::UniStr& t) { t.Replace(1, 2, Longer()); }},
    {"Replace(pos, count, s)", [](vorn::UniStr& t) { t.Replace(1, 2, L"abc"); }},
    {"Replace(pos, count, s, n)", [](vorn::UniStr& t) { t.Replace(1, 1, L"abc", 2); }},
    {"Replace(pos, count, string, opos, n)", [](vorn::UniStr& t) { t.Replace(1, 1, Longer(), 1, 2); }},
    {"Replace by its own text, in place", [](vorn::UniStr& t) { t.Replace(1, 9, t, 3, 9); }},
    {"Replace(pos, count, n, c)", [](vorn::UniStr& t) { t.Replace(1, 1, 50, L'x'); }},
    {"Replace(range, string)", [](vorn::UniStr& t) { t.Replace(t.Begin(), t.End(), Longer()); }},
    {"Replace(range, n, c)", [](vorn::UniStr& t) { t.Replace(t.Begin(), t.End(), 50, L'x'); }},
    {"Resize", [](vorn::UniStr& t) { t.Resize(100, L'x'); }},
    {"Reserve", [](vorn::UniStr& t) { t.Reserve(100); }},
    {"Substring", [](vorn::UniStr& t) { t.Substring(1, 2); }},
    {"operator+", [](vorn::UniStr& t) { t + L"abc"; }},
    {"operator+, pointer first", [](vorn::UniStr& t) { L"abc" + t; }},
    {"ToUpper", [](vorn::UniStr& t) { t.ToUpper(); }},
    {"ToLower", [](vorn::UniStr& t) { t.ToLower(); }},
    {"C_Str", [](vorn::UniStr& t) { t.C_Str(); }},
    {"C_Str of a long text", [](vorn::UniStr&) { Longer().Substring(0, 250).C_Str(); }},
};

// Fails each allocation of each case in turn. `failNth(nth, body)` runs the body with its nth allocation
// failing and says whether it got that far. Returns the number of failures delivered.
template <typename FailNth>
int RunFailureCases(FailNth failNth)
{
    int delivered = 0;
    Longer();
    LongBytes();
    vorn::UniStr(LongBytes()).C_Str();  // what lives on between calls exists
    for (const FailureCase& one : kFailureCases) {
        SCOPED_TRACE(one.name);
        int nth = 1;
        for (;; ++nth) {
            vorn::UniStr text = Filled(31);
            bool thrown = false;
            const bool failed = failNth(nth, [&] {
                try {
                    one.edit(text);
                } catch (const std::bad_alloc&) {
                    thrown = true;
                }
            });
            EXPECT_EQ(thrown, failed);
            if (!failed) break;
            ++delivered;
            EXPECT_TEXT(text, std::u16string(31, u'a'));
            EXPECT_EQ(text.Capacity(), 31u);
            text += L"more";
            EXPECT_TEXT(text, std::u16string(31, u'a') + u"more");
            EXPECT_EQ(std::string(text.C_Str()), std::string(31, 'a') + "more");
        }
        EXPECT_GT(nth, 1) << "nothing was allocated";
    }
    return delivered;
}

// A text whose capacity can grow without a new buffer, into which a part of itself is inserted: what has to
// be allocated then is the copy of that part, and where that fails the capacity has not grown either.
template <typename FailNth>
void RunFailureOfTheCopyOfAPart(FailNth failNth)
{
    vorn::UniStr text = Filled(31);
    while (text.Size() < 151) text.Append(L"b", 1);
    ASSERT_EQ(text.Capacity(), 151u);
    const std::u16string before = Units(text);
    const wchar_t* const buffer = text.S_Str();
    bool thrown = false;
    EXPECT_TRUE(failNth(1, [&] {
        try {
            text.Insert(30, text.S_Str() + 29, 4);
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
    }));
    EXPECT_TRUE(thrown);
    EXPECT_TEXT(text, before);
    EXPECT_EQ(text.Capacity(), 151u);
    text.Insert(30, text.S_Str() + 29, 4);
    EXPECT_TEXT(text, std::u16string(30, u'a') + u"aabb" + u"a" + std::u16string(120, u'b'));
    EXPECT_EQ(text.Capacity(), 191u);
    EXPECT_EQ(text.S_Str(), buffer);
}

}  // namespace unistr_test

#endif
