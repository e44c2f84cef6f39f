#include "core/base64.h"

namespace vorn::detail {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr uint8_t kNoDigit = 0xFF;

struct ReverseTable {
    uint8_t digit[256];  // the value of an alphabet character, kNoDigit for every other
};

constexpr ReverseTable MakeReverseTable()
{
    ReverseTable table{};
    for (int i = 0; i < 256; ++i) table.digit[i] = kNoDigit;
    for (uint8_t value = 0; value < 64; ++value) table.digit[static_cast<uint8_t>(kAlphabet[value])] = value;
    return table;
}

constexpr ReverseTable kReverse = MakeReverseTable();

void EncodeGroup(const uint8_t* data, char* text) noexcept
{
    const uint32_t bits = uint32_t{data[0]} << 16 | uint32_t{data[1]} << 8 | data[2];
    text[0] = kAlphabet[bits >> 18];
    text[1] = kAlphabet[bits >> 12 & 63];
    text[2] = kAlphabet[bits >> 6 & 63];
    text[3] = kAlphabet[bits & 63];
}

// The last group, of one or two bytes.
void EncodeRest(const uint8_t* data, size_t length, char* text) noexcept
{
    const uint8_t group[3] = {data[0], length == 2 ? data[1] : uint8_t{0}, 0};
    EncodeGroup(group, text);
    if (length == 1) text[2] = '=';
    text[3] = '=';
}

size_t EncodeLinesPlain(const uint8_t* data, size_t length, char* text)
{
    const size_t lines = length / kBase64LineBytes;
    for (size_t line = 0; line < lines; ++line) {
        for (size_t group = 0; group < kBase64LineBytes / 3; ++group, data += 3, text += 4) {
            EncodeGroup(data, text);
        }
        *text++ = '\r';
        *text++ = '\n';
    }
    return lines;
}

Base64Run DecodeGroupsPlain(const char* text, size_t length, uint8_t* data, size_t room)
{
    Base64Run run{0, 0};
    for (;;) {
        if (length - run.read < 4 || room - run.written < 3) return run;
        const uint8_t* group = reinterpret_cast<const uint8_t*>(text) + run.read;
        const uint32_t a = kReverse.digit[group[0]];
        const uint32_t b = kReverse.digit[group[1]];
        const uint32_t c = kReverse.digit[group[2]];
        const uint32_t d = kReverse.digit[group[3]];
        if ((a | b | c | d) == kNoDigit) {
            const size_t lineBreak = Base64LineBreak(text + run.read, length - run.read);
            if (lineBreak == 0) return run;
            run.read += lineBreak;
            continue;
        }
        const uint32_t bits = a << 18 | b << 12 | c << 6 | d;
        data[run.written] = static_cast<uint8_t>(bits >> 16);
        data[run.written + 1] = static_cast<uint8_t>(bits >> 8);
        data[run.written + 2] = static_cast<uint8_t>(bits);
        run.read += 4;
        run.written += 3;
    }
}

// Without the line feeds, alone or after a carriage return, at the end of the text.
size_t TrimLineBreaks(const char* text, size_t length) noexcept
{
    while (length > 0 && text[length - 1] == '\n') {
        --length;
        if (length > 0 && text[length - 1] == '\r') --length;
    }
    return length;
}

// Reads the next significant character at or after *position into *digit. False at the end of the text and at
// a character that may not stand there. A padding character counts as the digit 0 and sets *isPadding.
bool NextDigit(const char* text, size_t length, size_t* position, uint8_t* digit, bool* isPadding) noexcept
{
    for (;; ++*position) {
        if (*position >= length) return false;
        const char c = text[*position];
        if (c == '\n') continue;
        if (c == '\r') {
            if (*position + 1 >= length || text[*position + 1] != '\n') return false;
            continue;
        }
        *isPadding = c == '=';
        if (*isPadding) {
            const bool mayStandHere =
                *position + 1 == length || (*position + 2 == length && text[length - 1] == '=');
            *digit = 0;
            ++*position;
            return mayStandHere;
        }
        *digit = kReverse.digit[static_cast<uint8_t>(c)];
        ++*position;
        return *digit != kNoDigit;
    }
}

}  // namespace

const Base64Codec kBase64Plain{EncodeLinesPlain, DecodeGroupsPlain};

const Base64Codec& Base64CodecFor(VectorLevel level) noexcept
{
    switch (level) {
        case VectorLevel::kAvx512:
            return kBase64Avx512;
        case VectorLevel::kAvx2:
            return kBase64Avx2;
        case VectorLevel::kSse41:
            return kBase64Sse41;
        case VectorLevel::kPlain:
            break;
    }
    return kBase64Plain;
}

uint64_t Base64EncodedSize(size_t length) noexcept
{
    const uint64_t characters = uint64_t{4} * ((length + 2) / 3);
    return characters + 2 * (characters / kBase64LineCharacters) + 1;
}

void Base64Encode(const Base64Codec& codec, const uint8_t* data, size_t length, char* text) noexcept
{
    text[Base64EncodedSize(length) - 1] = '\0';
    size_t lines = codec.encodeLines(data, length, text);
    lines += EncodeLinesPlain(data + lines * kBase64LineBytes, length - lines * kBase64LineBytes,
                              text + lines * kBase64LineSize);
    data += lines * kBase64LineBytes;
    text += lines * kBase64LineSize;
    const size_t rest = length - lines * kBase64LineBytes;
    const size_t whole = rest - rest % 3;
    for (size_t i = 0; i < whole; i += 3) EncodeGroup(data + i, text + i / 3 * 4);
    if (rest == whole) return;
    text += whole / 3 * 4;
    EncodeRest(data + whole, rest - whole, text);
    // 55 and 56 bytes fill a line as 57 do: their last group is the 19th.
    if (whole == kBase64LineBytes - 3) {
        text[4] = '\r';
        text[5] = '\n';
    }
}

size_t Base64DecodedBound(const char* text, size_t length) noexcept
{
    const size_t bound = length / 4 * 3;
    size_t padding = 0;
    if (length >= 1 && text[length - 1] == '=') padding = length >= 2 && text[length - 2] == '=' ? 2 : 1;
    return bound > padding ? bound - padding : 0;
}

bool Base64Decode(const Base64Codec& codec, const char* text, size_t length, uint8_t* data,
                  size_t* written) noexcept
{
    // A malformed text can hold more whole groups than its bound has room for.
    const uint8_t* const end = data + Base64DecodedBound(text, length);
    length = TrimLineBreaks(text, length);
    if (length == 0) return false;
    uint8_t* out = data;
    size_t position = 0;
    while (position < length) {
        const Base64Run run =
            codec.decodeGroups(text + position, length - position, out, static_cast<size_t>(end - out));
        position += run.read;
        out += run.written;
        if (position == length) break;
        // One group the careful way: with line breaks in it, padded, or malformed.
        uint8_t digits[4];
        size_t padding = 0;
        for (uint8_t& digit : digits) {
            bool isPadding = false;
            if (!NextDigit(text, length, &position, &digit, &isPadding)) return false;
            padding += isPadding;
        }
        if (end - out < static_cast<ptrdiff_t>(3 - padding)) return false;
        const uint32_t bits =
            uint32_t{digits[0]} << 18 | uint32_t{digits[1]} << 12 | uint32_t{digits[2]} << 6 | digits[3];
        *out++ = static_cast<uint8_t>(bits >> 16);
        if (padding < 2) *out++ = static_cast<uint8_t>(bits >> 8);
        if (padding < 1) *out++ = static_cast<uint8_t>(bits);
    }
    *written = static_cast<size_t>(out - data);
    return true;
}

}  // namespace vorn::detail
