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
    size_t read;     // characters, a multiple of four
    size_t written;  // bytes, three for each four characters
};

struct Base64Codec {
    // Encodes full lines of 57 bytes, each with its line break, and returns how many. May leave a few of the
    // full lines that `length` holds to the caller, never more than two.
    size_t (*encodeLines)(const uint8_t* data, size_t length, char* text);
    // Decodes whole groups from the start of `text` up to the first group that holds a character outside the
    // alphabet, or less: it may stop at any group.
    Base64Run (*decodeRun)(const char* text, size_t length, uint8_t* data);
};

// The codec that needs the vector unit `level`; the processor must have it to call the codec.
const Base64Codec& Base64CodecFor(VectorLevel level) noexcept;

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
