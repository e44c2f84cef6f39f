// vorn-heap - looks at a heap from outside: an image file, or a live shared heap.
// Exit codes: 0 sound; 1 damaged; 2 wrong usage, or nothing to look at.

#include <vorn/vorn.h>

#include "heap_bytes.h"
#include "heap_map.h"
#include "heap_report.h"

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <new>
#include <string>
#include <vector>

namespace {

constexpr int kSound = 0;
constexpr int kDamaged = 1;
constexpr int kUnreadable = 2;

constexpr char kUsage[] =
    "usage: vorn-heap [options] IMAGE-FILE\n"
    "       vorn-heap [options] --shared NAME\n"
    "\n"
    "Prints a heap's header, statistics, check, blocks and a map of its area.\n"
    "\n"
    "  --shared NAME    looks at the live shared heap NAME, under its lock; reads only\n"
    "  --timeout MS     how long to wait for that lock (default 2000)\n"
    "  --svg FILE       also writes the map as a picture\n"
    "  --no-blocks      leaves out the list of blocks\n"
    "  --no-map         leaves out the map\n"
    "  --width N        characters in a line of the map, 8 to 1000 (default 64)\n"
    "\n"
    "exit codes: 0 sound, 1 damaged, 2 wrong usage or unreadable\n";

struct Options {
    const wchar_t* image = nullptr;
    const wchar_t* shared = nullptr;
    const wchar_t* svg = nullptr;
    uint32_t timeoutMs = 2000;
    unsigned width = 64;
    bool blocks = true;
    bool map = true;
    bool help = false;
};

bool ReadNumber(const wchar_t* text, unsigned long least, unsigned long most, unsigned long* out)
{
    wchar_t* end = nullptr;
    *out = std::wcstoul(text, &end, 10);
    return text[0] >= L'0' && text[0] <= L'9' && *end == 0 && *out >= least && *out <= most;
}

bool ReadOptions(int count, wchar_t** arguments, Options* options)
{
    for (int i = 1; i < count; ++i) {
        const std::wstring argument = arguments[i];
        const wchar_t* value = i + 1 < count ? arguments[i + 1] : nullptr;
        unsigned long number = 0;
        if (argument == L"--help") {
            options->help = true;
        } else if (argument == L"--no-blocks") {
            options->blocks = false;
        } else if (argument == L"--no-map") {
            options->map = false;
        } else if (argument == L"--shared" && value != nullptr) {
            options->shared = arguments[++i];
        } else if (argument == L"--svg" && value != nullptr) {
            options->svg = arguments[++i];
        } else if (argument == L"--timeout" && value != nullptr && ReadNumber(value, 0, 0xFFFFFFFE, &number))
        {
            options->timeoutMs = number;
            ++i;
        } else if (argument == L"--width" && value != nullptr && ReadNumber(value, 8, 1000, &number)) {
            options->width = number;
            ++i;
        } else if (argument.compare(0, 2, L"--") != 0 && options->image == nullptr) {
            options->image = arguments[i];
        } else {
            return false;
        }
    }
    return options->help || (options->image == nullptr) != (options->shared == nullptr);
}

std::string Utf8(const wchar_t* text)
{
    std::string utf8;
    for (; *text != 0; ++text) {
        uint32_t c = static_cast<uint16_t>(*text);
        if (c >= 0xD800 && c < 0xDC00 && text[1] >= 0xDC00 && text[1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<uint16_t>(*++text) - 0xDC00);
        }
        if (c < 0x80) {
            utf8 += static_cast<char>(c);
        } else if (c < 0x800) {
            utf8 += static_cast<char>(0xC0 | c >> 6);
            utf8 += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            if (c < 0x10000) {
                utf8 += static_cast<char>(0xE0 | c >> 12);
            } else {
                utf8 += static_cast<char>(0xF0 | c >> 18);
                utf8 += static_cast<char>(0x80 | (c >> 12 & 0x3F));
            }
            utf8 += static_cast<char>(0x80 | (c >> 6 & 0x3F));
            utf8 += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return utf8;
}

bool WriteFile(const wchar_t* name, const std::string& text)
{
    std::FILE* file = _wfopen(name, L"wb");
    if (file == nullptr) return false;
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && written;
}

int Run(const Options& options)
{
    std::vector<uint8_t> bytes;
    std::string problem;
    const bool readable = options.shared != nullptr
                              ? heap_tool::ReadSharedHeap(options.shared, options.timeoutMs, &bytes, &problem)
                              : heap_tool::ReadImage(options.image, &bytes, &problem);
    const std::string source =
        options.shared != nullptr ? "shared heap " + Utf8(options.shared) : "image " + Utf8(options.image);
    if (!readable) {
        std::fprintf(stderr, "vorn-heap: %s: %s\n", source.c_str(), problem.c_str());
        return kUnreadable;
    }
    const heap_tool::Report report = heap_tool::Examine(&bytes);
    if (!report.isHeap) {
        std::fprintf(stderr, "vorn-heap: %s: no heap: magic or version is missing.\n", source.c_str());
        return kUnreadable;
    }

    std::string text = source + "\n\n" + DescribeHeader(bytes, report) + "\n" +
                       DescribeStatistics(bytes, report) + "\n" + DescribeVerdict(report);
    if (options.blocks) text += "\n" + ListBlocks(bytes, report);
    if (options.map) text += "\n" + MapAsText(report, options.width, 40);
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (options.svg != nullptr && !WriteFile(options.svg, MapAsSvg(report, source))) {
        std::fprintf(stderr, "vorn-heap: %s: the picture cannot be written.\n", Utf8(options.svg).c_str());
        return kUnreadable;
    }
    return report.verdict.fault == vorn::detail::HeapFault::kNone ? kSound : kDamaged;
}

}  // namespace

int wmain(int count, wchar_t** arguments)
{
    Options options;
    if (!ReadOptions(count, arguments, &options)) {
        std::fputs(kUsage, stderr);
        return kUnreadable;
    }
    if (options.help) {
        std::fputs(kUsage, stdout);
        return kSound;
    }
    if (VornInitialize() != VORN_OK) return kUnreadable;
    int result = kUnreadable;
    try {
        result = Run(options);
    } catch (const std::bad_alloc&) {
        std::fputs("vorn-heap: out of memory.\n", stderr);
    }
    VornTerminate();
    return result;
}
