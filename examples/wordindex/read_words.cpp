#include "read_words.h"

#include "word_split.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace wordindex {

namespace {

constexpr uint32_t kPiece = 1 << 20;           // bytes read at once
constexpr size_t kMostHeld = size_t{1} << 30;  // of text in which no place to cut was found
constexpr wchar_t kReplacement = 0xFFFD;

class OpenFile {
public:
    explicit OpenFile(const wchar_t* name)
        : file_(VornFileCreate(name, VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE, nullptr,
                               nullptr))
    {}
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile()
    {
        if (file_ != nullptr) VornFileClose(file_);
    }
    VornFile* Get() const { return file_; }

private:
    VornFile* file_;
};

// Whether a byte stands for itself and separates words.
bool IsAsciiSeparator(char byte)
{
    const bool digit = byte >= '0' && byte <= '9';
    const bool letter = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
    return static_cast<uint8_t>(byte) < 0x80 && !digit && !letter;
}

// How many of the bytes can be taken without cutting a word or a character: those up to the last separator,
// which is looked for among the bytes from `from` on. 0 when none is there.
size_t WholeWords(const std::vector<char>& bytes, size_t from)
{
    size_t end = bytes.size();
    while (end != from && !IsAsciiSeparator(bytes[end - 1])) --end;
    return end != from ? end : 0;
}

size_t CountReplacements(const char* bytes, size_t size)
{
    size_t count = 0;
    for (const char* at = bytes; (at = static_cast<const char*>(std::memchr(at, '\xEF', bytes + size - at)));
         ++at)
    {
        if (bytes + size - at >= 3 && at[1] == '\xBF' && at[2] == '\xBD') ++count;
    }
    return count;
}

void CountAsciiWord(const Word& word, WordCounter* counter)
{
    wchar_t folded[kLongestWord];
    for (size_t i = 0; i < word.length; ++i) {
        const wchar_t unit = word.text[i];
        folded[i] = unit >= L'A' && unit <= L'Z' ? static_cast<wchar_t>(unit | 0x20) : unit;
    }
    counter->Add(folded, word.length);
}

// Counts the words of whole characters. True when all of the bytes were UTF-8.
bool CountText(const char* bytes, size_t size, std::vector<wchar_t>* units, WordCounter* counter)
{
    if (size == 0) return true;
    units->resize(size);  // no character takes more units than bytes
    uint32_t length = static_cast<uint32_t>(units->size());
    if (VornUtf8ToUtf16(bytes, static_cast<uint32_t>(size), units->data(), &length) != VORN_OK) return false;
    Word word;
    for (size_t position = 0; NextWord(units->data(), length, &position, &word);) {
        if (word.length > kLongestWord) continue;
        if (word.ascii) {
            CountAsciiWord(word, counter);
        } else {
            const std::wstring folded = FoldWord(std::wstring(word.text, word.length));
            if (!folded.empty()) counter->Add(folded.data(), folded.size());
        }
    }
    const auto replacements = std::count(units->begin(), units->begin() + length, kReplacement);
    return replacements == 0 || static_cast<size_t>(replacements) == CountReplacements(bytes, size);
}

}  // namespace

std::wstring FoldWord(const std::wstring& word)
{
    wchar_t folded[kLongestWord + 1];
    uint32_t capacity = kLongestWord + 1;
    const uint32_t length = VornStrToLower(folded, &capacity, word.c_str());
    return capacity == kLongestWord + 1 ? std::wstring(folded, length) : std::wstring();
}

ReadResult ReadWords(const wchar_t* name, WordCounter* counter)
{
    const OpenFile file(name);
    if (file.Get() == nullptr) return {VornGetLastError(), false};
    std::vector<char> bytes;
    std::vector<wchar_t> units;
    bool illFormed = false;
    for (;;) {
        const size_t kept = bytes.size();
        bytes.resize(kept + kPiece);
        uint32_t read = 0;
        const VornStatus status = VornFileRead(file.Get(), bytes.data() + kept, kPiece, &read);
        if (status != VORN_OK) return {status, illFormed};
        bytes.resize(kept + read);
        const bool last = read < kPiece;
        size_t whole = last ? bytes.size() : WholeWords(bytes, kept);
        if (whole == 0 && bytes.size() > kMostHeld) whole = bytes.size();
        illFormed |= !CountText(bytes.data(), whole, &units, counter);
        if (last) return {VORN_OK, illFormed};
        bytes.erase(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(whole));
    }
}

}  // namespace wordindex
