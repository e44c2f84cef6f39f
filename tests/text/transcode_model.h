// transcode_model.h - the six converters and their size contract once more, slow and separate from the
// library: characters are read into a list, written one by one, and counted by writing them.
#ifndef VORN_TESTS_TEXT_TRANSCODE_MODEL_H
#define VORN_TESTS_TEXT_TRANSCODE_MODEL_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vorn_test {

struct ModelCharacter {
    uint32_t codePoint;  // 0xFFFD for ill-formed input
    bool isBeyond;       // a four-byte sequence above U+10FFFF; codePoint is 0xFFFD then
    bool isIllFormed;
};

inline std::vector<ModelCharacter> ModelRead(const std::vector<uint8_t>& text)
{
    struct Row {
        unsigned leadFrom, leadTo, secondFrom, secondTo;
        size_t length;
    };
    static constexpr Row kRows[] = {
        {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
        {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
        {0xF1, 0xF4, 0x80, 0xBF, 4},
    };
    std::vector<ModelCharacter> characters;
    size_t at = 0;
    while (at < text.size()) {
        if (text[at] <= 0x7F) {
            characters.push_back({text[at++], false, false});
            continue;
        }
        size_t length = 0;
        for (const Row& row : kRows) {
            if (text[at] < row.leadFrom || text[at] > row.leadTo || at + row.length > text.size()) continue;
            bool fits = text[at + 1] >= row.secondFrom && text[at + 1] <= row.secondTo;
            for (size_t i = 2; i < row.length; ++i)
                fits = fits && text[at + i] >= 0x80 && text[at + i] <= 0xBF;
            if (fits) length = row.length;
        }
        if (length == 0) {
            characters.push_back({0xFFFD, false, true});
            ++at;
            continue;
        }
        uint32_t value = text[at] % (1u << (7 - length));
        for (size_t i = 1; i < length; ++i) value = value * 64 + text[at + i] % 64;
        const bool isBeyond = value > 0x10FFFF;
        characters.push_back({isBeyond ? 0xFFFD : value, isBeyond, false});
        at += length;
    }
    return characters;
}

inline std::vector<ModelCharacter> ModelRead(const std::vector<wchar_t>& text)
{
    std::vector<ModelCharacter> characters;
    for (size_t at = 0; at < text.size(); ++at) {
        const uint32_t unit = text[at];
        const uint32_t next = at + 1 < text.size() ? text[at + 1] : 0;
        if (unit >= 0xD800 && unit <= 0xDBFF && next >= 0xDC00 && next <= 0xDFFF) {
            characters.push_back({0x10000 + (unit - 0xD800) * 0x400 + (next - 0xDC00), false, false});
            ++at;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            characters.push_back({0xFFFD, false, true});
        } else {
            characters.push_back({unit, false, false});
        }
    }
    return characters;
}

inline std::vector<ModelCharacter> ModelRead(const std::vector<uint32_t>& text)
{
    std::vector<ModelCharacter> characters;
    for (uint32_t value : text) {
        const bool isIllFormed = value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF);
        characters.push_back({isIllFormed ? 0xFFFD : value, false, isIllFormed});
    }
    return characters;
}

inline void ModelWrite(uint32_t codePoint, std::vector<uint8_t>& text)
{
    const auto low = [codePoint](int shift) {
        return static_cast<uint8_t>(0x80 + codePoint / (1u << shift) % 64);
    };
    if (codePoint < 0x80) {
        text.push_back(static_cast<uint8_t>(codePoint));
    } else if (codePoint < 0x800) {
        text.insert(text.end(), {static_cast<uint8_t>(0xC0 + codePoint / 64), low(0)});
    } else if (codePoint < 0x10000) {
        text.insert(text.end(), {static_cast<uint8_t>(0xE0 + codePoint / 4096), low(6), low(0)});
    } else {
        text.insert(text.end(), {static_cast<uint8_t>(0xF0 + codePoint / 262144), low(12), low(6), low(0)});
    }
}

inline void ModelWrite(uint32_t codePoint, std::vector<wchar_t>& text)
{
    if (codePoint < 0x10000) {
        text.push_back(static_cast<wchar_t>(codePoint));
    } else {
        text.insert(text.end(), {static_cast<wchar_t>(0xD800 + (codePoint - 0x10000) / 0x400),
                                 static_cast<wchar_t>(0xDC00 + (codePoint - 0x10000) % 0x400)});
    }
}

inline void ModelWrite(uint32_t codePoint, std::vector<uint32_t>& text)
{
    text.push_back(codePoint);
}

// A whole text converted.
template <class Out>
struct Model {
    std::vector<Out> units;
    std::vector<size_t> ends;  // behind each character's units
    size_t querySize = 0;      // what the size query answers, without a terminator

    // How many units are written into `capacity`: the characters before the first one that does not fit.
    size_t WrittenInto(size_t capacity) const
    {
        size_t written = 0;
        for (size_t end : ends) {
            if (end > capacity) break;
            written = end;
        }
        return written;
    }
};

template <class Out, class In>
Model<Out> ModelConvert(const std::vector<In>& text)
{
    Model<Out> model;
    for (const ModelCharacter& character : ModelRead(text)) {
        const size_t before = model.units.size();
        ModelWrite(character.codePoint, model.units);
        model.ends.push_back(model.units.size());
        if (!character.isBeyond) model.querySize += model.units.size() - before;
    }
    return model;
}

}  // namespace vorn_test

#endif
