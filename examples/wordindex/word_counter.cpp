#include "word_counter.h"

#include <cstring>

namespace wordindex {

namespace {

constexpr size_t kFirstSlots = 4096;

}  // namespace

uint32_t HashWord(const wchar_t* word, size_t length)
{
    uint32_t hash = 0x811C9DC5;
    for (size_t i = 0; i < length; ++i) hash = (hash ^ static_cast<uint16_t>(word[i])) * 0x01000193;
    // The low bits choose stripe and bucket, and must depend on every unit.
    hash ^= hash >> 15;
    hash *= 0x85EBCA6B;
    return hash ^ (hash >> 13);
}

WordCounter::WordCounter() : slots_(kFirstSlots) {}

void WordCounter::Add(const wchar_t* word, size_t length)
{
    const uint32_t hash = HashWord(word, length);
    const size_t mask = slots_.size() - 1;
    for (size_t slot = hash & mask;; slot = (slot + 1) & mask) {
        Entry& entry = slots_[slot];
        if (entry.length == 0) {
            if (2 * (distinct_ + 1) > slots_.size()) {
                Grow();
                Add(word, length);
                return;
            }
            const size_t text = text_.size();
            text_.insert(text_.end(), word, word + length);
            entry = {hash, static_cast<uint32_t>(length), static_cast<uint32_t>(text), 1};
            ++distinct_;
            return;
        }
        if (entry.hash == hash && entry.length == length &&
            std::memcmp(Text(entry), word, length * sizeof(wchar_t)) == 0)
        {
            ++entry.count;
            return;
        }
    }
}

void WordCounter::Grow()
{
    std::vector<Entry> larger(slots_.size() * 2);
    const size_t mask = larger.size() - 1;
    for (const Entry& entry : slots_) {
        if (entry.length == 0) continue;
        size_t slot = entry.hash & mask;
        while (larger[slot].length != 0) slot = (slot + 1) & mask;
        larger[slot] = entry;
    }
    slots_.swap(larger);
}

void WordCounter::Clear()
{
    slots_.assign(slots_.size(), Entry{});
    text_.clear();
    distinct_ = 0;
}

}  // namespace wordindex
