#include "heap/heap_image.h"

#include "core/record.h"
#include "heap/heap_blocks.h"
#include "heap/heap_tree.h"

#include <cstring>

namespace vorn::detail {

namespace {

// A heap's name with its terminating zero; empty for a heap without one.
struct SavedName {
    Buffer<char> text;
    uint64_t size = 0;
};

VornStatus ReadExactly(ImageSource& source, void* buffer, uint32_t size)
{
    uint32_t read = 0;
    const VornStatus status = source.Read(buffer, size, &read);
    if (status != VORN_OK) return status;
    return read < size ? VORN_E_READ : VORN_OK;
}

// The size, terminating zero included, of the name in the block whose payload is at `offset`.
VornStatus MeasureName(const HeapArea& area, uint64_t offset, uint64_t* size) noexcept
{
    uint64_t room;
    const VornStatus status = InspectPayload(area, offset, &room);
    if (status != VORN_OK) return status;
    const char* name = reinterpret_cast<const char*>(area.Bytes(offset));
    const void* zero = std::memchr(name, 0, room);
    if (zero == nullptr) return VORN_E_HEAP_CORRUPT;
    *size = static_cast<uint64_t>(static_cast<const char*>(zero) - name) + 1;
    return VORN_OK;
}

VornStatus SaveName(const HeapArea& area, SavedName* name) noexcept
{
    const uint64_t offset = area.Header().nameOffset;
    if (offset == 0) return VORN_OK;
    uint64_t size;
    if (MeasureName(area, offset, &size) != VORN_OK) return VORN_E_HEAP_CORRUPT;
    name->text = Buffer<char>(size);
    if (!name->text) return VORN_E_NO_MEMORY;
    std::memcpy(name->text.Get(), area.Bytes(offset), size);
    name->text[size - 1] = '\0';
    name->size = size;
    return VORN_OK;
}

// Exactly these fields come from the image; every other one stays the target's.
void AdoptHeader(const HeapArea& target, const HeapHeader& image) noexcept
{
    HeapHeader& header = target.Header();
    // Deliberate: only the low half of the count.
    target.Word(offsetof(HeapHeader, allocatedBlocks)) =
        static_cast<uint32_t>(static_cast<uint64_t>(image.allocatedBlocks));
    header.bytesInUse = image.bytesInUse;
    header.userHeaderSize = image.userHeaderSize;
    header.userHeaderOffset = image.userHeaderOffset;
}

// The free block before the image's end block grows up to the target's end block.
VornStatus GrowFreeBlock(const HeapArea& target, uint64_t last) noexcept
{
    if (!target.HoldsNode(last)) return VORN_E_HEAP_CORRUPT;
    FreeTree tree(target);
    // The image's own root may not be the target's: a root block stays the root until it is taken out.
    if (target.Node(last).parent == 0) tree.SetRoot(last);
    tree.Remove(last);
    if (tree.Damaged()) return VORN_E_HEAP_CORRUPT;
    // Deliberate: bit 0 stays clear, although the end block is allocated. It is known by its offset.
    target.Block(last).nextLink = target.EndBlock();
    target.Block(target.EndBlock()).prevLink = last;
    tree.Insert(last);
    return tree.Damaged() ? VORN_E_HEAP_CORRUPT : VORN_OK;
}

// The image's end block becomes a free block that reaches to the target's end block.
VornStatus FreeImageEnd(const HeapArea& target, uint64_t imageEnd, uint64_t last) noexcept
{
    target.Block(last).nextLink = imageEnd;
    target.Block(imageEnd).nextLink = target.EndBlock() | kAllocatedBit;
    target.Block(imageEnd).userSize = 0;
    target.Block(target.EndBlock()).prevLink = imageEnd;
    HeapHeader& header = target.Header();
    header.bytesInUse = header.bytesInUse + kBlockHeaderSize;
    FreeTree tree(target);
    tree.Insert(imageEnd);
    return tree.Damaged() ? VORN_E_HEAP_CORRUPT : VORN_OK;
}

// No free block fits between the image's end and the target's: the allocated block there grows.
VornStatus GrowAllocatedBlock(const HeapArea& target, uint64_t last, uint64_t gap) noexcept
{
    if (!target.HoldsNode(last)) return VORN_E_HEAP_CORRUPT;
    target.Block(last).nextLink = target.EndBlock() | kAllocatedBit;
    target.Block(target.EndBlock()).prevLink = last | kAllocatedBit;
    HeapHeader& header = target.Header();
    header.bytesInUse = header.bytesInUse + gap;
    return VORN_OK;
}

// Joins the blocks of an image of `imageTotal` bytes to the target's end block.
VornStatus JoinEnd(const HeapArea& target, uint64_t imageTotal) noexcept
{
    if (imageTotal == target.TotalSize()) return VORN_OK;
    if (imageTotal < kSmallestTotalSize || imageTotal > target.TotalSize() || imageTotal % 2 != 0) {
        return VORN_E_HEAP_CORRUPT;
    }
    const uint64_t gap = target.TotalSize() - imageTotal;
    const uint64_t imageEnd = imageTotal - kBlockHeaderSize;

    // The two end blocks may overlap: the image's is read before the target's is laid out again.
    const uint32_t guard = target.Block(imageEnd).guard;
    const uint64_t nextLink = target.Block(imageEnd).nextLink;
    const uint64_t prevLink = target.Block(imageEnd).prevLink;
    const uint64_t end = target.EndBlock();
    target.Block(end).nextLink = target.TotalSize();
    target.Block(end).guard = kBlockGuard;
    target.Block(end).userSize = 0;

    const uint64_t last = LinkOffset(prevLink);
    if (guard != kBlockGuard || LinkOffset(nextLink) != imageTotal) return VORN_E_HEAP_CORRUPT;
    if (!target.HoldsBlock(last) || last >= imageEnd) return VORN_E_HEAP_CORRUPT;
    if (LinkOffset(target.Block(last).nextLink) != imageEnd) return VORN_E_HEAP_CORRUPT;

    if (!LinkIsAllocated(prevLink) && last != kStartBlock) return GrowFreeBlock(target, last);
    if (gap >= kSmallestBlock) return FreeImageEnd(target, imageEnd, last);
    return GrowAllocatedBlock(target, last, gap);
}

// Gives the target its own name again, in the image's name block where that is large enough.
VornStatus RestoreName(const HeapArea& target, uint64_t imageName, const SavedName& name) noexcept
{
    HeapHeader& header = target.Header();
    header.nameOffset = 0;
    uint64_t imageNameSize = 0;
    if (name.size != 0 && imageName != 0 && MeasureName(target, imageName, &imageNameSize) != VORN_OK) {
        return VORN_E_HEAP_CORRUPT;
    }
    uint64_t block = imageName;
    if (name.size == 0 || name.size > imageNameSize) {
        if (ReleaseBlock(target, imageName) != VORN_OK) return VORN_E_HEAP_CORRUPT;
        if (name.size == 0) return VORN_OK;
        const VornStatus status = AllocateBlock(target, name.size, &block);
        if (status != VORN_OK) return status;
    }
    std::memcpy(target.Bytes(block), name.text.Get(), name.size);
    header.nameOffset = block;
    return VORN_OK;
}

}  // namespace

VornStatus LoadHeapImage(const HeapArea& target, uint32_t imageSize, ImageSource& source)
{
    if (imageSize > target.TotalSize()) return VORN_E_NO_MEMORY;
    HeapHeader image;
    VornStatus status = ReadExactly(source, &image, sizeof image);
    if (status != VORN_OK) return status;
    if (image.magic != kHeapMagic || image.version != kHeapVersion) return VORN_E_BAD_IMAGE;

    // A file whose size does not fit in 32 bits is taken for its low half, which need not hold a header.
    if (imageSize < kHeaderSize) return VORN_E_READ;

    SavedName name;
    status = SaveName(target, &name);
    if (status != VORN_OK) return status;
    AdoptHeader(target, image);
    const uint32_t bodySize = imageSize - static_cast<uint32_t>(kHeaderSize);
    status = ReadExactly(source, target.Bytes(kHeaderSize), bodySize);
    if (status != VORN_OK) return status;
    status = JoinEnd(target, image.totalSize);
    if (status != VORN_OK) return status;
    return RestoreName(target, image.nameOffset, name);
}

}  // namespace vorn::detail
