#include "text/transcode.h"

namespace vorn::detail {

namespace {

// The functions that are handed to Read are inlined at each of its calls: that is what makes the length
// known.

bool IsRare(bool condition)
{
    return __builtin_expect(condition, false) != 0;
}

template <class From, class To>
Converted Convert(const typename From::Unit* src, size_t length, typename To::Unit* dst, size_t room)
{
    // Units below this are characters, and the same in both forms.
    constexpr uint32_t kSame =
        sizeof(typename From::Unit) > 1 && sizeof(typename To::Unit) > 1 ? 0xD800 : 0x80;
    size_t read = 0;
    size_t written = 0;
    while (read < length) {
        if (src[read] < kSame) {
            if (IsRare(written == room)) break;
            dst[written++] = static_cast<typename To::Unit>(src[read++]);
            continue;
        }
        const auto write = [&](uint32_t codePoint, uint32_t unitsRead) __attribute__((always_inline))
        {
            const uint32_t units = To::Length(codePoint);
            if (IsRare(units > room - written)) return false;
            To::Write(codePoint, dst + written);
            read += unitsRead;
            written += units;
            return true;
        };
        if (!From::Read(src + read, length - read, write)) break;
    }
    return {read, written};
}

template <class From, class To>
size_t Count(const typename From::Unit* src, size_t length)
{
    size_t units = 0;
    size_t read = 0;
    while (read < length) {
        const auto add = [&](uint32_t codePoint, uint32_t unitsRead) __attribute__((always_inline))
        {
            units += To::Length(codePoint);
            read += unitsRead;
        };
        From::Read(src + read, length - read, add);
    }
    return units;
}

template <class To>
Utf8Count CountUtf8(const uint8_t* src, size_t length)
{
    Utf8Count count{0, 0};
    size_t read = 0;
    while (read < length) {
        const auto add = [&](uint32_t codePoint, uint32_t unitsRead) __attribute__((always_inline))
        {
            count.units += To::Length(codePoint);
            count.beyond += codePoint > kLastCodePoint;
            read += unitsRead;
        };
        Utf8::Read(src + read, length - read, add);
    }
    return count;
}

}  // namespace

const TranscodeTable kTranscodePlain{
    Convert<Utf8, Utf16>, Convert<Utf8, Utf32>,  Convert<Utf16, Utf32>, Convert<Utf16, Utf8>,
    Convert<Utf32, Utf8>, Convert<Utf32, Utf16>, CountUtf8<Utf16>,      CountUtf8<Utf32>,
    Count<Utf16, Utf32>,  Count<Utf16, Utf8>,    Count<Utf32, Utf8>,    Count<Utf32, Utf16>,
};

const TranscodeTable& TranscodeFor(VectorLevel level) noexcept
{
    switch (level) {
        case VectorLevel::kAvx512:
            return kTranscodeAvx512;
        case VectorLevel::kAvx2:
            return kTranscodeAvx2;
        case VectorLevel::kSse41:
            return kTranscodeSse41;
        case VectorLevel::kPlain:
            break;
    }
    return kTranscodePlain;
}

}  // namespace vorn::detail
