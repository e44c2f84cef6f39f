// transcode_texts.h - random texts for the tests of the converters: of several scripts, and damaged.
#ifndef VORN_TESTS_TEXT_TRANSCODE_TEXTS_H
#define VORN_TESTS_TEXT_TRANSCODE_TEXTS_H

#include "text/transcode_model.h"

#include <random>

namespace vorn_test {

template <class Unit>
using Text = std::vector<Unit>;

// Random code points of a kind: 0 ASCII, 1 Latin with accents, 2 Cyrillic, 3 Chinese, 4 emoji, 5 Korean, 6
// anything.
inline uint32_t RandomCodePoint(std::mt19937& random, int kind)
{
    switch (kind) {
        case 0:
            return random() % 0x80;
        case 1:
            return random() % 4 == 0 ? 0xC0 + random() % 0x100 : 0x20 + random() % 0x60;
        case 2:
            return random() % 6 == 0 ? 0x20 : 0x400 + random() % 0x100;
        case 3:
            return random() % 20 == 0 ? 0x20 : 0x4E00 + random() % 0x5000;
        case 4:
            return random() % 4 == 0 ? 0x20 : 0x1F300 + random() % 0x300;
        case 5:
            return 0xAC00 + random() % 0x2BA4;
        default: {
            const uint32_t limits[] = {0x80, 0x800, 0x10000, 0x110000};
            const uint32_t codePoint = random() % limits[random() % 4];
            return codePoint >> 11 == 0x1B ? 0xE000 : codePoint;
        }
    }
}

template <class Unit>
Text<Unit> RandomText(std::mt19937& random, int kind, size_t length)
{
    Text<Unit> text;
    while (text.size() < length) {
        ModelWrite(RandomCodePoint(random, kind == 7 ? static_cast<int>(random() % 7) : kind), text);
    }
    return text;
}

template <class Unit>
void Damage(std::mt19937& random, Text<Unit>& text, size_t places)
{
    for (; places > 0 && !text.empty(); --places) {
        const size_t at = random() % text.size();
        switch (random() % 5) {
            case 0:
                text[at] = static_cast<Unit>(random());
                break;
            case 1:
                text.erase(text.begin() + static_cast<ptrdiff_t>(at));
                break;
            case 2:
                text[at] = static_cast<Unit>(0xDB80 + random() % 0x80);
                break;
            case 3: {
                // In UTF-8 a sequence above U+10FFFF.
                const Unit units[] = {static_cast<Unit>(0xF4), static_cast<Unit>(0x90 + random() % 0x30),
                                      static_cast<Unit>(0x80 + random() % 0x40), static_cast<Unit>(0x80)};
                text.insert(text.begin() + static_cast<ptrdiff_t>(at), units, units + 4);
                break;
            }
            default: {
                const Unit units[] = {static_cast<Unit>(0xF4),   static_cast<Unit>(0xED),
                                      static_cast<Unit>(0xE0),   static_cast<Unit>(0xF0),
                                      static_cast<Unit>(0x80),   static_cast<Unit>(0xDC00),
                                      static_cast<Unit>(0xD800), static_cast<Unit>(0x110000)};
                text[at] = units[random() % 8];
            }
        }
    }
}

}  // namespace vorn_test

#endif
