// plain_words - what wordindex does, in one process and with the standard library alone: the yardstick.
// Prints how many words it counted and how many of them are different.

#include <cstdint>
#include <cstdio>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <string>
#include <unordered_map>

namespace {

using Counts = std::unordered_map<std::u32string, uint64_t>;

// The next code point; U+FFFD for a byte that begins none.
char32_t NextPoint(const std::string& text, size_t* at)
{
    const auto byte = [&](size_t i) { return i < text.size() ? static_cast<uint8_t>(text[i]) : uint8_t{0}; };
    const uint8_t first = byte((*at)++);
    if (first < 0x80) return first;
    const size_t more = first >= 0xC2 && first < 0xE0   ? 1
                        : first >= 0xE0 && first < 0xF0 ? 2
                        : first >= 0xF0 && first < 0xF5 ? 3
                                                        : 0;
    char32_t point = first & (0x3F >> more);
    for (size_t i = 0; i < more; ++i) {
        if ((byte(*at + i) & 0xC0) != 0x80) return 0xFFFD;
        point = point << 6 | (byte(*at + i) & 0x3F);
    }
    *at += more;
    return more == 0 ? 0xFFFD : point;
}

bool IsWordPoint(char32_t point)
{
    if (point < 0x80)
        return (point >= '0' && point <= '9') || (point >= 'A' && point <= 'Z') ||
               (point >= 'a' && point <= 'z');
    return (point >= 0xC0 && point < 0x2000 && point != 0xD7 && point != 0xF7) ||
           (point >= 0x3040 && point < 0xD800) || (point >= 0x10000 && point < 0x1F000) ||
           (point >= 0x20000 && point < 0x40000);
}

void CountFile(const std::filesystem::path& path, Counts* counts)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(static_cast<size_t>(std::filesystem::file_size(path)), '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    std::u32string word;
    for (size_t at = 0; at < text.size();) {
        const char32_t point = NextPoint(text, &at);
        if (IsWordPoint(point)) {
            word +=
                point < 0x10000 ? static_cast<char32_t>(std::towlower(static_cast<wint_t>(point))) : point;
        } else if (!word.empty()) {
            if (word.size() <= 128) ++(*counts)[word];
            word.clear();
        }
    }
    if (!word.empty() && word.size() <= 128) ++(*counts)[word];
}

}  // namespace

int main(int argc, char** argv)
{
    Counts counts;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            if (entry.is_regular_file()) CountFile(entry.path(), &counts);
        }
    }
    uint64_t all = 0;
    for (const auto& [word, count] : counts) all += count;
    std::printf("%llu words, %zu of them different\n", static_cast<unsigned long long>(all), counts.size());
    return all == 0 ? 1 : 0;
}
