// registries.h - the library's handle registries, one for each kind of handle.
//
// They are made when the module is loaded and torn down when it is unloaded, whether or not the library is
// initialised in between.
#ifndef VORN_CORE_REGISTRIES_H
#define VORN_CORE_REGISTRIES_H

#include "core/handle_registry.h"

namespace vorn::detail {

// The objects; use the functions.
namespace registries {
extern HandleRegistry heaps;
extern HandleRegistry files;
extern HandleRegistry fileSearches;
extern HandleRegistry environmentBlocks;
extern HandleRegistry processes;
extern HandleRegistry processIterators;
extern HandleRegistry moduleIterators;
extern HandleRegistry moduleRecords;
}  // namespace registries

inline HandleRegistry& Heaps() noexcept
{
    return registries::heaps;
}
inline HandleRegistry& Files() noexcept
{
    return registries::files;
}
inline HandleRegistry& FileSearches() noexcept
{
    return registries::fileSearches;
}
inline HandleRegistry& EnvironmentBlocks() noexcept
{
    return registries::environmentBlocks;
}
inline HandleRegistry& Processes() noexcept
{
    return registries::processes;
}
inline HandleRegistry& ProcessIterators() noexcept
{
    return registries::processIterators;
}
inline HandleRegistry& ModuleIterators() noexcept
{
    return registries::moduleIterators;
}
inline HandleRegistry& ModuleRecords() noexcept
{
    return registries::moduleRecords;
}

}  // namespace vorn::detail

#endif
