// linestat - lines, bytes and longest line of files, read by several threads side by side.
//
// Shows the library at work: directories searched, files read line by line, threads, a queue under a mutex,
// Base64, transcoding, and how a status is reported.

#include "names.h"
#include "report.h"
#include "text.h"
#include "workers.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr char kUsage[] =
    "usage: linestat [-l | -s] [-t THREADS] [--] FILE...\n"
    "\n"
    "Prints for each FILE, and in total, the number of lines, the number of bytes,\n"
    "the length of the longest line in bytes, and the first 57 bytes as Base64.\n"
    "A directory stands for all files below it, and a name with * or ? for the\n"
    "entries that match. Links to directories are not followed on the way.\n"
    "\n"
    "  -l, --long              prints instead of the first bytes each file's size and\n"
    "                          time of modification as its directory tells them\n"
    "  -s, --summary           prints the total alone, and the files not read\n"
    "  -t, --threads THREADS   how many threads read, 1 to 64 (as many as processors)\n"
    "  -h, --help              prints this text\n"
    "      --                  every word behind it is a FILE\n"
    "\n"
    "Lines are counted as line feeds. A carriage return before one belongs to the\n"
    "line's end and does not count for its length.\n"
    "A file that cannot be read has a row with the status and its symbolic name;\n"
    "the others are read all the same.\n"
    "\n"
    "exit code: 0 all files were read; 1 some were not; 2 the command line is wrong\n";

constexpr int kExitAllRead = 0;
constexpr int kExitSomeNotRead = 1;
constexpr int kExitUsage = 2;

struct Options {
    bool help = false;
    linestat::Form form = linestat::Form::kContents;
    unsigned threads = std::max(1u, std::thread::hardware_concurrency());
    std::vector<std::wstring> words;
    std::string error;  // not empty: what is wrong with the command line
};

bool ParseThreads(const std::wstring& text, unsigned* threads)
{
    wchar_t* end = nullptr;
    const unsigned long value = std::wcstoul(text.c_str(), &end, 10);
    if (text.empty() || *end != 0 || value < 1 || value > 64) return false;
    *threads = static_cast<unsigned>(value);
    return true;
}

Options ParseCommandLine(const std::vector<std::wstring>& arguments)
{
    Options options;
    bool wordsOnly = false;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::wstring& argument = arguments[i];
        if (wordsOnly || argument.size() < 2 || argument[0] != L'-') {
            options.words.push_back(argument);
        } else if (argument == L"--") {
            wordsOnly = true;
        } else if (argument == L"-h" || argument == L"--help") {
            options.help = true;
        } else if (argument == L"-l" || argument == L"--long") {
            options.form = linestat::Form::kEntries;
        } else if (argument == L"-s" || argument == L"--summary") {
            options.form = linestat::Form::kTotal;
        } else if (argument == L"-t" || argument == L"--threads") {
            if (++i == arguments.size() || !ParseThreads(arguments[i], &options.threads)) {
                options.error = linestat::Utf8(argument) + " wants a number from 1 to 64";
                return options;
            }
        } else {
            options.error = "there is no option " + linestat::Utf8(argument);
            return options;
        }
    }
    if (!options.help && options.words.empty()) options.error = "no file is named";
    return options;
}

int Run(const Options& options)
{
    const std::vector<linestat::Name> names = linestat::ExpandNames(options.words);
    const std::vector<linestat::FileFacts> facts = linestat::GatherAll(names, options.threads);
    return linestat::PrintReport(stdout, options.form, names, facts) == 0 ? kExitAllRead : kExitSomeNotRead;
}

}  // namespace

extern "C" int wmain(int count, wchar_t** words)
{
    const Options options = ParseCommandLine({words + 1, words + count});
    if (!options.error.empty()) {
        std::fprintf(stderr, "linestat: %s\n\n%s", options.error.c_str(), kUsage);
        return kExitUsage;
    }
    if (options.help) {
        std::fputs(kUsage, stdout);
        return kExitAllRead;
    }
    const VornStatus status = VornInitialize();
    if (status != VORN_OK) {
        std::fprintf(stderr, "linestat: the library cannot start: %s\n", VornStatusText(status));
        return kExitSomeNotRead;
    }
    const int exitCode = Run(options);
    VornTerminate();
    return exitCode;
}
