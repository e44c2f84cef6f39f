// Loading images into heaps of several sizes, with and without a name of their own, and using the heaps
// afterwards. An image is arbitrary bytes, or that of a sound heap, damaged, cut short or lengthened. It and
// the target lie in blocks of exactly their size.

#include "fuzz/heap_input.h"
#include "heap/heap_image.h"

#include <memory>
#include <vector>

using namespace vorn::detail;
using namespace heap_fuzz;

namespace {

class FuzzImage final : public ImageSource {
public:
    explicit FuzzImage(const std::vector<uint8_t>& bytes)
        : bytes_(new uint8_t[bytes.size()]), left_(bytes.size())
    {
        if (left_ != 0) std::memcpy(bytes_.get(), bytes.data(), left_);
    }

    uint32_t Size() const { return static_cast<uint32_t>(left_ + position_); }
    VornStatus Read(void* buffer, uint32_t size, uint32_t* read) override
    {
        *read = static_cast<uint32_t>(size < left_ ? size : left_);
        if (*read != 0) std::memcpy(buffer, bytes_.get() + position_, *read);
        position_ += *read;
        left_ -= *read;
        return VORN_OK;
    }

private:
    std::unique_ptr<uint8_t[]> bytes_;
    size_t left_;
    size_t position_ = 0;
};

constexpr uint64_t kNamePosition = offsetof(HeapHeader, nameOffset);
constexpr uint64_t kRootPosition = offsetof(HeapHeader, root);

// The image of a sound heap that may have one of its blocks for a name, then damaged and of another length.
std::vector<uint8_t> DerivedImage(Input& input, uint64_t (&payloads)[kPayloads])
{
    const uint64_t size = (kSmallestArea + input.Number(2) % 2048) & ~uint64_t{1};
    std::vector<uint8_t> image(size < kSmallestArea ? kSmallestArea : size);
    FillSoundHeap(image.data(), image.size(), input, payloads);
    image.resize(image.size() & ~size_t{1});
    const uint64_t name = input.Number(1) % (2 * kPayloads);
    if (name < kPayloads) std::memcpy(image.data() + kNamePosition, &payloads[name], sizeof payloads[name]);
    Damage(image.data(), image.size(), input, 5);
    const uint64_t length = input.Number(1);
    if (length >= 192) image.resize(image.size() + length - 192);
    if (length < 64) image.resize(image.size() - length);
    return image;
}

std::vector<uint8_t> ArbitraryImage(Input& input)
{
    const bool repair = input.Number(1) % 2 != 0;
    std::vector<uint8_t> image(input.Left() - input.Left() / 8);  // the rest is for what is done afterwards
    input.Bytes(image.data(), image.size());
    if (repair && image.size() >= kHeaderSize) {
        const uint64_t total = image.size() & ~uint64_t{1};
        std::memcpy(image.data(), "SABO\x01\x00\x00\x80", 8);
        std::memcpy(image.data() + offsetof(HeapHeader, totalSize), &total, sizeof total);
    }
    return image;
}

void GiveName(const HeapArea& area, uint64_t size)
{
    uint64_t name = 0;
    if (size == 0 || AllocateBlock(area, size, &name) != VORN_OK) return;
    std::memset(area.Bytes(name), 'n', size - 1);
    area.Bytes(name)[size - 1] = 0;
    area.Header().nameOffset = name;
}

// What the check calls sound stays sound under operations that succeed.
void UseHeap(const HeapArea& area, const uint64_t (&payloads)[kPayloads], Input& input)
{
    bool sound = CheckHeap(area).fault == HeapFault::kNone;
    for (int steps = 0; steps < 40 && !input.Empty(); ++steps) {
        uint64_t value = 0;
        VornStatus status = VORN_OK;
        switch (input.Number(1) % 4) {
            case 0:
                status = AllocateBlock(area, input.Number(1) * 2, &value);
                break;
            case 1:
                status = ReleaseBlock(area, payloads[input.Number(1) % kPayloads]);
                break;
            case 2:
                status = ReleaseBlock(area, input.Number(2));
                break;
            case 3:
                LargestRequest(area, &value);
                SumFreeTree(area, &value);
                break;
        }
        if (status == VORN_OK && sound) Require(CheckHeap(area).fault == HeapFault::kNone);
        if (status == VORN_E_HEAP_CORRUPT) sound = false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    const uint64_t choice = input.Number(1);
    const uint64_t extra = input.Number(2);
    const uint64_t nameSize = input.Number(1);
    uint64_t payloads[kPayloads] = {};
    const std::vector<uint8_t> image =
        choice % 4 != 0 ? DerivedImage(input, payloads) : ArbitraryImage(input);

    const uint64_t likely = image.size() + extra % 300;  // most images fit into their target
    const uint64_t targetSize =
        choice / 4 % 8 != 0 && likely >= kSmallestArea ? likely : kSmallestArea + extra % 4096;
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[targetSize]());
    LayOutHeap(bytes.get(), targetSize);
    StampHeap(bytes.get());
    const HeapArea area(bytes.get(), targetSize);
    GiveName(area, nameSize);
    if (choice / 32 % 2 != 0 && image.size() >= kHeaderSize) {
        std::memcpy(bytes.get() + kRootPosition, image.data() + kRootPosition, sizeof(uint64_t));
    }
    FuzzImage source(image);
    LoadHeapImage(area, source.Size(), source);
    UseHeap(area, payloads, input);
    return 0;
}
