// names.h - from the words of the command line to the files that are read.
#ifndef LINESTAT_NAMES_H
#define LINESTAT_NAMES_H

#include <vorn/vorn.h>

#include <string>
#include <vector>

namespace linestat {

// One file to be read, or a place where none could be found out.
struct Name {
    std::wstring path;
    VornStatus status = VORN_OK;  // why files could not be found here; nothing is read then
    bool examined = false;        // size and modified are known
    uint64_t size = 0;            // bytes, as the directory says
    VornTime modified = {};       // UTC
};

// The files that the words stand for, in the order of the words. A word with * or ? behind its last separator
// stands for the entries that match; a directory stands for all files below it, directory by directory in the
// order of the names. Links to directories are followed only when a word names one. Any other word stands for
// itself, also when it names nothing: reading it says what is wrong.
std::vector<Name> ExpandNames(const std::vector<std::wstring>& words);

}  // namespace linestat

#endif
