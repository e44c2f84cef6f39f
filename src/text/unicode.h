// unicode.h - the three encoding forms, one character at a time: how each is read and written.
// Everything here is the plain definition of what the converters do; the vector code must agree with it.
// Without linkage, because files compiled for different vector units include this and each needs its own
// copy.
#ifndef VORN_TEXT_UNICODE_H
#define VORN_TEXT_UNICODE_H

#include <cstddef>
#include <cstdint>

namespace vorn::detail {

namespace {

constexpr uint32_t kReplacement = 0xFFFD;
constexpr uint32_t kLastCodePoint = 0x10FFFF;

// Each form's Read calls each(codePoint, length) for the character at `text`, of which `left` units, at least
// one, may be looked at, and returns what that returns. The code point is never a surrogate: it is
// kReplacement for ill-formed input. It is above kLastCodePoint for UTF-8 F4 90 to F4 BF, which is written as
// kReplacement. `length` is the number of units read. It is a constant in each call, so that the processor
// predicts it with the branch to the call and need not compute it before it can read on.

struct Utf8 {
    using Unit = uint8_t;

    template <class Each>
    static auto Read(const uint8_t* text, size_t left, Each each) noexcept
    {
        const uint32_t lead = text[0];
        if (lead < 0x80) return each(lead, 1);
        if (lead < 0xC2 || lead > 0xF4 || left < 2) return each(kReplacement, 1);
        const uint32_t second = text[1] ^ 0x80u;  // a continuation byte is below 0x40 now
        if (second >= 0x40) return each(kReplacement, 1);
        if (lead < 0xE0) return each((lead & 0x1F) << 6 | second, 2);
        if (left < 3) return each(kReplacement, 1);
        const uint32_t third = text[2] ^ 0x80u;
        if (third >= 0x40) return each(kReplacement, 1);
        if (lead < 0xF0) {
            const uint32_t codePoint = (lead & 0x0F) << 12 | second << 6 | third;
            if (codePoint < 0x800 || codePoint >> 11 == 0xD800 >> 11) return each(kReplacement, 1);
            return each(codePoint, 3);
        }
        if (left < 4) return each(kReplacement, 1);
        const uint32_t fourth = text[3] ^ 0x80u;
        if (fourth >= 0x40) return each(kReplacement, 1);
        const uint32_t codePoint = (lead & 0x07) << 18 | second << 12 | third << 6 | fourth;
        if (codePoint < 0x10000) return each(kReplacement, 1);
        return each(codePoint, 4);
    }

    // The number of units that Write writes.
    static uint32_t Length(uint32_t codePoint) noexcept
    {
        if (codePoint < 0x80) return 1;
        if (codePoint < 0x800) return 2;
        return codePoint - 0x10000 < 0x100000 ? 4 : 3;
    }

    static void Write(uint32_t codePoint, uint8_t* text) noexcept
    {
        if (codePoint < 0x80) {
            text[0] = static_cast<uint8_t>(codePoint);
            return;
        }
        if (codePoint < 0x800) {
            text[0] = static_cast<uint8_t>(0xC0 | codePoint >> 6);
            text[1] = static_cast<uint8_t>(0x80 | (codePoint & 0x3F));
            return;
        }
        if (codePoint > kLastCodePoint) codePoint = kReplacement;
        if (codePoint < 0x10000) {
            text[0] = static_cast<uint8_t>(0xE0 | codePoint >> 12);
            text[1] = static_cast<uint8_t>(0x80 | (codePoint >> 6 & 0x3F));
            text[2] = static_cast<uint8_t>(0x80 | (codePoint & 0x3F));
            return;
        }
        text[0] = static_cast<uint8_t>(0xF0 | codePoint >> 18);
        text[1] = static_cast<uint8_t>(0x80 | (codePoint >> 12 & 0x3F));
        text[2] = static_cast<uint8_t>(0x80 | (codePoint >> 6 & 0x3F));
        text[3] = static_cast<uint8_t>(0x80 | (codePoint & 0x3F));
    }
};

struct Utf16 {
    using Unit = wchar_t;

    template <class Each>
    static auto Read(const wchar_t* text, size_t left, Each each) noexcept
    {
        const uint32_t first = static_cast<uint16_t>(text[0]);
        if (first >> 11 != 0xD800 >> 11) return each(first, 1);
        if (first >= 0xDC00 || left < 2) return each(kReplacement, 1);
        const uint32_t second = static_cast<uint16_t>(text[1]);
        if (second >> 10 != 0xDC00 >> 10) return each(kReplacement, 1);
        return each(first * 1024 + second - 0x35FDC00, 2);
    }

    static uint32_t Length(uint32_t codePoint) noexcept { return codePoint - 0x10000 < 0x100000 ? 2 : 1; }

    static void Write(uint32_t codePoint, wchar_t* text) noexcept
    {
        if (codePoint - 0x10000 < 0x100000) {
            text[0] = static_cast<wchar_t>(0xD7C0 + (codePoint >> 10));
            text[1] = static_cast<wchar_t>(0xDC00 | (codePoint & 0x3FF));
            return;
        }
        text[0] = static_cast<wchar_t>(codePoint < 0x10000 ? codePoint : kReplacement);
    }
};

struct Utf32 {
    using Unit = uint32_t;

    template <class Each>
    static auto Read(const uint32_t* text, size_t, Each each) noexcept
    {
        return each(Replaced(text[0]), 1);
    }

    static uint32_t Length(uint32_t) noexcept { return 1; }

    static void Write(uint32_t codePoint, uint32_t* text) noexcept { text[0] = Replaced(codePoint); }

private:
    static uint32_t Replaced(uint32_t value) noexcept
    {
        return value <= kLastCodePoint && value >> 11 != 0xD800 >> 11 ? value : kReplacement;
    }
};

}  // namespace

}  // namespace vorn::detail

#endif
