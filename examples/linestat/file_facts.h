// file_facts.h - what linestat finds out about one file.
#ifndef LINESTAT_FILE_FACTS_H
#define LINESTAT_FILE_FACTS_H

#include <vorn/vorn.h>

#include <string>

namespace linestat {

struct FileFacts {
    VornStatus status = VORN_OK;  // why the file could not be read; the rest is empty then
    uint64_t lines = 0;           // line feeds, as wc counts lines
    uint64_t bytes = 0;
    uint64_t longest = 0;    // bytes of the longest line, without its end
    std::string firstBytes;  // Base64 of the first 57 bytes, which fill one line of it
};

// Reads the file line by line. What is appended to it meanwhile is not looked at. Any thread may call this.
FileFacts GatherFacts(const std::wstring& name);

}  // namespace linestat

#endif
