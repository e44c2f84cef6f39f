// heap_shared.cpp - heaps in named shared memory, and named shared memory by itself.
//
// A shared heap is two named objects: the memory, and a semaphore of count 1 that is its lock. Who creates
// the semaphore lays the heap out; its magic is written last, so that who finds the semaphore and no magic
// knows that there is no heap behind it.

#include "heap/heap_shared.h"

#include <vorn/file.h>
#include <vorn/sync.hpp>

#include "core/last_error.h"
#include "core/record.h"
#include "core/registries.h"
#include "file/region.h"
#include "heap/heap_blocks.h"
#include "heap/heap_entry.h"
#include "text/codepage_converter.h"
#include "thread/semaphore.h"

#include <cstring>
#include <cwchar>
#include <iterator>
#include <utility>

namespace vorn::detail {

namespace {

// Room for both end blocks, the header, and the blocks of the name and of the clients.
constexpr uint64_t kSharedOverhead = 541;
constexpr wchar_t kSemaphoreSuffix[] = L"_SEM";

// Holds the heap registry's mutex for a scope: of the threads of this process one at a time opens or closes a
// shared heap. The region lock may be taken inside.
class RegistryHold {
public:
    RegistryHold() noexcept : mutex_(Heaps().GetMutex())
    {
        if (mutex_ == nullptr) return;
        try {
            mutex_->Lock();
        } catch (...) {
            mutex_ = nullptr;
        }
    }
    RegistryHold(const RegistryHold&) = delete;
    RegistryHold& operator=(const RegistryHold&) = delete;
    ~RegistryHold()
    {
        if (mutex_ == nullptr) return;
        try {
            mutex_->Unlock();
        } catch (...) {  // It is free; only the wake-up signal was refused.
        }
    }
    explicit operator bool() const noexcept { return mutex_ != nullptr; }

private:
    vorn::Mutex* mutex_;
};

// Owns an open semaphore.
class OpenSemaphore {
public:
    OpenSemaphore() noexcept = default;
    OpenSemaphore(const OpenSemaphore&) = delete;
    OpenSemaphore& operator=(const OpenSemaphore&) = delete;
    ~OpenSemaphore() { Close(); }

    VornStatus Open(const wchar_t* name, int32_t flags, const VornSecurityDescriptor* security) noexcept
    {
        return OpenNamedSemaphore(&semaphore_, name, flags, 1, security);
    }
    void Close() noexcept
    {
        if (semaphore_ != nullptr) VornSemaphoreClose(&semaphore_);
    }
    [[nodiscard]] VornSemaphore* Release() noexcept { return std::exchange(semaphore_, nullptr); }

private:
    VornSemaphore* semaphore_ = nullptr;
};

// The mapping is asked for under a guard: what the region lock throws becomes a status.
void* MapSharedMemory(uint64_t size, const wchar_t* name, const VornSecurityDescriptor* security) noexcept
{
    try {
        return MapRegion(nullptr, 0, size, name, nullptr, security);
    } catch (...) {
        return Fail<void>(VORN_E_SYSTEM);
    }
}

VornStatus UnmapSharedMemory(void* address) noexcept
{
    try {
        return VornFileUnmapRegion(address);
    } catch (...) {
        return VORN_E_SYSTEM;
    }
}

// Owns the view until it is released to the heap's record.
class SharedView {
public:
    explicit SharedView(void* address) noexcept : address_(address) {}
    SharedView(const SharedView&) = delete;
    SharedView& operator=(const SharedView&) = delete;
    ~SharedView()
    {
        if (address_ != nullptr) UnmapSharedMemory(address_);
    }
    explicit operator bool() const noexcept { return address_ != nullptr; }
    void* Get() const noexcept { return address_; }
    HeapHeader& Header() const noexcept { return *static_cast<HeapHeader*>(address_); }
    [[nodiscard]] void* Release() noexcept { return std::exchange(address_, nullptr); }

private:
    void* address_;
};

Buffer<wchar_t> SemaphoreName(const wchar_t* heapName, size_t length) noexcept
{
    Buffer<wchar_t> name(length + std::size(kSemaphoreSuffix));
    if (!name) return name;
    std::memcpy(name.Get(), heapName, length * sizeof(wchar_t));
    std::memcpy(name.Get() + length, kSemaphoreSuffix, sizeof kSemaphoreSuffix);
    return name;
}

// The name in the process's code page. `*size` counts its bytes with the terminating zero.
VornStatus EncodeName(const wchar_t* name, size_t length, Buffer<char>* encoded, uint64_t* size) noexcept
{
    CodepageConverter converter;
    if (!converter) return VORN_E_CONVERSION;
    const uint64_t capacity = (length + 10) * static_cast<uint64_t>(ucnv_getMaxCharSize(converter.Get())) + 1;
    if (capacity > INT32_MAX) return VORN_E_NO_MEMORY;
    *encoded = Buffer<char>(capacity);
    if (!*encoded) return VORN_E_NO_MEMORY;
    UErrorCode error = U_ZERO_ERROR;
    const int32_t written =
        ucnv_fromUChars(converter.Get(), encoded->Get(), static_cast<int32_t>(capacity),
                        reinterpret_cast<const UChar*>(name), static_cast<int32_t>(length), &error);
    if (U_FAILURE(error)) return VORN_E_CONVERTER;
    *size = static_cast<uint64_t>(written) + 1;
    return VORN_OK;
}

// Lays out a new heap with its name block and the clients' block. Others see it when it is complete.
VornStatus BuildSharedHeap(void* base, uint64_t size, const wchar_t* name, size_t nameLength,
                           uint32_t userHeaderSize) noexcept
{
    Buffer<char> encoded;
    uint64_t encodedSize = 0;
    VornStatus status = EncodeName(name, nameLength, &encoded, &encodedSize);
    if (status != VORN_OK) return status;

    LayOutHeap(base, size);
    const HeapArea area(base, size);
    uint64_t nameOffset = 0;
    status = AllocateBlock(area, encodedSize, &nameOffset);
    if (status != VORN_OK) return status;
    std::memcpy(area.Bytes(nameOffset), encoded.Get(), encodedSize);
    area.Header().nameOffset = nameOffset;
    if (userHeaderSize != 0) {
        uint64_t userHeader = 0;
        const bool made = AllocateBlock(area, userHeaderSize, &userHeader) == VORN_OK;
        area.Header().userHeaderOffset = userHeader;
        if (made) area.Header().userHeaderSize = userHeaderSize;
    }
    StampHeap(base);
    return VORN_OK;
}

// The caller holds the heap registry's mutex.
VornHeap* OpenSharedHeapLocked(uint64_t size, const wchar_t* name, size_t nameLength, uint32_t userHeaderSize,
                               const VornSecurityDescriptor* security) noexcept
{
    constexpr int32_t kCreateNew = VORN_SEMAPHORE_CREATE | VORN_SEMAPHORE_EXCLUSIVE;
    const Buffer<wchar_t> semaphoreName = SemaphoreName(name, nameLength);
    if (!semaphoreName) return Fail<VornHeap>(VORN_E_NO_MEMORY);
    OpenSemaphore semaphore;
    VornStatus status = semaphore.Open(semaphoreName.Get(), 0, security);
    bool exists = status == VORN_OK;
    if (!exists) status = semaphore.Open(semaphoreName.Get(), kCreateNew, security);
    if (status != VORN_OK) return Fail<VornHeap>(status);

    Record<VornHeap> heap;
    if (!heap) return Fail<VornHeap>(VORN_E_NO_MEMORY);
    SharedView view(MapSharedMemory(size, name, security));
    if (!view) {
        // Deliberate: the unfilled record is what the caller gets, and the semaphore stays open. The last
        // error is the mapping's.
        static_cast<void>(semaphore.Release());
        return heap.Release();
    }

    // A semaphore without a heap: whoever made it died before the heap was there.
    if (exists && view.Header().magic != kHeapMagic) {
        semaphore.Close();
        status = semaphore.Open(semaphoreName.Get(), kCreateNew, security);
        if (status != VORN_OK) return Fail<VornHeap>(status);
        exists = false;
    }
    if (!exists) {
        status = BuildSharedHeap(view.Get(), size, name, nameLength, userHeaderSize);
        if (status != VORN_OK) return Fail<VornHeap>(status);
    }
    if (!Heaps().RegisterLocked(heap.Get())) return Fail<VornHeap>(VORN_E_NO_MEMORY);
    if (exists) AddToWord(view.Header().attachCount, 1);
    heap->base = view.Release();
    heap->size = size;
    heap->semaphore = semaphore.Release();
    return Succeed(heap.Release());
}

}  // namespace

VornStatus DetachSharedHeap(VornHeap* heap) noexcept
{
    // A thread that opens the heap finds it either with this handle counted or gone, lock and memory both.
    // Without the hold, for want of its lock, the handle goes all the same.
    const RegistryHold hold;
    const VornStatus closed = VornSemaphoreClose(&heap->semaphore);
    VornStatus unmapped = VORN_OK;
    HeapHeader& header = *static_cast<HeapHeader*>(heap->base);
    if (SubtractFromWord(header.attachCount, 1) == 1) unmapped = UnmapSharedMemory(heap->base);
    return closed != VORN_OK ? closed : unmapped;
}

}  // namespace vorn::detail

using namespace vorn::detail;

extern "C" VornHeap* VornHeapCreateShared(uint64_t size, const wchar_t* name, uint32_t userHeaderSize,
                                          const VornSecurityDescriptor* security)
{
    if (name == nullptr) return Fail<VornHeap>(VORN_E_INVALID_ARG);
    const size_t nameLength = std::wcslen(name);
    if (size < nameLength + userHeaderSize + kSharedOverhead) return Fail<VornHeap>(VORN_E_NO_MEMORY);
    RegistryHold hold;
    if (!hold) return Fail<VornHeap>(VORN_E_SYSTEM);
    return OpenSharedHeapLocked(size, name, nameLength, userHeaderSize, security);
}

extern "C" void* VornSharedMemAlloc(uint64_t size, const wchar_t* name,
                                    const VornSecurityDescriptor* security)
{
    return MapRegion(nullptr, 0, size, name, nullptr, security);
}

extern "C" VornStatus VornSharedMemFree(void* address)
{
    return VornFileUnmapRegion(address);
}
