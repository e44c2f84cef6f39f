// word_counter.h - the counts that one thread collects before it adds them to the index.
#ifndef WORDINDEX_WORD_COUNTER_H
#define WORDINDEX_WORD_COUNTER_H

#include "index_layout.h"

#include <vector>

namespace wordindex {

uint32_t HashWord(const wchar_t* word, size_t length);

class WordCounter {
public:
    struct Entry {
        uint32_t hash;
        uint32_t length;  // 0 in an empty slot
        uint32_t text;    // index of the first unit in Text
        uint32_t count;
    };

    WordCounter();
    // Throws std::bad_alloc, with the word not counted.
    void Add(const wchar_t* word, size_t length);
    void Clear();

    size_t Distinct() const { return distinct_; }
    const std::vector<Entry>& Slots() const { return slots_; }
    const wchar_t* Text(const Entry& entry) const { return text_.data() + entry.text; }

private:
    void Grow();

    std::vector<Entry> slots_;  // open addressing; the size is a power of two, at most half are in use
    std::vector<wchar_t> text_;
    size_t distinct_ = 0;
};

}  // namespace wordindex

#endif
