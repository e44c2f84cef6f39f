#include "thread/static_init_lock.h"

#include "core/win32.h"

namespace vorn::detail {

namespace {

CRITICAL_SECTION staticInitLock;

}  // namespace

void CreateStaticInitLock() noexcept
{
    InitializeCriticalSection(&staticInitLock);
}

void DeleteStaticInitLock() noexcept
{
    DeleteCriticalSection(&staticInitLock);
}

StaticInitLock::StaticInitLock() noexcept
{
    EnterCriticalSection(&staticInitLock);
}

StaticInitLock::~StaticInitLock()
{
    LeaveCriticalSection(&staticInitLock);
}

}  // namespace vorn::detail
