// report.h - the table that linestat prints.
#ifndef LINESTAT_REPORT_H
#define LINESTAT_REPORT_H

#include "file_facts.h"
#include "names.h"

#include <cstdio>
#include <vector>

namespace linestat {

// What the table shows.
enum class Form {
    kContents,  // the first bytes of each file
    kEntries,   // instead of them, each file's size and time as its directory tells them
    kTotal,     // the total alone
};

// Prints one row for each file, then the total. A file that could not be read has a row that says why, in
// every form. Returns the number of such files.
size_t PrintReport(std::FILE* out, Form form, const std::vector<Name>& names,
                   const std::vector<FileFacts>& facts);

}  // namespace linestat

#endif
