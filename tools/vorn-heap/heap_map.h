// heap_map.h - the area of a heap as a picture: in characters, and as SVG.
#ifndef VORN_TOOLS_HEAP_MAP_H
#define VORN_TOOLS_HEAP_MAP_H

#include "heap_report.h"

#include <string>
#include <vector>

namespace heap_tool {

// What most of a cell's bytes are; damage wins over everything.
enum class CellKind : uint8_t { kOverhead, kAllocated, kFree, kLargestFree, kUnknown, kDamage };

// The area cut into cells of equal size. At most `mostCells` of them, and at least one.
struct AreaMap {
    uint64_t cellSize = 1;  // bytes
    std::vector<CellKind> cells;
};
AreaMap DrawMap(const Report& report, uint64_t mostCells);

// `columns` cells to a line, with the offset of each line, and a legend.
std::string MapAsText(const Report& report, unsigned columns, unsigned mostLines);
std::string MapAsSvg(const Report& report, const std::string& title);

}  // namespace heap_tool

#endif
