// shared_index.h - the index in its shared heap, with the locks that guard its stripes: words in the heap,
// and named semaphores for who has to wait.
#ifndef WORDINDEX_SHARED_INDEX_H
#define WORDINDEX_SHARED_INDEX_H

#include <vorn/vorn.h>

#include "find_files.h"
#include "word_counter.h"
#include "word_table.h"

#include <memory>
#include <string>

namespace wordindex {

// One process's handle on the index.
class SharedIndex {
public:
    SharedIndex() = default;
    SharedIndex(const SharedIndex&) = delete;
    SharedIndex& operator=(const SharedIndex&) = delete;
    ~SharedIndex();

    // Makes the heap, the semaphores, and an index of no words with these files.
    VornStatus Create(const std::wstring& name, uint64_t heapBytes, const std::vector<FoundFile>& files);
    // Opens what another process has created.
    VornStatus Open(const std::wstring& name, uint64_t heapBytes);

    VornHeap* Heap() const { return heap_; }
    WordTable& Table() const { return *table_; }
    IndexHeader& Header() const { return *table_->Header(); }

    // Adds the counts to the index, stripe by stripe. VORN_E_NO_MEMORY when the heap has no room for some of
    // the new words; the others are added all the same.
    VornStatus Merge(const WordCounter& counter, int32_t worker, Arena* arena);

    // An arena whose pieces come from the heap.
    Arena MakeArena(int32_t worker);

    // Gives on the locks that a worker held when it was killed. False when it was inside the heap: nobody
    // can enter the heap any more.
    bool ReleaseLocksOf(int32_t worker);

private:
    VornStatus OpenHeap(const std::wstring& name, uint64_t heapBytes);
    VornStatus OpenSemaphores(const std::wstring& name, int32_t flags);
    VornStatus LayOut(const std::vector<FoundFile>& files);
    uint64_t AllocateAligned(uint64_t bytes);
    VornStatus LockStripe(uint32_t stripe, int32_t worker);
    void UnlockStripe(uint32_t stripe);
    static uint64_t AllocatePiece(Arena* arena, uint64_t bytes);

    VornHeap* heap_ = nullptr;
    uint64_t heapBytes_ = 0;
    VornSemaphore* semaphores_[kStripes] = {};
    std::unique_ptr<WordTable> table_;
};

// Where the index's header stands in the heap's block for its users, which may begin at any byte.
uint64_t HeaderOffset(VornHeap* heap);

}  // namespace wordindex

#endif
