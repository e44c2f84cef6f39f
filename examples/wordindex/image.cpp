#include "image.h"

#include "shared_index.h"

#include <algorithm>
#include <new>

namespace wordindex {

namespace {

constexpr uint64_t kMoreBytes = 1 << 20;  // by which the heap is larger than the image

}  // namespace

Image::~Image()
{
    if (heap_ != nullptr) VornHeapDestroy(heap_);
}

VornStatus Image::Load(const std::wstring& fileName)
{
    const uint64_t fileBytes = VornFileGetSizeByName(fileName.c_str());
    if (fileBytes == VORN_FILE_FAILED) return VornGetLastError();
    const uint64_t words = (fileBytes + kMoreBytes) / sizeof(uint64_t);
    memory_.reset(new (std::nothrow) uint64_t[words]);
    if (!memory_) return VORN_E_NO_MEMORY;
    heap_ = VornHeapCreateLocal(memory_.get(), words * sizeof(uint64_t), 1);
    if (heap_ == nullptr) return VornGetLastError();
    VornStatus status = VornHeapLoad(heap_, fileName.c_str());
    if (status == VORN_OK) status = VornHeapCheck(heap_);
    if (status != VORN_OK) return status;
    table_ = std::make_unique<WordTable>(memory_.get(), words * sizeof(uint64_t), HeaderOffset(heap_));
    return table_->Valid() ? VORN_OK : VORN_E_BAD_DATA;
}

bool SortedWords(const WordTable& table, std::vector<CountedWord>* words)
{
    words->clear();
    const bool sound = table.ForEach([&](const wchar_t* text, uint32_t length, uint64_t count) {
        words->push_back({std::wstring(text, length), count});
    });
    std::sort(words->begin(), words->end(), [](const CountedWord& a, const CountedWord& b) {
        return a.count != b.count ? a.count > b.count : a.text < b.text;
    });
    return sound;
}

bool CountAll(const WordTable& table, Totals* totals)
{
    *totals = {};
    return table.ForEach([&](const wchar_t*, uint32_t, uint64_t count) {
        ++totals->distinctWords;
        totals->allWords += count;
    });
}

}  // namespace wordindex
