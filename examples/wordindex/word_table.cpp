#include "word_table.h"

#include <cstring>

namespace wordindex {

namespace {

constexpr uint64_t kAlignment = 8;

uint64_t AlignUp(uint64_t value)
{
    return (value + kAlignment - 1) & ~(kAlignment - 1);
}

// Room for `bytes` in the arena; 0 when the heap has no more.
uint64_t TakeFrom(Arena* arena, uint64_t bytes)
{
    if (arena->end - arena->next < bytes) {
        const uint64_t piece = arena->allocate(arena, kArenaPiece);
        if (piece == 0) return 0;
        // What the heap gives may begin at any byte.
        arena->next = AlignUp(piece);
        arena->end = piece + kArenaPiece;
    }
    const uint64_t taken = arena->next;
    arena->next += bytes;
    return taken;
}

}  // namespace

WordTable::WordTable(void* base, uint64_t size, uint64_t headerOffset)
    : base_(static_cast<uint8_t*>(base)), size_(size)
{
    if (headerOffset == 0 || headerOffset % kAlignment != 0) return;
    if (!Contains(headerOffset, sizeof(IndexHeader))) return;
    auto* header = reinterpret_cast<IndexHeader*>(base_ + headerOffset);
    const uint32_t buckets = header->bucketCount;
    if (header->magic != kMagic || buckets < kStripes || (buckets & (buckets - 1)) != 0) return;
    if (header->bucketsOffset % kAlignment != 0 || header->filesOffset % kAlignment != 0) return;
    if (!Contains(header->bucketsOffset, uint64_t{buckets} * sizeof(uint64_t))) return;
    if (!Contains(header->filesOffset, uint64_t{header->fileCount} * sizeof(FileEntry))) return;
    header_ = header;
}

std::atomic<uint64_t>* WordTable::Buckets() const
{
    return reinterpret_cast<std::atomic<uint64_t>*>(base_ + header_->bucketsOffset);
}

WordEntry* WordTable::EntryAt(uint64_t offset) const
{
    if (offset % kAlignment != 0 || !Contains(offset, sizeof(WordEntry))) return nullptr;
    auto* entry = reinterpret_cast<WordEntry*>(base_ + offset);
    if (entry->length == 0 || entry->length > kLongestWord) return nullptr;
    return Contains(offset + sizeof(WordEntry), entry->length * sizeof(wchar_t)) ? entry : nullptr;
}

bool WordTable::Look(const wchar_t* word, uint32_t length, uint32_t hash, WordEntry** found) const
{
    *found = nullptr;
    uint64_t steps = 0;
    for (uint64_t offset = FirstOf(hash & (header_->bucketCount - 1)); offset != 0;) {
        WordEntry* entry = EntryAt(offset);
        if (entry == nullptr || ++steps > MostEntries()) return false;
        if (entry->hash == hash && entry->length == length &&
            std::memcmp(TextOf(entry), word, length * sizeof(wchar_t)) == 0)
        {
            *found = entry;
            return true;
        }
        offset = entry->next;
    }
    return true;
}

VornStatus WordTable::Add(const wchar_t* word, uint32_t length, uint32_t hash, uint32_t count, Arena* arena)
{
    WordEntry* entry = nullptr;
    if (!Look(word, length, hash, &entry)) return VORN_E_BAD_DATA;
    StripeState& stripe = header_->stripes[StripeOf(hash)];
    if (entry == nullptr) {
        const uint64_t offset = TakeFrom(arena, AlignUp(sizeof(WordEntry) + length * sizeof(wchar_t)));
        if (offset == 0) return arena->failure;
        if (!Contains(offset, sizeof(WordEntry) + length * sizeof(wchar_t))) return VORN_E_BAD_DATA;
        std::atomic<uint64_t>& first = Buckets()[hash & (header_->bucketCount - 1)];
        entry = reinterpret_cast<WordEntry*>(base_ + offset);
        *entry = {first.load(std::memory_order_relaxed), 0, hash, length};
        std::memcpy(entry + 1, word, length * sizeof(wchar_t));
        first.store(offset, std::memory_order_release);
        ++stripe.distinctWords;
    }
    entry->count += count;
    stripe.allWords += count;
    return VORN_OK;
}

uint64_t WordTable::Find(const wchar_t* word, uint32_t length, uint32_t hash) const
{
    WordEntry* entry = nullptr;
    return Look(word, length, hash, &entry) && entry != nullptr ? entry->count : 0;
}

FileEntry* WordTable::FileAt(uint32_t index) const
{
    if (index >= header_->fileCount) return nullptr;
    return reinterpret_cast<FileEntry*>(base_ + header_->filesOffset) + index;
}

const wchar_t* WordTable::NameOf(const FileEntry& file) const
{
    if (file.nameOffset % sizeof(wchar_t) != 0 || !Contains(file.nameOffset, sizeof(wchar_t))) return nullptr;
    const auto* name = reinterpret_cast<const wchar_t*>(base_ + file.nameOffset);
    const uint64_t most = (size_ - file.nameOffset) / sizeof(wchar_t);
    for (uint64_t i = 0; i < most; ++i) {
        if (name[i] == 0) return name;
    }
    return nullptr;
}

}  // namespace wordindex
