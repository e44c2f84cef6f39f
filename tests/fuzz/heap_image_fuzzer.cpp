// Loading arbitrary bytes as an image into heaps of several sizes, with and without a name of their own.

#include "heap/heap_blocks.h"
#include "heap/heap_image.h"
#include "heap/heap_walk.h"

#include <cstring>
#include <initializer_list>
#include <memory>

using namespace vorn::detail;

namespace {

class FuzzImage final : public ImageSource {
public:
    FuzzImage(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    VornStatus Read(void* buffer, uint32_t size, uint32_t* read) override
    {
        *read = static_cast<uint32_t>(size < size_ ? size : size_);
        if (*read != 0) std::memcpy(buffer, data_, *read);
        data_ += *read;
        size_ -= *read;
        return VORN_OK;
    }

private:
    const uint8_t* data_;
    size_t size_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 4) return 0;
    const uint64_t targetSize = kSmallestArea + (data[0] | static_cast<uint64_t>(data[1]) << 8) % 4096;
    const uint8_t nameLength = data[2];
    const bool repair = data[3] % 2 != 0;
    const std::unique_ptr<uint8_t[]> image(new uint8_t[size - 4]);
    std::memcpy(image.get(), data + 4, size - 4);
    if (repair && size - 4 >= 16) {
        std::memcpy(image.get(), "SABO\x01\x00\x00\x80", 8);
        const uint64_t total = (size - 4) & ~uint64_t{1};
        std::memcpy(image.get() + 8, &total, 8);
    }

    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[targetSize]());
    LayOutHeap(bytes.get(), targetSize);
    StampHeap(bytes.get());
    const HeapArea area(bytes.get(), targetSize);
    uint64_t name = 0;
    if (nameLength != 0 && AllocateBlock(area, nameLength, &name) == VORN_OK) {
        std::memset(area.Bytes(name), 'n', nameLength - 1u);
        area.Bytes(name)[nameLength - 1u] = 0;
        area.Header().nameOffset = name;
    }
    FuzzImage source(image.get(), size - 4);
    LoadHeapImage(area, static_cast<uint32_t>(size - 4), source);
    CheckHeap(area);
    uint64_t payload = 0;
    for (uint64_t request : {0, 50, 200}) {
        if (AllocateBlock(area, request, &payload) == VORN_OK) ReleaseBlock(area, payload);
    }
    return 0;
}
