// The exported converters between the Unicode forms: the size contract around the tables of transcode.h.

#include <vorn/conversion.h>

#include "text/terminated.h"
#include "text/transcode.h"

#include <cstdint>

using namespace vorn::detail;

namespace {

// Text of so few units is converted one character at a time before a vector is set up.
constexpr uint32_t kShort = 12;

// For text of this length; 0 where it is not known.
const TranscodeTable& Table(uint32_t length) noexcept
{
    if (length - 1 < kShort) return kTranscodePlain;
    return Widest<TranscodeTable, TranscodeFor>();
}

uint32_t FittingSize(uint64_t units) noexcept
{
    return units > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(units);
}

// What a conversion needs: with `asking`, as the size query counts it.
uint64_t Units(size_t count, bool) noexcept
{
    return count;
}

uint64_t Units(Utf8Count count, bool asking) noexcept
{
    // Deliberate: the query counts nothing for a sequence above U+10FFFF, the conversion writes one unit.
    return asking ? count.units - count.beyond : count.units;
}

template <class In, class Out, class CountResult>
VornStatus Convert(Converted (*convert)(const In*, size_t, Out*, size_t),
                   CountResult (*count)(const In*, size_t), const In* src, uint32_t srcLength, Out* dst,
                   uint32_t* size) noexcept
{
    if (*size == 0) {
        const bool isTerminated = srcLength == 0;
        const size_t length = isTerminated ? TerminatedLength(src) : srcLength;
        *size = FittingSize(Units(count(src, length), true) + isTerminated);
        return VORN_E_BUFFER_TOO_SMALL;
    }
    const Converted done = convert(src, srcLength, dst, *size);
    if (done.read == srcLength) {
        *size = static_cast<uint32_t>(done.written);
        return VORN_OK;
    }
    const uint64_t remaining = Units(count(src + done.read, srcLength - done.read), false);
    *size = FittingSize(done.written + remaining);
    return VORN_E_BUFFER_TOO_SMALL;
}

const uint8_t* Bytes(const char* text) noexcept
{
    return reinterpret_cast<const uint8_t*>(text);
}

uint8_t* Bytes(char* text) noexcept
{
    return reinterpret_cast<uint8_t*>(text);
}

}  // namespace

extern "C" VornStatus VornUtf8ToUtf16(const char* src, uint32_t srcLength, wchar_t* dst, uint32_t* size)
{
    const TranscodeTable& table = Table(srcLength);
    return Convert(table.utf8ToUtf16, table.countUtf8ToUtf16, Bytes(src), srcLength, dst, size);
}

extern "C" VornStatus VornUtf8ToUtf32(const char* src, uint32_t srcLength, uint32_t* dst, uint32_t* size)
{
    const TranscodeTable& table = Table(srcLength);
    return Convert(table.utf8ToUtf32, table.countUtf8ToUtf32, Bytes(src), srcLength, dst, size);
}

extern "C" VornStatus VornUtf16ToUtf32(const wchar_t* src, uint32_t srcLength, uint32_t* dst, uint32_t* size)
{
    const TranscodeTable& table = Table(srcLength);
    return Convert(table.utf16ToUtf32, table.countUtf16ToUtf32, src, srcLength, dst, size);
}

extern "C" VornStatus VornUtf16ToUtf8(const wchar_t* src, uint32_t srcLength, char* dst, uint32_t* size)
{
    const TranscodeTable& table = Table(srcLength);
    return Convert(table.utf16ToUtf8, table.countUtf16ToUtf8, src, srcLength, Bytes(dst), size);
}

extern "C" VornStatus VornUtf32ToUtf8(const uint32_t* src, uint32_t srcLength, char* dst, uint32_t* size)
{
    const TranscodeTable& table = Table(srcLength);
    return Convert(table.utf32ToUtf8, table.countUtf32ToUtf8, src, srcLength, Bytes(dst), size);
}

extern "C" VornStatus VornUtf32ToUtf16(const uint32_t* src, uint32_t srcLength, wchar_t* dst, uint32_t* size)
{
    const TranscodeTable& table = Table(srcLength);
    return Convert(table.utf32ToUtf16, table.countUtf32ToUtf16, src, srcLength, dst, size);
}
