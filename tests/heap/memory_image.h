// memory_image.h - an image in memory as a source for LoadHeapImage. It lies in a block of exactly its size.
#ifndef VORN_TESTS_HEAP_MEMORY_IMAGE_H
#define VORN_TESTS_HEAP_MEMORY_IMAGE_H

#include "heap/heap_image.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace heap_test {

class MemoryImage final : public vorn::detail::ImageSource {
public:
    explicit MemoryImage(const std::vector<uint8_t>& bytes) : bytes_(bytes) {}

    VornStatus Read(void* buffer, uint32_t size, uint32_t* read) override
    {
        *read = static_cast<uint32_t>(std::min<uint64_t>(size, bytes_.size() - position_));
        if (*read != 0) std::memcpy(buffer, bytes_.data() + position_, *read);
        position_ += *read;
        return VORN_OK;
    }

private:
    const std::vector<uint8_t>& bytes_;
    size_t position_ = 0;
};

inline VornStatus Load(const vorn::detail::HeapArea& target, const std::vector<uint8_t>& image)
{
    MemoryImage source(image);
    return vorn::detail::LoadHeapImage(target, static_cast<uint32_t>(image.size()), source);
}

}  // namespace heap_test

#endif
