// word_table.h - the words of an index, in memory that several processes share.
//
// Works on a base address and offsets; knows neither heaps nor locks. Who adds a word holds the lock of the
// word's stripe; who reads does so after all adding has ended, or puts up with counts that move.
// Whatever stands in the memory, nothing outside [base, base + size) is touched.
#ifndef WORDINDEX_WORD_TABLE_H
#define WORDINDEX_WORD_TABLE_H

#include <vorn/status.h>

#include "index_layout.h"

namespace wordindex {

// Where one thread's new words go. Large pieces are taken from the heap, so that its lock is seldom needed.
struct Arena {
    uint64_t next = 0;  // offset of the free part of the current piece
    uint64_t end = 0;
    // Gives the offset of `size` more bytes; 0, with the reason in `failure`, when there are none.
    uint64_t (*allocate)(Arena* arena, uint64_t size) = nullptr;
    void* owner = nullptr;  // for `allocate`
    int32_t worker = kNobody;
    VornStatus failure = VORN_OK;
};
constexpr uint64_t kArenaPiece = 64 * 1024;

class WordTable {
public:
    // The table of the index whose header stands at `headerOffset`; !Valid() when there is none.
    WordTable(void* base, uint64_t size, uint64_t headerOffset);

    bool Valid() const { return header_ != nullptr; }
    IndexHeader* Header() const { return header_; }

    // Counts `count` more of a word. VORN_OK; the arena's failure, such as VORN_E_NO_MEMORY;
    // VORN_E_BAD_DATA the table is damaged.
    VornStatus Add(const wchar_t* word, uint32_t length, uint32_t hash, uint32_t count, Arena* arena);

    // The word's count; 0 when it is not there or the table is damaged.
    uint64_t Find(const wchar_t* word, uint32_t length, uint32_t hash) const;

    // Calls visit(text, length, count) for every word. False when the table is damaged.
    template <class Visit>
    bool ForEach(Visit&& visit) const
    {
        uint64_t steps = 0;
        for (uint32_t bucket = 0; bucket < header_->bucketCount; ++bucket) {
            for (uint64_t offset = FirstOf(bucket); offset != 0;) {
                const WordEntry* entry = EntryAt(offset);
                if (entry == nullptr || ++steps > MostEntries()) return false;
                visit(TextOf(entry), entry->length, entry->count);
                offset = entry->next;
            }
        }
        return true;
    }

    // The file's entry and name; null when they do not lie in the memory.
    FileEntry* FileAt(uint32_t index) const;
    const wchar_t* NameOf(const FileEntry& file) const;

private:
    std::atomic<uint64_t>* Buckets() const;
    uint64_t FirstOf(uint32_t bucket) const { return Buckets()[bucket].load(std::memory_order_acquire); }
    bool Contains(uint64_t offset, uint64_t bytes) const
    {
        return offset <= size_ && bytes <= size_ - offset;
    }
    WordEntry* EntryAt(uint64_t offset) const;
    static const wchar_t* TextOf(const WordEntry* entry)
    {
        return reinterpret_cast<const wchar_t*>(entry + 1);
    }
    // No list can be longer without going round.
    uint64_t MostEntries() const { return size_ / sizeof(WordEntry); }
    // The word's entry, or null; false when the table is damaged.
    bool Look(const wchar_t* word, uint32_t length, uint32_t hash, WordEntry** found) const;

    uint8_t* base_;
    uint64_t size_;
    IndexHeader* header_ = nullptr;
};

}  // namespace wordindex

#endif
