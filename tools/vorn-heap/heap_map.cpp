#include "heap_map.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

namespace heap_tool {

using namespace vorn::detail;

namespace {

constexpr size_t kKinds = 6;

struct KindStyle {
    char character;
    const char* colour;
    const char* name;
};
constexpr KindStyle kStyles[kKinds] = {
    {'.', "#9aa3ad", "overhead"},           {'#', "#3b74b9", "allocated"},    {'-', "#cfe8cf", "free"},
    {'=', "#6fbf73", "largest free block"}, {'?', "#efe6d8", "not readable"}, {'!', "#d62728", "damage"},
};

const KindStyle& StyleOf(CellKind kind)
{
    return kStyles[static_cast<size_t>(kind)];
}

// Counts, for each cell, how many bytes of each kind it has.
class CellCounts {
public:
    CellCounts(uint64_t areaSize, uint64_t mostCells)
        : areaSize_(areaSize),
          cellSize_(std::max<uint64_t>(1, (areaSize + mostCells - 1) / mostCells)),
          counts_((areaSize + cellSize_ - 1) / cellSize_)
    {}

    void Add(uint64_t from, uint64_t to, CellKind kind)
    {
        to = std::min(to, areaSize_);
        while (from < to) {
            const uint64_t cell = from / cellSize_;
            const uint64_t end = std::min(to, (cell + 1) * cellSize_);
            counts_[cell][static_cast<size_t>(kind)] += end - from;
            from = end;
        }
    }

    AreaMap Decide() const
    {
        AreaMap map;
        map.cellSize = cellSize_;
        for (const auto& count : counts_) {
            size_t kind = static_cast<size_t>(std::max_element(count.begin(), count.end()) - count.begin());
            if (count[static_cast<size_t>(CellKind::kDamage)] != 0)
                kind = static_cast<size_t>(CellKind::kDamage);
            map.cells.push_back(static_cast<CellKind>(kind));
        }
        return map;
    }

private:
    uint64_t areaSize_;
    uint64_t cellSize_;
    std::vector<std::array<uint64_t, kKinds>> counts_;
};

std::string Escape(const std::string& text)
{
    std::string escaped;
    for (char c : text) {
        if (c == '<') {
            escaped += "&lt;";
        } else if (c == '>') {
            escaped += "&gt;";
        } else if (c == '&') {
            escaped += "&amp;";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

}  // namespace

AreaMap DrawMap(const Report& report, uint64_t mostCells)
{
    CellCounts counts(report.areaSize, mostCells);
    counts.Add(0, std::min(report.areaSize, kFirstBlock), CellKind::kOverhead);
    uint64_t end = std::min(report.areaSize, kFirstBlock);
    for (const Block& block : report.blocks) {
        end = block.offset + block.size;
        if (block.allocated) {
            const uint64_t payload = block.offset + kBlockHeaderSize;
            counts.Add(block.offset, payload, CellKind::kOverhead);
            counts.Add(payload, payload + block.requested, CellKind::kAllocated);
            counts.Add(payload + block.requested, end, CellKind::kOverhead);
        } else {
            counts.Add(block.offset, end,
                       &block == report.largestFree ? CellKind::kLargestFree : CellKind::kFree);
        }
    }
    if (report.walkedTo > end) {
        counts.Add(end, report.walkedTo, CellKind::kOverhead);
        end = report.walkedTo;
    }
    counts.Add(end, report.areaSize, CellKind::kUnknown);
    if (report.verdict.fault != HeapFault::kNone) {
        const uint64_t offset = std::min(report.verdict.offset, report.areaSize - 1);
        counts.Add(offset, offset + 1, CellKind::kDamage);
    }
    return counts.Decide();
}

std::string MapAsText(const Report& report, unsigned columns, unsigned mostLines)
{
    const AreaMap map = DrawMap(report, uint64_t{columns} * mostLines);
    char line[64];
    std::snprintf(line, sizeof line, "Map, %" PRIu64 " bytes to a character\n", map.cellSize);
    std::string text = line;
    for (size_t first = 0; first < map.cells.size(); first += columns) {
        std::snprintf(line, sizeof line, "  %12" PRIu64 "  ", first * map.cellSize);
        text += line;
        for (size_t i = first; i < std::min<size_t>(first + columns, map.cells.size()); ++i) {
            text += StyleOf(map.cells[i]).character;
        }
        text += '\n';
    }
    text += " ";
    for (const KindStyle& style : kStyles)
        text += std::string(" ") + style.character + " " + style.name + " ";
    return text + "\n";
}

std::string MapAsSvg(const Report& report, const std::string& title)
{
    constexpr unsigned kColumns = 240;
    constexpr unsigned kRows = 40;
    constexpr unsigned kCellWidth = 4;
    constexpr unsigned kRowHeight = 12;
    constexpr unsigned kLeft = 100;
    constexpr unsigned kTop = 84;
    const AreaMap map = DrawMap(report, uint64_t{kColumns} * kRows);
    const unsigned rows = static_cast<unsigned>((map.cells.size() + kColumns - 1) / kColumns);
    const unsigned height = kTop + rows * (kRowHeight + 2) + 40;
    char line[400];

    std::string svg;
    std::snprintf(
        line, sizeof line,
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%u\" height=\"%u\" font-family=\"sans-serif\" "
        "font-size=\"12\">\n<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
        kLeft + kColumns * kCellWidth + 20, height);
    svg += line;
    svg += "<text x=\"20\" y=\"26\" font-size=\"16\">" + Escape(title) + "</text>\n";
    std::snprintf(line, sizeof line,
                  "<text x=\"20\" y=\"46\">%" PRIu64 " bytes; %" PRIu64 " allocated blocks with %" PRIu64
                  " bytes; %" PRIu64 " free blocks with %" PRIu64 " bytes; fragmentation %.1f %%</text>\n",
                  report.areaSize, report.allocatedBlocks, report.allocatedBytes, report.freeBlocks,
                  report.freeBytes, 100 * report.Fragmentation());
    svg += line;
    const bool sound = report.verdict.fault == HeapFault::kNone;
    std::snprintf(line, sizeof line, "<text x=\"20\" y=\"64\" fill=\"%s\">%s%s</text>\n",
                  sound ? "#2e7d32" : StyleOf(CellKind::kDamage).colour,
                  sound ? "" : ("Damaged at offset " + std::to_string(report.verdict.offset) + ". ").c_str(),
                  DescribeFault(report.verdict.fault));
    svg += line;

    for (unsigned row = 0; row < rows; ++row) {
        const unsigned y = kTop + row * (kRowHeight + 2);
        const size_t first = size_t{row} * kColumns;
        const size_t last = std::min<size_t>(first + kColumns, map.cells.size());
        std::snprintf(line, sizeof line,
                      "<text x=\"%u\" y=\"%u\" font-size=\"10\" text-anchor=\"end\">%" PRIu64 "</text>\n",
                      kLeft - 8, y + kRowHeight - 2, first * map.cellSize);
        svg += line;
        for (size_t begin = first; begin < last;) {
            size_t end = begin + 1;
            while (end < last && map.cells[end] == map.cells[begin]) ++end;
            std::snprintf(line, sizeof line,
                          "<rect x=\"%zu\" y=\"%u\" width=\"%zu\" height=\"%u\" fill=\"%s\"/>\n",
                          kLeft + (begin - first) * kCellWidth, y, (end - begin) * kCellWidth, kRowHeight,
                          StyleOf(map.cells[begin]).colour);
            svg += line;
            begin = end;
        }
    }
    unsigned x = kLeft;
    for (const KindStyle& style : kStyles) {
        std::snprintf(line, sizeof line,
                      "<rect x=\"%u\" y=\"%u\" width=\"12\" height=\"12\" fill=\"%s\"/>"
                      "<text x=\"%u\" y=\"%u\">%s</text>\n",
                      x, height - 26, style.colour, x + 18, height - 16, style.name);
        svg += line;
        x += 150;
    }
    return svg + "</svg>\n";
}

}  // namespace heap_tool
