#include "options.h"

#include "index_layout.h"
#include "messages.h"

namespace wordindex {

const char kUsage[] =
    "usage: wordindex [options] PATH...\n"
    "       wordindex --image FILE [-n WORDS] [--all] [WORD...]\n"
    "\n"
    "Counts the words of files of UTF-8 text with several processes that share one heap, saves the heap as "
    "an\n"
    "image, and answers questions from it. PATH is a file, a pattern, or a directory with all below it; "
    "links\n"
    "to directories are not followed on the way.\n"
    "\n"
    "  -w WORKERS   worker processes, 1 to 64 (2)\n"
    "  -t THREADS   threads of each worker, 1 to 64 (2)\n"
    "  -m MIB       size of the shared heap, 1 to 2048 (as the texts' size suggests)\n"
    "  -o FILE      the image to write (wordindex.image)\n"
    "  -n WORDS     how many of the most frequent words to print (20)\n"
    "  --all        print every word and its count, and nothing else\n"
    "  --progress   draw the progress on one line\n"
    "  --image FILE answer from an image: the count of each WORD, or the most frequent words\n"
    "\n"
    "Ctrl-C ends the counting; the index then holds what was counted so far. Exit code 1: the index lacks\n"
    "something, or a word is not in it; 2: there is no index.\n";

namespace {

bool ParseNumber(const std::wstring& text, uint64_t smallest, uint64_t largest, uint64_t* number)
{
    uint64_t value = 0;
    for (const wchar_t digit : text) {
        if (digit < L'0' || digit > L'9' || value > largest) return false;
        value = value * 10 + static_cast<uint64_t>(digit - L'0');
    }
    *number = value;
    return !text.empty() && value >= smallest && value <= largest;
}

// An option that takes a value.
struct ValueOption {
    const wchar_t* name;
    uint64_t smallest;
    uint64_t largest;  // 0: the value is text
    void (*set)(Options* options, uint64_t number, const std::wstring& text);
};

constexpr ValueOption kValueOptions[] = {
    {L"-w", 1, kMostWorkers,
     [](Options* o, uint64_t n, const std::wstring&) { o->workers = static_cast<uint32_t>(n); }},
    {L"-t", 1, 64,
     [](Options* o, uint64_t n, const std::wstring&) { o->threads = static_cast<uint32_t>(n); }},
    {L"-m", 1, 2048, [](Options* o, uint64_t n, const std::wstring&) { o->heapMiB = n; }},
    {L"-n", 0, 1000000,
     [](Options* o, uint64_t n, const std::wstring&) { o->topWords = static_cast<uint32_t>(n); }},
    {L"-o", 0, 0, [](Options* o, uint64_t, const std::wstring& text) { o->image = text; }},
    {L"--image", 0, 0,
     [](Options* o, uint64_t, const std::wstring& text) {
         o->image = text;
         o->answerOnly = true;
     }},
};

const ValueOption* FindValueOption(const std::wstring& word)
{
    for (const ValueOption& option : kValueOptions) {
        if (word == option.name) return &option;
    }
    return nullptr;
}

}  // namespace

bool ParseOptions(int count, wchar_t** arguments, Options* options)
{
    for (int i = 1; i < count; ++i) {
        const std::wstring word = arguments[i];
        if (const ValueOption* option = FindValueOption(word)) {
            const std::wstring value = i + 1 < count ? arguments[++i] : L"";
            uint64_t number = 0;
            const bool fine = option->largest == 0
                                  ? !value.empty()
                                  : ParseNumber(value, option->smallest, option->largest, &number);
            if (!fine) {
                Complain(word + L" " + value, "this is not a value for the option", VORN_E_INVALID_ARG);
                return false;
            }
            option->set(options, number, value);
        } else if (word == L"--all") {
            options->all = true;
        } else if (word == L"--progress") {
            options->progress = true;
        } else if (word == L"-h" || word == L"--help") {
            options->help = true;
        } else if (word.size() > 1 && word[0] == L'-') {
            Complain(word, "there is no such option; -h lists them", VORN_E_INVALID_ARG);
            return false;
        } else {
            options->words.push_back(word);
        }
    }
    if (options->help || options->answerOnly || !options->words.empty()) return true;
    Complain(L"nothing to count", "name files, patterns or directories; -h tells more", VORN_E_INVALID_ARG);
    return false;
}

}  // namespace wordindex
