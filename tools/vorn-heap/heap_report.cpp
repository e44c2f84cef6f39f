#include "heap_report.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace heap_tool {

using namespace vorn::detail;

namespace {

__attribute__((format(printf, 2, 3))) void Append(std::string* text, const char* format, ...)
{
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    *text += line;
}

// The header only; its fields lie within the first 136 bytes.
const HeapHeader& HeaderOf(const std::vector<uint8_t>& bytes)
{
    return *reinterpret_cast<const HeapHeader*>(bytes.data());
}

std::string NameOf(const std::vector<uint8_t>& bytes, uint64_t offset)
{
    if (offset >= bytes.size()) return "(outside the area)";
    const auto begin = bytes.begin() + static_cast<ptrdiff_t>(offset);
    const auto end = std::find(begin, bytes.end(), uint8_t{0});
    return '"' + Preview(&*begin, static_cast<uint64_t>(end - begin), 60) + '"';
}

}  // namespace

double Report::Fragmentation() const
{
    if (freeBytes == 0 || largestFree == nullptr) return 0;
    return 1.0 - static_cast<double>(largestFree->size) / static_cast<double>(freeBytes);
}

Report Examine(std::vector<uint8_t>* bytes)
{
    Report report;
    report.areaSize = bytes->size();
    if (bytes->size() < kHeaderSize) return report;
    const HeapHeader& header = HeaderOf(*bytes);
    report.isHeap = header.magic == kHeapMagic && header.version == kHeapVersion;
    if (!report.isHeap) return report;

    const HeapArea area(bytes->data(), bytes->size());
    if (!area) {
        report.verdict = {HeapFault::kTotalSize, offsetof(HeapHeader, totalSize)};
        return report;
    }
    BlockWalk walk(area);
    while (walk.Next()) {
        report.walkedTo = walk.Offset() + walk.Size();
        if (walk.IsEdge()) continue;
        report.blocks.push_back({walk.Offset(), walk.Size(), walk.UserSize(), walk.IsAllocated()});
        if (walk.IsAllocated()) {
            ++report.allocatedBlocks;
            report.allocatedBytes += walk.Size();
            report.requestedBytes += walk.UserSize();
        } else {
            ++report.freeBlocks;
            report.freeBytes += walk.Size();
        }
    }
    for (const Block& block : report.blocks) {
        if (block.allocated) continue;
        if (report.largestFree == nullptr || block.size > report.largestFree->size)
            report.largestFree = &block;
    }
    report.verdict = CheckHeap(area);
    return report;
}

std::string Preview(const uint8_t* bytes, uint64_t size, uint64_t most)
{
    std::string text;
    for (uint64_t i = 0; i < std::min(size, most); ++i) {
        text += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
    }
    return text;
}

std::string DescribeHeader(const std::vector<uint8_t>& bytes, const Report& report)
{
    const HeapHeader& header = HeaderOf(bytes);
    const uint64_t total = header.totalSize;
    const uint64_t userHeaderOffset = header.userHeaderOffset;
    const uint64_t nameOffset = header.nameOffset;
    const uint64_t root = header.root;
    std::string text = "Header\n";
    Append(&text, "  total size        %12" PRIu64 " bytes", total);
    if (total != report.areaSize) Append(&text, " (there are %" PRIu64 ")", report.areaSize);
    Append(&text, "\n  allocated blocks  %12" PRIu64 "\n", uint64_t{header.allocatedBlocks});
    Append(&text, "  bytes in use      %12" PRIu64 "\n", uint64_t{header.bytesInUse});
    Append(&text, "  attach count      %12" PRIu32 "\n", uint32_t{header.attachCount});
    Append(&text, "  users             %12" PRIu32 "\n", uint32_t{header.users});
    Append(&text, "  state flag        %12" PRIu32 "\n", uint32_t{header.stateFlag});
    Append(&text, "  user header       %12" PRIu32 " bytes at %" PRIu64 "\n", uint32_t{header.userHeaderSize},
           userHeaderOffset);
    if (nameOffset != 0) {
        Append(&text, "  name              %12s at %" PRIu64 "\n", NameOf(bytes, nameOffset).c_str(),
               nameOffset);
    }
    Append(&text,
           root == kNilNode ? "  free tree                empty\n" : "  free tree root    %12" PRIu64 "\n",
           root);
    return text;
}

std::string DescribeStatistics(const std::vector<uint8_t>& bytes, const Report& report)
{
    std::string text = "Statistics\n";
    Append(&text,
           "  allocated     %10" PRIu64 " blocks, %12" PRIu64 " bytes, %" PRIu64 " of them asked for\n",
           report.allocatedBlocks, report.allocatedBytes, report.requestedBytes);
    Append(&text, "  free          %10" PRIu64 " blocks, %12" PRIu64 " bytes\n", report.freeBlocks,
           report.freeBytes);
    if (report.largestFree != nullptr) {
        Append(&text,
               "  largest free  %10" PRIu64 " bytes at %" PRIu64 ", for a request of up to %" PRIu64 "\n",
               report.largestFree->size, report.largestFree->offset,
               report.largestFree->size - kBlockHeaderSize - kEndMarkerSize);
    }
    Append(&text, "  fragmentation     %5.1f %% of the free bytes are outside the largest free block\n",
           100 * report.Fragmentation());
    // The check does not compare the header's counters with the blocks; a user of the tool wants to know.
    const uint64_t bytesInUse = kFirstBlock + report.allocatedBytes + report.freeBlocks * kBlockHeaderSize;
    if (report.verdict.fault == HeapFault::kNone &&
        (HeaderOf(bytes).allocatedBlocks != report.allocatedBlocks ||
         HeaderOf(bytes).bytesInUse != bytesInUse))
    {
        Append(&text, "  note: the header's counters differ; these blocks make %" PRIu64 " bytes in use\n",
               bytesInUse);
    }
    return text;
}

std::string DescribeVerdict(const Report& report)
{
    std::string text = "Check\n";
    if (report.verdict.fault == HeapFault::kNone) {
        Append(&text, "  sound: %s\n", DescribeFault(report.verdict.fault));
    } else {
        Append(&text, "  DAMAGED at offset %" PRIu64 ": %s\n", report.verdict.offset,
               DescribeFault(report.verdict.fault));
    }
    return text;
}

std::string ListBlocks(const std::vector<uint8_t>& bytes, const Report& report)
{
    std::string text = "Blocks\n        offset          size     requested  kind  preview\n";
    for (const Block& block : report.blocks) {
        Append(&text, "  %12" PRIu64 "  %12" PRIu64 "  ", block.offset, block.size);
        if (block.allocated) {
            Append(&text, "%12" PRIu64 "  used  ", block.requested);
            text += Preview(bytes.data() + block.offset + kBlockHeaderSize, block.requested, 40);
        } else {
            Append(&text, "%12s  free", "");
        }
        if (report.verdict.fault != HeapFault::kNone && report.verdict.offset == block.offset)
            text += "  <-- fault";
        text += '\n';
    }
    if (report.verdict.fault != HeapFault::kNone && report.walkedTo < report.areaSize) {
        Append(&text, "  %12" PRIu64 "  the rest cannot be read block by block\n", report.walkedTo);
    }
    return text;
}

}  // namespace heap_tool
