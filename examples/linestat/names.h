// names.h - from the words of the command line to the files that are read.
#ifndef LINESTAT_NAMES_H
#define LINESTAT_NAMES_H

#include <string>
#include <vector>

namespace linestat {

// The names of the files that the words stand for, in the order of the words. A word that names nothing stays
// in the list: reading it says what is wrong.
std::vector<std::wstring> ExpandNames(const std::vector<std::wstring>& words);

}  // namespace linestat

#endif
