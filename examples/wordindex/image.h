// image.h - an index that was saved, loaded into memory of its own.
#ifndef WORDINDEX_IMAGE_H
#define WORDINDEX_IMAGE_H

#include <vorn/vorn.h>

#include "word_table.h"

#include <memory>
#include <string>
#include <vector>

namespace wordindex {

class Image {
public:
    Image() = default;
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;
    ~Image();

    // Loads the file into a heap that is larger than it was, and checks all of it. VORN_E_BAD_DATA: the heap
    // is sound, and no index is in it.
    VornStatus Load(const std::wstring& fileName);
    const WordTable& Table() const { return *table_; }

private:
    std::unique_ptr<uint64_t[]> memory_;
    VornHeap* heap_ = nullptr;
    std::unique_ptr<WordTable> table_;
};

struct CountedWord {
    std::wstring text;
    uint64_t count;
};

// All words, the most frequent first, equals in the order of their units. False when the table is damaged.
bool SortedWords(const WordTable& table, std::vector<CountedWord>* words);

struct Totals {
    uint64_t distinctWords;
    uint64_t allWords;
};
// False when the table is damaged.
bool CountAll(const WordTable& table, Totals* totals);

}  // namespace wordindex

#endif
