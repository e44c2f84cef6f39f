#include "core/runtime.h"

#include <vorn/runtime.h>
#include <vorn/sync.h>

#include "core/win32.h"

#include "core/last_error.h"
#include "core/processor_mask.h"
#include "core/record.h"
#include "file/shell_path.h"
#include "text/codepage_converter.h"
#include "thread/static_init_lock.h"

#include <atomic>

namespace vorn::detail {

namespace {

// Serialises VornInitialize and VornTerminate.
VornMutex* initLock = VORN_RECURSIVE_MUTEX_INITIALIZER;
// Callers that hold the init lock, wait for it or are on their way to it.
unsigned initLockUsers = 0;  // guarded by the static-initialisation lock
// Deliberate: not guarded against going below 0.
uint32_t initCount = 0;  // guarded by initLock
std::atomic<SystemInfo*> systemInfo{nullptr};

SystemInfo* MakeSystemInfo() noexcept
{
    Record<SystemInfo> info;
    if (!info) return nullptr;
    DWORD_PTR processMask = 0;
    DWORD_PTR systemMask = 0;
    info->processors = GetProcessAffinityMask(GetCurrentProcess(), &processMask, &systemMask)
                           ? ProcessorsInMask(processMask)
                           : 1;
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    static_assert(sizeof(OSVERSIONINFOW) == 276);
    if (GetVersionExW(&version)) {
        info->legacyPlatform = version.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS ? 1 : 0;
        info->majorVersion = version.dwMajorVersion;
        info->minorVersion = version.dwMinorVersion;
    }
    return info.Release();
}

VornStatus FirstInitialize() noexcept
{
    if (!AllocateLastErrorSlot()) return VORN_E_NO_RESOURCES;
    SystemInfo* info = MakeSystemInfo();
    if (info == nullptr) {
        FreeLastErrorSlot();
        return VORN_E_SYSTEM;
    }
    systemInfo.store(info, std::memory_order_release);
    return VORN_OK;
}

void FinalTerminate() noexcept
{
    std::free(systemInfo.exchange(nullptr));
    ReleaseShellPath();
    CloseKeptConverters();
    FreeLastErrorSlot();
}

// Holds the init lock for a scope. The final VornTerminate destroys the lock, so callers on their way to it
// are counted: whoever is the last to leave destroys it, and nobody waits on a record that is gone.
class InitLockScope {
public:
    InitLockScope() noexcept
    {
        {
            StaticInitLock guard;
            ++initLockUsers;
        }
        held_ = VornMutexLock(&initLock) == VORN_OK;
    }
    InitLockScope(const InitLockScope&) = delete;
    InitLockScope& operator=(const InitLockScope&) = delete;
    ~InitLockScope()
    {
        if (held_) VornMutexUnlock(&initLock);
        StaticInitLock guard;
        // Where nobody is left who could hold the lock, the count does not change either.
        if (--initLockUsers != 0 || initCount != 0) return;
        // A failed creation on first use has left 0 already. What cannot be destroyed serves the next caller.
        VornMutexDestroy(&initLock);
        if (initLock == nullptr) initLock = VORN_RECURSIVE_MUTEX_INITIALIZER;
    }
    explicit operator bool() const noexcept { return held_; }

private:
    bool held_;
};

}  // namespace

const SystemInfo* GetSystemInfoRecord() noexcept
{
    return systemInfo.load(std::memory_order_acquire);
}

bool NamedObjectsAreGlobal() noexcept
{
    const SystemInfo* info = GetSystemInfoRecord();
    return info != nullptr && info->legacyPlatform == 0 && info->majorVersion >= 5;
}

}  // namespace vorn::detail

using namespace vorn::detail;

extern "C" uint32_t VornGetVersion(void)
{
    return VORN_VERSION;
}

extern "C" VornStatus VornInitialize(void)
{
    InitLockScope lock;
    if (!lock) return VORN_E_SYSTEM;
    if (++initCount != 1) return VORN_OK;
    const VornStatus status = FirstInitialize();
    if (status != VORN_OK) --initCount;
    return status;
}

extern "C" void VornTerminate(void)
{
    InitLockScope lock;
    if (!lock) return;
    if (--initCount == 0) FinalTerminate();
}
