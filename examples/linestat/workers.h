// workers.h - the threads that share the files among them.
#ifndef LINESTAT_WORKERS_H
#define LINESTAT_WORKERS_H

#include "file_facts.h"
#include "names.h"

#include <vector>

namespace linestat {

// The facts of every file, in the order of the names, gathered by up to `threads` threads side by side.
std::vector<FileFacts> GatherAll(const std::vector<Name>& names, unsigned threads);

}  // namespace linestat

#endif
