// word_split.h - the words of a UTF-16 text.
//
// A word is a run of letters and digits; marks that combine with letters belong to it, punctuation and
// symbols do not. Which units count is a table in the source file.
#ifndef WORDINDEX_WORD_SPLIT_H
#define WORDINDEX_WORD_SPLIT_H

#include <cstddef>
#include <cstdint>

namespace wordindex {

struct Word {
    const wchar_t* text;
    size_t length;  // units
    bool ascii;
};

// Finds the next word at or behind `*position`, which moves behind it; false at the end of the text.
bool NextWord(const wchar_t* text, size_t length, size_t* position, Word* word);

}  // namespace wordindex

#endif
