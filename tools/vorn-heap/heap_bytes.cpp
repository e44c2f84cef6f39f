#include "heap_bytes.h"

#include <vorn/vorn.h>

#include "core/win32.h"

#include "core/kernel_handle.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace heap_tool {

using vorn::detail::KernelHandle;

namespace {

struct CloseFile {
    void operator()(VornFile* file) const { VornFileClose(file); }
};
struct UnmapView {
    void operator()(const void* view) const { UnmapViewOfFile(view); }
};
struct ReleaseLock {
    void operator()(void* semaphore) const { ReleaseSemaphore(semaphore, 1, nullptr); }
};

std::string SystemProblem(const char* what)
{
    return std::string(what) + " (system error " + std::to_string(GetLastError()) + ").";
}

// How much of the view is readable memory.
size_t SizeOfView(const void* view)
{
    MEMORY_BASIC_INFORMATION information;
    if (VirtualQuery(view, &information, sizeof information) == 0) return 0;
    return information.RegionSize;
}

HANDLE OpenLock(const std::wstring& name)
{
    const std::wstring global = L"Global\\" + name + L"_SEM";
    HANDLE lock = OpenSemaphoreW(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, global.c_str());
    if (lock != nullptr) return lock;
    return OpenSemaphoreW(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, (name + L"_SEM").c_str());
}

}  // namespace

bool ReadImage(const wchar_t* fileName, std::vector<uint8_t>* bytes, std::string* problem)
{
    const std::unique_ptr<VornFile, CloseFile> file(VornFileCreate(
        fileName, VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE, nullptr, nullptr));
    if (!file) {
        *problem = std::string("The file cannot be opened. ") + VornStatusText(VornGetLastError());
        return false;
    }
    const uint64_t size = VornFileGetSize(file.get());
    if (size > UINT32_MAX) {
        *problem = "The file is no heap image: its size does not fit in 32 bits.";
        return false;
    }
    bytes->resize(static_cast<size_t>(size));
    uint32_t read = 0;
    const VornStatus status =
        size == 0 ? VORN_OK : VornFileRead(file.get(), bytes->data(), static_cast<uint32_t>(size), &read);
    if (status != VORN_OK || read != size) {
        *problem = "The file cannot be read.";
        return false;
    }
    return true;
}

bool ReadSharedHeap(const wchar_t* name, uint32_t timeoutMs, std::vector<uint8_t>* bytes,
                    std::string* problem)
{
    const KernelHandle lock(OpenLock(name));
    if (!lock) {
        *problem = SystemProblem("There is no lock of a shared heap of that name");
        return false;
    }
    const KernelHandle mapping(OpenFileMappingW(FILE_MAP_READ, FALSE, name));
    if (!mapping) {
        *problem = SystemProblem("There is a lock, but no memory of a shared heap of that name");
        return false;
    }
    const std::unique_ptr<const void, UnmapView> view(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
    if (!view) {
        *problem = SystemProblem("The heap's memory cannot be mapped");
        return false;
    }
    if (WaitForSingleObject(lock.Get(), timeoutMs) != WAIT_OBJECT_0) {
        *problem = "The heap's lock was not free within " + std::to_string(timeoutMs) +
                   " ms. Its holder is busy, or ended without giving it back.";
        return false;
    }
    const std::unique_ptr<void, ReleaseLock> held(lock.Get());
    size_t size = SizeOfView(view.get());
    uint64_t total = 0;
    if (size >= 16) std::memcpy(&total, static_cast<const uint8_t*>(view.get()) + 8, sizeof total);
    // The view is rounded up to whole pages; what the header says it is shorter by is no part of the heap.
    if (total >= 136 && total < size) size = static_cast<size_t>(total);
    bytes->resize(size);
    if (size != 0) std::memcpy(bytes->data(), view.get(), size);
    return true;
}

}  // namespace heap_tool
