#include "file/region.h"

#include <vorn/exceptions.hpp>
#include <vorn/sync.hpp>

#include "core/kernel_handle.h"
#include "core/last_error.h"
#include "core/record.h"
#include "core/registries.h"
#include "core/security.h"
#include "file/file_record.h"
#include "file/region_map.h"

#include <cstdlib>
#include <optional>
#include <utility>

namespace vorn::detail {

namespace {

RegionMap regions;  // guarded by regionMutex

struct RegionMutex {
    std::optional<vorn::Mutex> mutex;  // empty only when memory ran out while the module was loaded

    RegionMutex() noexcept
    {
        try {
            mutex.emplace(nullptr);
        } catch (...) {  // The module still loads; whoever needs the lock is told.
        }
    }
};
RegionMutex regionMutex;

// Holds the region lock for a scope. Throws vorn::LockError when it cannot be taken, and also when its
// release fails: it is free then, but a sleeper was not woken.
class RegionLock {
public:
    RegionLock()
    {
        if (!regionMutex.mutex) throw LockError("Mutex lock failed.");
        regionMutex.mutex->Lock();
    }
    RegionLock(const RegionLock&) = delete;
    RegionLock& operator=(const RegionLock&) = delete;
    ~RegionLock() noexcept(false) { regionMutex.mutex->Unlock(); }
};

// Owns a view of a mapping object. Unmapping keeps the thread's system error.
class View {
public:
    explicit View(void* address) noexcept : address_(address) {}
    View(const View&) = delete;
    View& operator=(const View&) = delete;
    ~View()
    {
        if (address_ == nullptr) return;
        const DWORD error = GetLastError();
        UnmapViewOfFile(address_);
        SetLastError(error);
    }

    explicit operator bool() const noexcept { return address_ != nullptr; }
    void* Get() const noexcept { return address_; }
    [[nodiscard]] void* Release() noexcept { return std::exchange(address_, nullptr); }

private:
    void* address_;
};

// What a region's record owned, once nothing refers to the record any more. Empty for a null region.
class DetachedRegion {
public:
    DetachedRegion() noexcept = default;
    DetachedRegion(const DetachedRegion&) = delete;
    DetachedRegion& operator=(const DetachedRegion&) = delete;
    ~DetachedRegion()
    {
        if (region_ == nullptr) return;
        UnmapViewOfFile(region_->view);
        CloseHandle(region_->mapping);
        std::free(region_);
    }

    explicit operator bool() const noexcept { return region_ != nullptr; }
    void TakeLocked(Region* region) noexcept { region_ = region; }

private:
    Region* region_ = nullptr;
};

// The caller holds the region lock for the three below.

void ChainLocked(Region* region)
{
    VornFile* file = region->file;
    if (file == nullptr) return;
    region->next = file->firstRegion.load();
    if (region->next != nullptr) region->next->previous = region;
    file->firstRegion.store(region);
}

void UnchainLocked(Region* region)
{
    if (region->file == nullptr) return;
    if (region->next != nullptr) region->next->previous = region->previous;
    if (region->previous != nullptr) {
        region->previous->next = region->next;
    } else {
        // The last touch of the file: with its chain empty it may be closed and freed at once.
        region->file->firstRegion.store(region->next);
    }
}

Region* RemoveLocked(const void* view)
{
    Region* region = regions.Remove(view);
    if (region != nullptr) UnchainLocked(region);
    return region;
}

constexpr DWORD High(uint64_t value)
{
    return static_cast<DWORD>(value >> 32);
}
constexpr DWORD Low(uint64_t value)
{
    return static_cast<DWORD>(value);
}

// What is asked of the system for one region.
struct MappingPlan {
    HANDLE native = INVALID_HANDLE_VALUE;  // paging memory
    DWORD protection = PAGE_READWRITE;
    DWORD viewAccess = FILE_MAP_WRITE;
    uint64_t objectSize = 0;  // of the whole mapping object, in bytes
    uint64_t viewSize = 0;
};

// VORN_E_INVALID_ARG when the file has no bytes, or no access that a view could have.
VornStatus PlanFile(VornFile* file, uint64_t offset, uint64_t length, MappingPlan* plan)
{
    const uint64_t size = VornFileGetSize(file);
    if (size == 0) return VORN_E_INVALID_ARG;
    if (file->access != VORN_FILE_ACCESS_READ && file->access != VORN_FILE_ACCESS_READ_WRITE) {
        return VORN_E_INVALID_ARG;
    }
    // A mapping object has the size of its file; one of this size cannot be made.
    if (size == VORN_FILE_FAILED) return VORN_E_MAPPING;
    const bool readOnly = file->access == VORN_FILE_ACCESS_READ;
    plan->native = file->native;
    plan->protection = readOnly ? PAGE_READONLY : PAGE_READWRITE;
    plan->viewAccess = readOnly ? FILE_MAP_READ : FILE_MAP_WRITE;
    plan->objectSize = size;
    plan->viewSize = length != 0 ? length : size - offset;
    return VORN_OK;
}

MappingPlan PlanPagingMemory(uint64_t length)
{
    MappingPlan plan;
    plan.objectSize = length;
    plan.viewSize = length;
    return plan;
}

HANDLE OpenMapping(const MappingPlan& plan, const wchar_t* name, const VornSecurityDescriptor* security)
{
    if (name != nullptr) {
        HANDLE existing = OpenFileMappingW(FILE_MAP_WRITE, FALSE, name);
        if (existing != nullptr) return existing;
    }
    return CreateFileMappingW(plan.native, AttributesOf(security), plan.protection, High(plan.objectSize),
                              Low(plan.objectSize), name);
}

}  // namespace

void* MapRegion(VornFile* file, uint64_t offset, uint64_t length, const wchar_t* name, void* address,
                const VornSecurityDescriptor* security)
{
    VornSetLastError(VORN_E_INVALID_ARG);
    if (file != nullptr && name != nullptr) return nullptr;
    if ((file != nullptr || length == 0) && !Files().Contains(file)) return nullptr;

    MappingPlan plan = PlanPagingMemory(length);
    if (file != nullptr) {
        const VornStatus status = PlanFile(file, offset, length, &plan);
        if (status != VORN_OK) return Fail<void>(status);
    }
    KernelHandle mapping(OpenMapping(plan, name, security));
    if (!mapping) return Fail<void>(VORN_E_MAPPING);
    // The offset is not rounded: the system refuses one that is off its granularity.
    View view(
        MapViewOfFileEx(mapping.Get(), plan.viewAccess, High(offset), Low(offset), plan.viewSize, address));
    if (!view) return Fail<void>(VORN_E_MAPPING);
    Record<Region> region;
    if (!region) return Fail<void>(VORN_E_NO_MEMORY);

    RegionLock lock;
    region->file = file;
    region->mapping = mapping.Release();
    region->view = view.Release();
    ChainLocked(region.Get());
    regions.Insert(region.Get());
    return Succeed(region.Release()->view);
}

void ReleaseRegions(VornFile* file)
{
    while (file->firstRegion.load() != nullptr) {
        DetachedRegion detached;  // outlives the lock, also when its release throws
        RegionLock lock;
        if (Region* head = file->firstRegion.load()) detached.TakeLocked(RemoveLocked(head->view));
    }
}

}  // namespace vorn::detail

using namespace vorn::detail;

extern "C" void* VornFileMapRegion(VornFile* file, uint64_t offset, uint64_t length, const wchar_t* name,
                                   void* address)
{
    return MapRegion(file, offset, length, name, address, nullptr);
}

extern "C" VornStatus VornFileUnmapRegion(void* view)
{
    DetachedRegion detached;  // outlives the lock, also when its release throws
    {
        RegionLock lock;
        detached.TakeLocked(RemoveLocked(view));
    }
    return detached ? VORN_OK : VORN_E_INVALID_ARG;
}
