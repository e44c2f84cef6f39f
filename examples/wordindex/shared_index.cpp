#include "shared_index.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace wordindex {

namespace {

constexpr uint64_t kAlignment = 8;
constexpr uint32_t kHeaderBytes = sizeof(IndexHeader) + kAlignment;
constexpr uint32_t kFewestBuckets = 1024;
constexpr uint32_t kMostBuckets = 1 << 20;
constexpr uint64_t kHeapBytesPerBucket = 256;
// Left free in the heap, so that its free block always begins where that of an empty heap does. An image can
// then be loaded into any larger heap.
constexpr uint64_t kHeapReserve = 4096;

uint64_t AlignUp(uint64_t value)
{
    return (value + kAlignment - 1) & ~(kAlignment - 1);
}

uint32_t BucketsFor(uint64_t heapBytes)
{
    uint32_t buckets = kFewestBuckets;
    while (buckets < kMostBuckets && buckets * kHeapBytesPerBucket < heapBytes) buckets *= 2;
    return buckets;
}

// Marks a worker as being inside the heap for a scope.
class InsideHeap {
public:
    explicit InsideHeap(WorkerState& worker) : worker_(worker) { worker_.insideHeap.fetch_add(1); }
    InsideHeap(const InsideHeap&) = delete;
    InsideHeap& operator=(const InsideHeap&) = delete;
    ~InsideHeap() { worker_.insideHeap.fetch_sub(1); }

private:
    WorkerState& worker_;
};

}  // namespace

uint64_t HeaderOffset(VornHeap* heap)
{
    return AlignUp(VornHeapGetUsrHdrOff(heap));
}

SharedIndex::~SharedIndex()
{
    for (VornSemaphore*& semaphore : semaphores_) {
        if (semaphore != nullptr) VornSemaphoreClose(&semaphore);
    }
}

VornStatus SharedIndex::OpenHeap(const std::wstring& name, uint64_t heapBytes)
{
    heap_ = VornHeapCreateShared(heapBytes, name.c_str(), kHeaderBytes, nullptr);
    heapBytes_ = heapBytes;
    return VornGetLastError();
}

VornStatus SharedIndex::OpenSemaphores(const std::wstring& name, int32_t flags)
{
    // The name is made of ASCII units.
    const std::string stem(name.begin(), name.end());
    for (uint32_t i = 0; i < kStripes; ++i) {
        const std::string semaphore = stem + "-stripe-" + std::to_string(i);
        const VornStatus status = VornSemaphoreOpen(&semaphores_[i], semaphore.c_str(), flags, 0, nullptr);
        if (status != VORN_OK) return status;
    }
    return VORN_OK;
}

uint64_t SharedIndex::AllocateAligned(uint64_t bytes)
{
    const uint64_t offset = VornHeapAlloc(heap_, bytes + kAlignment);
    return offset == 0 ? 0 : AlignUp(offset);
}

VornStatus SharedIndex::LayOut(const std::vector<FoundFile>& files)
{
    auto* base = static_cast<uint8_t*>(VornHeapGetBasePtr(heap_));
    const uint32_t buckets = BucketsFor(heapBytes_);
    uint64_t nameUnits = 0;
    for (const FoundFile& file : files) nameUnits += file.name.size() + 1;
    const uint64_t bucketsOffset = AllocateAligned(buckets * sizeof(uint64_t));
    const uint64_t filesOffset = AllocateAligned(files.size() * sizeof(FileEntry));
    uint64_t nameOffset = AllocateAligned(nameUnits * sizeof(wchar_t));
    if (bucketsOffset == 0 || filesOffset == 0 || nameOffset == 0) return VORN_E_NO_MEMORY;
    std::memset(base + bucketsOffset, 0, buckets * sizeof(uint64_t));
    auto* entries = reinterpret_cast<FileEntry*>(base + filesOffset);
    for (const FoundFile& file : files) {
        FileEntry* entry = new (entries++) FileEntry{};
        entry->nameOffset = nameOffset;
        entry->size = file.size;
        entry->worker = kNobody;
        const size_t bytes = (file.name.size() + 1) * sizeof(wchar_t);
        std::memcpy(base + nameOffset, file.name.c_str(), bytes);
        nameOffset += bytes;
    }
    auto* header = new (base + HeaderOffset(heap_)) IndexHeader{};
    header->bucketCount = buckets;
    header->fileCount = static_cast<uint32_t>(files.size());
    header->bucketsOffset = bucketsOffset;
    header->filesOffset = filesOffset;
    header->magic = kMagic;
    return VORN_OK;
}

VornStatus SharedIndex::Create(const std::wstring& name, uint64_t heapBytes,
                               const std::vector<FoundFile>& files)
{
    VornStatus status = OpenHeap(name, heapBytes);
    if (status == VORN_OK) status = OpenSemaphores(name, VORN_SEMAPHORE_CREATE | VORN_SEMAPHORE_EXCLUSIVE);
    if (status == VORN_OK) status = LayOut(files);
    if (status != VORN_OK) return status;
    table_ = std::make_unique<WordTable>(VornHeapGetBasePtr(heap_), heapBytes_, HeaderOffset(heap_));
    return table_->Valid() ? VORN_OK : VORN_E_BAD_DATA;
}

VornStatus SharedIndex::Open(const std::wstring& name, uint64_t heapBytes)
{
    VornStatus status = OpenHeap(name, heapBytes);
    if (status == VORN_OK) status = OpenSemaphores(name, 0);
    if (status != VORN_OK) return status;
    table_ = std::make_unique<WordTable>(VornHeapGetBasePtr(heap_), heapBytes_, HeaderOffset(heap_));
    return table_->Valid() ? VORN_OK : VORN_E_BAD_DATA;
}

uint64_t SharedIndex::AllocatePiece(Arena* arena, uint64_t bytes)
{
    const auto* index = static_cast<SharedIndex*>(arena->owner);
    const InsideHeap inside(index->Header().workers[arena->worker]);
    const bool hasRoom = VornHeapFreeMaxBlk(index->heap_) >= bytes + kHeapReserve;
    const uint64_t offset = hasRoom ? VornHeapAlloc(index->heap_, bytes) : 0;
    if (offset == 0) {
        const VornStatus status = VornGetLastError();
        arena->failure = status != VORN_OK ? status : VORN_E_NO_MEMORY;
    }
    return offset;
}

Arena SharedIndex::MakeArena(int32_t worker)
{
    Arena arena;
    arena.allocate = &AllocatePiece;
    arena.owner = this;
    arena.worker = worker;
    return arena;
}

VornStatus SharedIndex::LockStripe(uint32_t stripe, int32_t worker)
{
    std::atomic<int32_t>& lock = Header().stripes[stripe].lock;
    const int32_t own = worker + 1;
    int32_t seen = kUnlocked;
    if (lock.compare_exchange_strong(seen, own)) return VORN_OK;
    for (;;) {
        // Who has come this far cannot know whether others sleep, and takes the lock as awaited.
        seen = kUnlocked;
        if (lock.compare_exchange_strong(seen, own | kAwaited)) return VORN_OK;
        if ((seen & kAwaited) == 0 && !lock.compare_exchange_strong(seen, seen | kAwaited)) continue;
        const VornStatus status = VornSemaphoreWait(&semaphores_[stripe]);
        if (status != VORN_OK) return status;
    }
}

void SharedIndex::UnlockStripe(uint32_t stripe)
{
    const int32_t before = Header().stripes[stripe].lock.exchange(kUnlocked);
    if ((before & kAwaited) != 0) VornSemaphorePost(&semaphores_[stripe]);
}

VornStatus SharedIndex::Merge(const WordCounter& counter, int32_t worker, Arena* arena)
{
    const std::vector<WordCounter::Entry>& slots = counter.Slots();
    // The words of each stripe behind each other.
    std::vector<uint32_t> order(counter.Distinct());
    uint32_t ends[kStripes] = {};
    for (const WordCounter::Entry& entry : slots) {
        if (entry.length != 0) ++ends[StripeOf(entry.hash)];
    }
    uint32_t begins[kStripes];
    for (uint32_t stripe = 0, sum = 0; stripe < kStripes; ++stripe) {
        begins[stripe] = sum;
        sum += ends[stripe];
        ends[stripe] = begins[stripe];
    }
    for (uint32_t slot = 0; slot < slots.size(); ++slot) {
        if (slots[slot].length != 0) order[ends[StripeOf(slots[slot].hash)]++] = slot;
    }

    VornStatus result = VORN_OK;
    for (uint32_t step = 0; step < kStripes; ++step) {
        // Workers begin at different stripes, to be less in each other's way.
        const uint32_t stripe = (static_cast<uint32_t>(worker) * 5 + step) % kStripes;
        if (begins[stripe] == ends[stripe]) continue;
        const VornStatus locked = LockStripe(stripe, worker);
        if (locked != VORN_OK) return locked;
        for (uint32_t i = begins[stripe]; i < ends[stripe]; ++i) {
            const WordCounter::Entry& entry = slots[order[i]];
            const VornStatus added =
                table_->Add(counter.Text(entry), entry.length, entry.hash, entry.count, arena);
            if (added != VORN_OK) result = added;
        }
        UnlockStripe(stripe);
    }
    return result;
}

bool SharedIndex::ReleaseLocksOf(int32_t worker)
{
    for (uint32_t stripe = 0; stripe < kStripes; ++stripe) {
        std::atomic<int32_t>& lock = Header().stripes[stripe].lock;
        int32_t seen = lock.load();
        while ((seen & ~kAwaited) == worker + 1 && !lock.compare_exchange_weak(seen, kUnlocked)) {
        }
        // The worker may have taken a wake-up with it, or have owed one.
        VornSemaphorePost(&semaphores_[stripe]);
    }
    return Header().workers[worker].insideHeap.load() == 0;
}

}  // namespace wordindex
