// options.h - the command line.
#ifndef WORDINDEX_OPTIONS_H
#define WORDINDEX_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

namespace wordindex {

struct Options {
    bool help = false;
    uint32_t workers = 2;
    uint32_t threads = 2;  // of each worker
    uint64_t heapMiB = 0;  // 0: as the texts' size suggests
    uint32_t topWords = 20;
    bool all = false;  // print every word
    bool progress = false;
    bool answerOnly = false;  // --image was given
    std::wstring image = L"wordindex.image";
    std::vector<std::wstring> words;  // what else stands on the command line
};

// False after saying what is wrong.
bool ParseOptions(int count, wchar_t** arguments, Options* options);

extern const char kUsage[];

}  // namespace wordindex

#endif
