// read_words.h - the words of one file, folded.
#ifndef WORDINDEX_READ_WORDS_H
#define WORDINDEX_READ_WORDS_H

#include <vorn/vorn.h>

#include "word_counter.h"

#include <string>

namespace wordindex {

// Lower-cases a word as the index does; empty when the result is longer than a word may be.
std::wstring FoldWord(const std::wstring& word);

struct ReadResult {
    VornStatus status;
    bool illFormed;  // some bytes were no UTF-8; they separated words
};

// Counts the words of a file of UTF-8. A file that cannot be read leaves what was read of it counted.
// Throws std::bad_alloc.
ReadResult ReadWords(const wchar_t* name, WordCounter* counter);

}  // namespace wordindex

#endif
