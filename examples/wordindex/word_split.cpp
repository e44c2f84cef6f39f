#include "word_split.h"

#include <array>

namespace wordindex {

namespace {

struct Range {
    uint32_t first;
    uint32_t last;
};

// Code points from U+0080 on that are part of words, in order.
constexpr Range kWordRanges[] = {
    {0x00AA, 0x00AA},   {0x00B5, 0x00B5},    // feminine ordinal, micro
    {0x00BA, 0x00BA},   {0x00C0, 0x00D6},    // masculine ordinal, letters up to the multiplication sign
    {0x00D8, 0x00F6},   {0x00F8, 0x1FFF},    // letters and marks up to general punctuation
    {0x2C00, 0x2DFF},   {0x2E80, 0x2FFF},    // further letters, CJK radicals
    {0x3005, 0x3007},   {0x3040, 0xD7FF},    // CJK iteration marks, kana, ideographs, Hangul
    {0xF900, 0xFDFF},   {0xFE70, 0xFEFC},    // compatibility forms
    {0xFF10, 0xFF19},   {0xFF21, 0xFF3A},    // fullwidth digits and capitals
    {0xFF41, 0xFF5A},   {0xFF66, 0xFFDC},    // fullwidth small letters, halfwidth kana and Hangul
    {0x10000, 0x1EFFF}, {0x20000, 0x3FFFF},  // further scripts, further ideographs; emoji lie between
};

constexpr std::array<bool, 128> MakeAsciiWordUnits()
{
    std::array<bool, 128> units{};
    for (int unit = '0'; unit <= '9'; ++unit) units[unit] = true;
    for (int unit = 'A'; unit <= 'Z'; ++unit) units[unit] = true;
    for (int unit = 'a'; unit <= 'z'; ++unit) units[unit] = true;
    return units;
}
constexpr std::array<bool, 128> kAsciiWordUnits = MakeAsciiWordUnits();

bool IsWordPoint(uint32_t point)
{
    for (const Range& range : kWordRanges) {
        if (point <= range.last) return point >= range.first;
    }
    return false;
}

// How many units of a word's character stand at `position`; 0 when none does.
size_t WordUnitsAt(const wchar_t* text, size_t length, size_t position)
{
    const uint32_t unit = static_cast<uint16_t>(text[position]);
    if (unit < 0x80) return kAsciiWordUnits[unit] ? 1 : 0;
    if ((unit & 0xF800) != 0xD800) return IsWordPoint(unit) ? 1 : 0;
    if (unit >= 0xDC00 || position + 1 == length) return 0;  // half of a pair
    const uint32_t trail = static_cast<uint16_t>(text[position + 1]);
    if ((trail & 0xFC00) != 0xDC00) return 0;
    return IsWordPoint(0x10000 + ((unit - 0xD800) << 10) + (trail - 0xDC00)) ? 2 : 0;
}

}  // namespace

bool NextWord(const wchar_t* text, size_t length, size_t* position, Word* word)
{
    size_t at = *position;
    while (at < length && WordUnitsAt(text, length, at) == 0) ++at;
    const size_t start = at;
    uint32_t seen = 0;
    while (at < length) {
        const size_t units = WordUnitsAt(text, length, at);
        if (units == 0) break;
        seen |= static_cast<uint16_t>(text[at]);
        at += units;
    }
    *position = at;
    *word = {text + start, at - start, seen < 0x80};
    return at != start;
}

}  // namespace wordindex
