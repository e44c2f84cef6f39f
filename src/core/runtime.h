// runtime.h - what VornInitialize makes for the other families.
#ifndef VORN_CORE_RUNTIME_H
#define VORN_CORE_RUNTIME_H

#include <cstdint>

namespace vorn::detail {

// Made by the first VornInitialize, freed by the final VornTerminate.
struct SystemInfo {
    uint32_t processors;      // bits set in the process affinity mask; 1 when the mask cannot be read
    uint32_t legacyPlatform;  // 1 for the family before NT, else 0
    uint32_t majorVersion;
    uint32_t minorVersion;
};

// Null while the library is not initialised.
const SystemInfo* GetSystemInfoRecord() noexcept;

// True where named kernel objects that processes share take the prefix "Global\".
bool NamedObjectsAreGlobal() noexcept;

}  // namespace vorn::detail

#endif
