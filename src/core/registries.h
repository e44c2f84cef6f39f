// registries.h - the library's handle registries, one for each kind of handle.
//
// They are made when the module is loaded and torn down when it is unloaded, whether or not the library is
// initialised in between.
#ifndef VORN_CORE_REGISTRIES_H
#define VORN_CORE_REGISTRIES_H

#include "core/handle_registry.h"

namespace vorn::detail {

HandleRegistry& Heaps() noexcept;
HandleRegistry& Files() noexcept;
HandleRegistry& FileSearches() noexcept;
HandleRegistry& EnvironmentBlocks() noexcept;
HandleRegistry& Processes() noexcept;
HandleRegistry& ProcessIterators() noexcept;
HandleRegistry& ModuleIterators() noexcept;
HandleRegistry& ModuleRecords() noexcept;

}  // namespace vorn::detail

#endif
