// Feeds arbitrary text to the Base64 decoder at every vector level: all levels must agree, write no more than
// the bound, and decoding must undo encoding.

#include "core/base64.h"

#include <cstdlib>
#include <cstring>
#include <memory>

using namespace vorn::detail;

namespace {

void Expect(bool holds)
{
    if (!holds) std::abort();
}

struct Decoded {
    bool isWellFormed;
    size_t size;
    std::unique_ptr<uint8_t[]> bytes;
};

Decoded Decode(VectorLevel level, const char* text, size_t length)
{
    Decoded decoded{false, 0, std::unique_ptr<uint8_t[]>(new uint8_t[Base64DecodedBound(text, length)])};
    decoded.isWellFormed =
        Base64Decode(Base64CodecFor(level), text, length, decoded.bytes.get(), &decoded.size);
    return decoded;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) return 0;
    const char* const text = reinterpret_cast<const char*>(data);
    const Decoded plain = Decode(VectorLevel::kPlain, text, size);
    const size_t encodedSize = Base64EncodedSize(size);
    const std::unique_ptr<char[]> plainText(new char[encodedSize]);
    Base64Encode(Base64CodecFor(VectorLevel::kPlain), data, size, plainText.get());
    for (VectorLevel level : kAllVectorLevels) {
        if (level > WidestVectorLevel()) continue;
        const Decoded decoded = Decode(level, text, size);
        Expect(decoded.isWellFormed == plain.isWellFormed);
        if (decoded.isWellFormed) {
            Expect(decoded.size == plain.size);
            Expect(std::memcmp(decoded.bytes.get(), plain.bytes.get(), plain.size) == 0);
        }
        const std::unique_ptr<char[]> encoded(new char[encodedSize]);
        Base64Encode(Base64CodecFor(level), data, size, encoded.get());
        Expect(std::memcmp(encoded.get(), plainText.get(), encodedSize) == 0);
        const Decoded back = Decode(level, encoded.get(), encodedSize - 1);
        Expect(back.isWellFormed && back.size == size && std::memcmp(back.bytes.get(), data, size) == 0);
    }
    return 0;
}
