// base64.h - Base64 over bytes in memory: sizes, encoding in lines, decoding group by group.
// The exported functions (base64_api.cpp) check arguments and call this; tests call it too.
//
// A codec is one way to do the two inner loops. Every codec gives the same results; they differ in the vector
// unit they need. No codec writes a byte that does not belong to the result, or reads outside its input.
#ifndef VORN_CORE_BASE64_H
#define VORN_CORE_BASE64_H

#include "core/cpu.h"

#include <cstddef>
#include <cstdint>

namespace vorn::detail {

constexpr size_t kBase64LineBytes = 57;       // what a full line encodes
constexpr size_t kBase64LineCharacters = 76;  // 19 groups of four
constexpr size_t kBase64LineSize = 78;        // with carriage return and line feed

struct Base64Run {
    size_t read;     // characters
    size_t written;  // bytes
};

struct Base64Codec {
    // Encodes the full lines of 57 bytes that `length` holds, each with its line break. May leave the last
    // few of them to the caller; returns how many it did.
    size_t (*encodeLines)(const uint8_t* data, size_t length, char* text);
    // Decodes whole groups into at most `room` bytes, and skips the line breaks between groups, up to
    // anything else: a group with a line break inside, padding, a wrong character. It may stop before any
    // group.
    Base64Run (*decodeGroups)(const char* text, size_t length, uint8_t* data, size_t room);
};

// The codec that needs the vector unit `level`; the processor must have it to call the codec.
const Base64Codec& Base64CodecFor(VectorLevel level) noexcept;

extern const Base64Codec kBase64Plain;
extern const Base64Codec kBase64Sse41;
extern const Base64Codec kBase64Avx2;
extern const Base64Codec kBase64Avx512;

// The number of characters of the line break at the start of `text`, 0 if there is none. Static, because each
// codec's file compiles it for another vector unit.
static inline size_t Base64LineBreak(const char* text, size_t length) noexcept
{
    if (length >= 2 && text[0] == '\r' && text[1] == '\n') return 2;
    return length >= 1 && text[0] == '\n' ? 1 : 0;
}

// The size of the encoded text with its line breaks and terminating zero.
uint64_t Base64EncodedSize(size_t length) noexcept;
void Base64Encode(const Base64Codec& codec, const uint8_t* data, size_t length, char* text) noexcept;

// An upper bound of the decoded size; line breaks are not subtracted.
size_t Base64DecodedBound(const char* text, size_t length) noexcept;
// Decodes into at least Base64DecodedBound() bytes. False if the text is malformed; an unspecified part of
// that many bytes has then been written.
bool Base64Decode(const Base64Codec& codec, const char* text, size_t length, uint8_t* data,
                  size_t* written) noexcept;

}  // namespace vorn::detail

#endif
