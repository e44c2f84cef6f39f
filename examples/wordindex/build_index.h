// build_index.h - the parent's work: from the words of the command line to a verified image.
#ifndef WORDINDEX_BUILD_INDEX_H
#define WORDINDEX_BUILD_INDEX_H

#include "options.h"

namespace wordindex {

// Returns the process's exit code: 0; 1 something is missing from the index; 2 there is no index.
int BuildIndex(const Options& options);

// Answers from an image alone. Returns 0; 1 some word is not in it; 2 it cannot be used.
int AskImage(const Options& options);

}  // namespace wordindex

#endif
