// Feeds arbitrary text to the six converters at every vector level and compares with the slow model; where
// ICU's rules are the same (every well-formed text, and lone surrogates of UTF-16) with ICU too. The first
// byte chooses the form, the second the capacity; the rest is the text.

#include "core/cpu.h"
#include "text/transcode.h"
#include "text/transcode_model.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unicode/ustring.h>

using namespace vorn::detail;
using namespace vorn_test;

namespace {

void Expect(bool holds)
{
    if (!holds) std::abort();
}

// Exactly as large as asked for, so that the sanitizer sees one unit too many.
template <class Unit>
std::unique_ptr<Unit[]> Exactly(size_t units)
{
    return std::unique_ptr<Unit[]>(new Unit[units]);
}

template <class In, class Out>
void CompareConversion(Converted (*convert)(const In*, size_t, Out*, size_t), const In* src, size_t length,
                       size_t room, const Model<Out>& model)
{
    const std::unique_ptr<Out[]> dst = Exactly<Out>(room);
    const Converted done = convert(src, length, dst.get(), room);
    const size_t written = model.WrittenInto(room);
    Expect(done.written == written);
    Expect((done.read == length) == (written == model.units.size()));
    Expect(std::equal(dst.get(), dst.get() + written, model.units.begin()));
}

size_t Units(size_t count)
{
    return count;
}

size_t Units(Utf8Count count)
{
    return count.units;
}

template <class In, class Out, class CountResult>
Model<Out> Compare(Converted (*TranscodeTable::*convert)(const In*, size_t, Out*, size_t),
                   CountResult (*TranscodeTable::*count)(const In*, size_t), const std::vector<In>& text,
                   size_t room)
{
    const Model<Out> model = ModelConvert<Out>(text);
    const std::unique_ptr<In[]> src = Exactly<In>(text.size());
    std::copy(text.begin(), text.end(), src.get());
    for (VectorLevel level : kAllVectorLevels) {
        if (level > WidestVectorLevel()) continue;
        const TranscodeTable& table = TranscodeFor(level);
        Expect(Units((table.*count)(src.get(), text.size())) == model.units.size());
        CompareConversion(table.*convert, src.get(), text.size(), model.units.size(), model);
        CompareConversion(table.*convert, src.get(), text.size(), model.units.size() + 40, model);
        CompareConversion(table.*convert, src.get(), text.size(), room, model);
    }
    return model;
}

template <class Unit>
std::vector<Unit> Text(const uint8_t* data, size_t size)
{
    std::vector<Unit> text(size / sizeof(Unit));
    if (!text.empty()) std::memcpy(text.data(), data, text.size() * sizeof(Unit));
    return text;
}

bool IsWellFormed(const std::vector<uint8_t>& text)
{
    const std::vector<ModelCharacter> characters = ModelRead(text);
    return std::none_of(characters.begin(), characters.end(),
                        [](const ModelCharacter& c) { return c.isIllFormed || c.isBeyond; });
}

void CompareWithIcu(const std::vector<uint8_t>& text, const std::vector<wchar_t>& expected)
{
    std::vector<UChar> units(text.size() + 1);
    int32_t size = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8WithSub(units.data(), static_cast<int32_t>(units.size()), &size,
                         reinterpret_cast<const char*>(text.data()), static_cast<int32_t>(text.size()),
                         0xFFFD, nullptr, &error);
    Expect(U_SUCCESS(error) && static_cast<size_t>(size) == expected.size());
    Expect(std::equal(expected.begin(), expected.end(), units.begin()));
}

void CompareWithIcu(const std::vector<wchar_t>& text, const std::vector<uint8_t>& expected)
{
    std::vector<char> bytes(text.size() * 3 + 1);
    int32_t size = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8WithSub(bytes.data(), static_cast<int32_t>(bytes.size()), &size,
                       reinterpret_cast<const UChar*>(text.data()), static_cast<int32_t>(text.size()), 0xFFFD,
                       nullptr, &error);
    Expect(U_SUCCESS(error) && static_cast<size_t>(size) == expected.size());
    Expect(std::equal(expected.begin(), expected.end(), bytes.begin(),
                      [](uint8_t a, char b) { return a == static_cast<uint8_t>(b); }));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2) return 0;
    const size_t room = data[1];
    switch (data[0] % 3) {
        case 0: {
            const std::vector<uint8_t> text = Text<uint8_t>(data + 2, size - 2);
            const Model<wchar_t> model =
                Compare(&TranscodeTable::utf8ToUtf16, &TranscodeTable::countUtf8ToUtf16, text, room);
            Compare(&TranscodeTable::utf8ToUtf32, &TranscodeTable::countUtf8ToUtf32, text, room);
            if (IsWellFormed(text)) CompareWithIcu(text, model.units);
            break;
        }
        case 1: {
            const std::vector<wchar_t> text = Text<wchar_t>(data + 2, size - 2);
            const Model<uint8_t> model =
                Compare(&TranscodeTable::utf16ToUtf8, &TranscodeTable::countUtf16ToUtf8, text, room);
            Compare(&TranscodeTable::utf16ToUtf32, &TranscodeTable::countUtf16ToUtf32, text, room);
            CompareWithIcu(text, model.units);
            break;
        }
        default: {
            const std::vector<uint32_t> text = Text<uint32_t>(data + 2, size - 2);
            Compare(&TranscodeTable::utf32ToUtf8, &TranscodeTable::countUtf32ToUtf8, text, room);
            Compare(&TranscodeTable::utf32ToUtf16, &TranscodeTable::countUtf32ToUtf16, text, room);
        }
    }
    return 0;
}
