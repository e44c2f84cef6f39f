#include "file/shell_path.h"

#include "core/win32.h"

#include <atomic>

namespace vorn::detail {

namespace {

std::atomic<HMODULE> shellModule{nullptr};
std::atomic<QualifyPathFunction> qualifyPath{nullptr};  // belongs to shellModule

// Loads the module unless it is there. Whoever comes second with a module of its own gives it back.
HMODULE LoadShellModule() noexcept
{
    HMODULE module = shellModule.load(std::memory_order_acquire);
    if (module != nullptr) return module;
    HMODULE loaded = LoadLibraryW(L"shlwapi");
    if (loaded == nullptr) return nullptr;
    if (shellModule.compare_exchange_strong(module, loaded, std::memory_order_acq_rel)) return loaded;
    FreeLibrary(loaded);
    return module;
}

}  // namespace

ShellPath GetShellPath() noexcept
{
    HMODULE module = LoadShellModule();
    if (module == nullptr) return {nullptr, nullptr};
    QualifyPathFunction qualify = qualifyPath.load(std::memory_order_acquire);
    if (qualify == nullptr) {
        qualify = reinterpret_cast<QualifyPathFunction>(
            reinterpret_cast<void*>(GetProcAddress(module, "PathSearchAndQualifyW")));
        qualifyPath.store(qualify, std::memory_order_release);
    }
    return {module, qualify};
}

void ReleaseShellPath() noexcept
{
    qualifyPath.store(nullptr, std::memory_order_release);
    HMODULE module = shellModule.exchange(nullptr, std::memory_order_acq_rel);
    if (module != nullptr) FreeLibrary(module);
}

}  // namespace vorn::detail
