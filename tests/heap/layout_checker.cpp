#include "heap/layout_checker.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <sstream>

namespace heap_test {

uint32_t Read32(const uint8_t* area, uint64_t offset)
{
    uint32_t value;
    std::memcpy(&value, area + offset, 4);
    return value;
}

uint64_t Read64(const uint8_t* area, uint64_t offset)
{
    uint64_t value;
    std::memcpy(&value, area + offset, 8);
    return value;
}

void Write32(uint8_t* area, uint64_t offset, uint32_t value)
{
    std::memcpy(area + offset, &value, 4);
}

void Write64(uint8_t* area, uint64_t offset, uint64_t value)
{
    std::memcpy(area + offset, &value, 8);
}

namespace {

class Reader {
public:
    Reader(const uint8_t* area, uint64_t size) : area_(area), total_(size / 2 * 2) {}

    SeenHeap Read()
    {
        ReadHeader();
        if (heap_.problem.empty()) ReadBlocks();
        if (heap_.problem.empty()) ReadTree();
        if (heap_.problem.empty()) CompareTreeAndBlocks();
        return heap_;
    }

private:
    template <class... T>
    void Problem(const T&... parts)
    {
        if (!heap_.problem.empty()) return;
        std::ostringstream text;
        (text << ... << parts);
        heap_.problem = text.str();
    }

    void Expect64(uint64_t offset, uint64_t value, const char* what)
    {
        if (Read64(area_, offset) != value) {
            Problem(what, " at ", offset, " is ", Read64(area_, offset), " instead of ", value);
        }
    }

    void ReadHeader()
    {
        if (std::memcmp(area_, "SABO", 4) != 0) Problem("no magic");
        if (Read32(area_, 4) != 0x80000001u) Problem("wrong version");
        Expect64(8, total_, "total size");
        heap_.root = Read64(area_, 64);
        Expect64(72, 72, "nil next-link");
        Expect64(80, 0, "nil prev-link");
        if (Read32(area_, 88) != 0) Problem("nil guard");
        Expect64(96, 0, "nil user size");
        Expect64(104, 0, "nil parent");
        Expect64(112, 72, "nil left");
        Expect64(120, 72, "nil right");
        if (Read32(area_, 128) != 0) Problem("nil colour");
    }

    void ReadBlocks()
    {
        const uint64_t end = total_ - 32;
        uint64_t offset = 136;
        uint64_t previous = 0;
        bool allocated = true;
        uint64_t bytesInUse = 136 + 32;
        uint64_t count = 0;
        for (;;) {
            const uint64_t next = Read64(area_, offset) / 2 * 2;
            const uint64_t prev = Read64(area_, offset + 8) / 2 * 2;
            const uint64_t userSize = Read64(area_, offset + 24);
            if (prev != previous) return Problem("prev-link of ", offset, " is ", prev, ", not ", previous);
            if (Read32(area_, offset + 16) != 0xBEBAFECAu) return Problem("guard of ", offset);
            if (offset == end) {
                if (next != total_) Problem("end block ends at ", next);
                if (userSize != 0) Problem("end block has a size");
                break;
            }
            if (next < offset + 32 || next > end) return Problem("next-link of ", offset, " is ", next);
            const uint64_t size = next - offset;
            if (offset == 136) {
                if (size != 32 || userSize != 0) return Problem("start block");
            } else {
                if (size < 64) return Problem("block ", offset, " has ", size, " bytes");
                if ((Read64(area_, next + 8) % 2 == 1) != allocated) return Problem("bits around ", offset);
                if (!heap_.blocks.empty() && !allocated && !heap_.blocks.back().allocated) {
                    return Problem("two free blocks side by side at ", offset);
                }
                if (allocated) {
                    if (userSize > size - 36) return Problem("user size of ", offset);
                    if (std::memcmp(area_ + offset + 32 + userSize, "ENDE", 4) != 0) {
                        return Problem("end marker of ", offset);
                    }
                    bytesInUse += size;
                    ++count;
                } else {
                    if (userSize != 0) return Problem("free block ", offset, " has a user size");
                    bytesInUse += 32;
                }
                heap_.blocks.push_back({offset, size, userSize, allocated});
            }
            allocated = Read64(area_, offset) % 2 == 1;
            previous = offset;
            offset = next;
        }
        Expect64(16, count, "allocated blocks");
        Expect64(24, bytesInUse, "bytes in use");
    }

    // Returns the number of black nodes on every path down from the node, -1 after a problem.
    int ReadNode(uint64_t offset, uint64_t parent, bool parentIsRed)
    {
        if (offset == 72) return 0;
        if (offset < 168 || offset > total_ - 96) return Problem("tree link ", offset), -1;
        if (!visited_.insert(offset).second) return Problem("node ", offset, " twice in the tree"), -1;
        SeenNode node;
        node.offset = offset;
        node.size = Read64(area_, offset) / 2 * 2 - offset;
        node.parent = Read64(area_, offset + 32);
        node.left = Read64(area_, offset + 40);
        node.right = Read64(area_, offset + 48);
        node.colour = Read32(area_, offset + 56);
        if (node.parent != parent) return Problem("parent of node ", offset), -1;
        if (node.colour > 1) return Problem("colour of node ", offset), -1;
        if (parentIsRed && node.colour == 1) return Problem("red node ", offset, " under a red one"), -1;
        const int left = ReadNode(node.left, offset, node.colour == 1);
        heap_.freeTree.push_back(node);
        const int right = ReadNode(node.right, offset, node.colour == 1);
        if (left != right) return Problem("black nodes below ", offset), -1;
        return left + (node.colour == 0 ? 1 : 0);
    }

    void ReadTree()
    {
        ReadNode(heap_.root, 0, true);
        for (size_t i = 1; i < heap_.freeTree.size(); ++i) {
            if (heap_.freeTree[i].size < heap_.freeTree[i - 1].size) Problem("tree order");
        }
    }

    void CompareTreeAndBlocks()
    {
        std::set<uint64_t> freeBlocks;
        for (const SeenBlock& block : heap_.blocks) {
            if (!block.allocated) freeBlocks.insert(block.offset);
        }
        if (freeBlocks != visited_) Problem("the tree does not hold exactly the free blocks");
    }

    const uint8_t* area_;
    uint64_t total_;
    SeenHeap heap_;
    std::set<uint64_t> visited_;
};

}  // namespace

SeenHeap LookAtHeap(const uint8_t* area, uint64_t size)
{
    return Reader(area, size).Read();
}

uint64_t PayloadByBestFit(const SeenHeap& heap, uint64_t request)
{
    const uint64_t need = std::max<uint64_t>((request + 7) / 4 * 4, 32);
    const SeenNode* best = nullptr;
    for (const SeenNode& node : heap.freeTree) {  // the first of the smallest ones is the leftmost
        if (node.size >= need + 32 && (best == nullptr || node.size < best->size)) best = &node;
    }
    if (best == nullptr) return 0;
    if (best->size <= need + 96) return best->offset + 32;
    return best->offset + best->size - need;
}

}  // namespace heap_test
