// find_files.h - from the words of the command line to the files that are read.
#ifndef WORDINDEX_FIND_FILES_H
#define WORDINDEX_FIND_FILES_H

#include <cstdint>
#include <string>
#include <vector>

namespace wordindex {

struct FoundFile {
    std::wstring name;
    uint64_t size;
};

// Adds what a word of the command line stands for: a file, the files that match a pattern, or a directory
// with everything below it, links to directories left out. Says what cannot be found or read, and goes on;
// false when something was said.
bool FindFiles(const std::wstring& word, std::vector<FoundFile>* files);

}  // namespace wordindex

#endif
