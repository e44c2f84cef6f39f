// wildcard.h - matching of whole names against patterns with * and ?.
// Takes units and gives an answer: no allocation, no recursion, no system. Lengths are in UTF-16 units.
#ifndef VORN_FILE_WILDCARD_H
#define VORN_FILE_WILDCARD_H

#include <cstddef>

namespace vorn::detail {

// True when the pattern matches the whole name: `*` stands for any run of units, the empty one included,
// `?` for exactly one unit, every other unit for itself, so that case matters. An empty pattern and an
// empty name match nothing, each other and `*` included. Takes at most about patternUnits * nameUnits steps.
bool WildcardMatches(const wchar_t* pattern, size_t patternUnits, const wchar_t* name,
                     size_t nameUnits) noexcept;

}  // namespace vorn::detail

#endif
