// transcode.h - the six converters and their size counts over bounded text, as one table for each vector
// level. The exported functions (conversion_api.cpp) put the size contract around them; tests force each
// table in turn.
//
// All tables give the same results (unicode.h defines them). None reads outside `src` or writes a unit behind
// those that it reports.
#ifndef VORN_TEXT_TRANSCODE_H
#define VORN_TEXT_TRANSCODE_H

#include "core/cpu.h"
#include "text/unicode.h"

namespace vorn::detail {

struct Converted {
    size_t read;     // less than the input's length if and only if the next character has no room
    size_t written;  // units
};

struct Utf8Count {
    size_t units;   // as the conversion writes them
    size_t beyond;  // how many of them stand for a sequence above U+10FFFF
};

struct TranscodeTable {
    Converted (*utf8ToUtf16)(const uint8_t* src, size_t length, wchar_t* dst, size_t room);
    Converted (*utf8ToUtf32)(const uint8_t* src, size_t length, uint32_t* dst, size_t room);
    Converted (*utf16ToUtf32)(const wchar_t* src, size_t length, uint32_t* dst, size_t room);
    Converted (*utf16ToUtf8)(const wchar_t* src, size_t length, uint8_t* dst, size_t room);
    Converted (*utf32ToUtf8)(const uint32_t* src, size_t length, uint8_t* dst, size_t room);
    Converted (*utf32ToUtf16)(const uint32_t* src, size_t length, wchar_t* dst, size_t room);

    Utf8Count (*countUtf8ToUtf16)(const uint8_t* src, size_t length);
    Utf8Count (*countUtf8ToUtf32)(const uint8_t* src, size_t length);
    size_t (*countUtf16ToUtf32)(const wchar_t* src, size_t length);
    size_t (*countUtf16ToUtf8)(const wchar_t* src, size_t length);
    size_t (*countUtf32ToUtf8)(const uint32_t* src, size_t length);
    size_t (*countUtf32ToUtf16)(const uint32_t* src, size_t length);
};

extern const TranscodeTable kTranscodePlain;
extern const TranscodeTable kTranscodeSse41;
extern const TranscodeTable kTranscodeAvx2;
extern const TranscodeTable kTranscodeAvx512;

// The table that needs the vector unit `level`; the processor must have it to call the functions.
const TranscodeTable& TranscodeFor(VectorLevel level) noexcept;

}  // namespace vorn::detail

#endif
