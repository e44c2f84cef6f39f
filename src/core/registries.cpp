#include "core/registries.h"

namespace vorn::detail::registries {

HandleRegistry heaps;
HandleRegistry files;
HandleRegistry fileSearches;
HandleRegistry environmentBlocks;
HandleRegistry processes;
HandleRegistry processIterators;
HandleRegistry moduleIterators;
HandleRegistry moduleRecords;

}  // namespace vorn::detail::registries
