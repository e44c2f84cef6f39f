#include <vorn/thread.h>

#include "core/win32.h"

extern "C" void VornThreadSleep(uint32_t milliseconds)
{
    static_assert(VORN_INFINITE == INFINITE);
    Sleep(milliseconds);
}

extern "C" void VornThreadYield(void)
{
    Sleep(0);
}
