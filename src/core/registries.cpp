#include "core/registries.h"

namespace vorn::detail {

namespace {

HandleRegistry heaps;
HandleRegistry files;
HandleRegistry fileSearches;
HandleRegistry environmentBlocks;
HandleRegistry processes;
HandleRegistry processIterators;
HandleRegistry moduleIterators;
HandleRegistry moduleRecords;

}  // namespace

HandleRegistry& Heaps() noexcept
{
    return heaps;
}
HandleRegistry& Files() noexcept
{
    return files;
}
HandleRegistry& FileSearches() noexcept
{
    return fileSearches;
}
HandleRegistry& EnvironmentBlocks() noexcept
{
    return environmentBlocks;
}
HandleRegistry& Processes() noexcept
{
    return processes;
}
HandleRegistry& ProcessIterators() noexcept
{
    return processIterators;
}
HandleRegistry& ModuleIterators() noexcept
{
    return moduleIterators;
}
HandleRegistry& ModuleRecords() noexcept
{
    return moduleRecords;
}

}  // namespace vorn::detail
