// heap_files.cpp - saving a heap to an image file and loading one.

#include <vorn/file.h>

#include "core/kernel_handle.h"
#include "core/record.h"
#include "core/registries.h"
#include "core/system_error.h"
#include "file/file_record.h"
#include "heap/heap_entry.h"
#include "heap/heap_image.h"

using namespace vorn::detail;

namespace {

// An image file, open without sharing and registered as any file handle while it lives.
class ImageFile final : public ImageSource {
public:
    ImageFile() noexcept = default;
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;
    ~ImageFile()
    {
        if (file_ != nullptr) VornFileClose(file_);
    }

    VornStatus Open(const wchar_t* name, DWORD rights, DWORD disposition, VornFileAccessMode access) noexcept
    {
        KernelHandle native(
            CreateFileW(name, rights, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!native) return StatusFromSystemError(GetLastError());
        Record<VornFile> file;
        if (!file || !Files().Register(file.Get())) return VORN_E_NO_MEMORY;
        file->native = native.Release();
        file->access = access;
        file_ = file.Release();
        return VORN_OK;
    }

    uint64_t Size() const noexcept { return VornFileGetSize(file_); }
    VornStatus Read(void* buffer, uint32_t size, uint32_t* read) override
    {
        return VornFileRead(file_, buffer, size, read);
    }
    VornStatus Write(const void* buffer, uint32_t size, uint32_t* written) noexcept
    {
        return VornFileWrite(file_, buffer, size, written);
    }

private:
    VornFile* file_ = nullptr;
};

}  // namespace

extern "C" VornStatus VornHeapSave(VornHeap* heap, const wchar_t* fileName)
{
    return InsideHeap(heap, [&](const VornHeap& record) {
        if (static_cast<const HeapHeader*>(record.base)->totalSize > UINT32_MAX) return VORN_E_NOT_APPLIED;
        const HeapArea area(record.base, record.size);
        if (!area) return VORN_E_HEAP_CORRUPT;
        ImageFile file;
        VornStatus status = file.Open(fileName, GENERIC_WRITE, CREATE_ALWAYS, VORN_FILE_ACCESS_WRITE);
        if (status != VORN_OK) return status;
        const uint32_t size = static_cast<uint32_t>(area.TotalSize());
        uint32_t written = 0;
        status = file.Write(record.base, size, &written);
        if (status != VORN_OK) return status;
        return written < size ? VORN_E_WRITE : VORN_OK;
    });
}

extern "C" VornStatus VornHeapLoad(VornHeap* heap, const wchar_t* fileName)
{
    return InsideArea(heap, [&](const HeapArea& area) {
        ImageFile file;
        const VornStatus status = file.Open(fileName, GENERIC_READ, OPEN_EXISTING, VORN_FILE_ACCESS_READ);
        if (status != VORN_OK) return status;
        // Deliberate: of a larger size only the low half counts.
        return LoadHeapImage(area, static_cast<uint32_t>(file.Size()), file);
    });
}
