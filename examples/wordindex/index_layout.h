// index_layout.h - the bytes of an index in a heap.
//
// Every link is an offset from the heap's base, so that the index means the same in every process that has
// the heap mapped, and in the image that is saved of it. Nothing that stands here is trusted by who reads it.
#ifndef WORDINDEX_INDEX_LAYOUT_H
#define WORDINDEX_INDEX_LAYOUT_H

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace wordindex {

constexpr uint32_t kStripes = 16;  // locks that the buckets are divided among
constexpr uint32_t kMostWorkers = 64;
constexpr uint32_t kLongestWord = 128;  // units; longer runs of letters are no words
constexpr uint64_t kMagic = 0x5844494452304557;
constexpr int32_t kNobody = -1;

// The words of one bucket form a list. A word is complete before the list leads to it, so a process that is
// killed at any moment leaves a table that can be read.
struct WordEntry {
    uint64_t next;  // offset of the next word of the bucket, or 0
    uint64_t count;
    uint32_t hash;
    uint32_t length;  // in units; the units follow
};
static_assert(sizeof(WordEntry) == 24);

// What has become of a file.
enum FileState : int32_t {
    kFileWaiting = 0,
    kFileTaken = 1,    // a worker has it
    kFileMerging = 2,  // and is adding its words to the index
    kFileCounted = 3,
    kFileIllFormed = 4,  // counted; what is no UTF-8 separates words
    kFileFailed = 5,     // `status` says why
};

struct FileEntry {
    uint64_t nameOffset;  // zero-terminated UTF-16
    uint64_t size;        // bytes, as the search found it
    std::atomic<int32_t> state;
    int32_t worker;   // who took it
    uint32_t status;  // a VornStatus
    uint32_t unused;
};
static_assert(sizeof(FileEntry) == 32);

// Lock word:  kUnlocked 0;  a worker's number plus 1, held by it;  with kAwaited, held, a thread may sleep.
// Who holds the lock stands in the word that locks, so that the lock of a killed worker can be given on at
// whatever instruction it was killed. The stripe's semaphore only wakes who sleeps: a post too many does
// no harm, and one that a killed worker owed or had taken is made good by the parent.
constexpr int32_t kUnlocked = 0;
constexpr int32_t kAwaited = 0x40000000;

struct StripeState {
    uint64_t distinctWords;
    uint64_t allWords;
    std::atomic<int32_t> lock;
    uint32_t unused;
};

struct WorkerState {
    // Threads of the worker that are inside the heap. A worker that is killed there leaves the heap's lock.
    std::atomic<int32_t> insideHeap;
    std::atomic<int32_t> finished;  // 1: it came to its own end, whatever its exit code says
};

// In the heap's own block for its users.
struct IndexHeader {
    uint64_t magic;
    uint32_t bucketCount;  // a power of two, at least kStripes
    uint32_t fileCount;
    uint64_t bucketsOffset;  // bucketCount offsets of first words
    uint64_t filesOffset;    // fileCount FileEntry
    std::atomic<int32_t> nextFile;
    std::atomic<int32_t> filesDone;
    std::atomic<int32_t> kibDone;  // KiB of the files done
    std::atomic<int32_t> stop;     // not 0: take no further file
    StripeState stripes[kStripes];
    WorkerState workers[kMostWorkers];
};
static_assert(std::atomic<int32_t>::is_always_lock_free && std::atomic<uint64_t>::is_always_lock_free);
static_assert(sizeof(std::atomic<int32_t>) == 4 && sizeof(IndexHeader) % 8 == 0);

inline uint32_t StripeOf(uint32_t hash)
{
    return hash % kStripes;
}

}  // namespace wordindex

#endif
