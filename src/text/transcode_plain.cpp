#include "text/transcode.h"

namespace vorn::detail {

namespace {

template <class From, class To>
Converted Convert(const typename From::Unit* src, size_t length, typename To::Unit* dst, size_t room)
{
    size_t read = 0;
    size_t written = 0;
    while (read < length) {
        if (src[read] < 0x80) {
            if (written == room) break;
            dst[written++] = static_cast<typename To::Unit>(src[read++]);
            continue;
        }
        const Character character = From::Read(src + read, length - read);
        const uint32_t units = To::Length(character.codePoint);
        if (units > room - written) break;
        To::Write(character.codePoint, dst + written);
        read += character.length;
        written += units;
    }
    return {read, written};
}

template <class From, class To>
size_t Count(const typename From::Unit* src, size_t length)
{
    size_t units = 0;
    for (size_t read = 0; read < length;) {
        const Character character = From::Read(src + read, length - read);
        units += To::Length(character.codePoint);
        read += character.length;
    }
    return units;
}

template <class To>
Utf8Count CountUtf8(const uint8_t* src, size_t length)
{
    Utf8Count count{0, 0};
    for (size_t read = 0; read < length;) {
        const Character character = Utf8::Read(src + read, length - read);
        count.units += To::Length(character.codePoint);
        count.beyond += character.codePoint > kLastCodePoint;
        read += character.length;
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
