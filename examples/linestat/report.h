// report.h - the table that linestat prints.
#ifndef LINESTAT_REPORT_H
#define LINESTAT_REPORT_H

#include "file_facts.h"

#include <cstdio>
#include <string>
#include <vector>

namespace linestat {

// Prints one row for each file, then the total. A file that could not be read has a row that says why.
// Returns the number of such files.
size_t PrintReport(std::FILE* out, const std::vector<std::wstring>& names,
                   const std::vector<FileFacts>& facts);

}  // namespace linestat

#endif
