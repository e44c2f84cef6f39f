#include <vorn/vorn.hpp>

#include <cstdio>
#include <cstring>

int main()
{
    if (VornInitialize() != VORN_OK) return 1;
    const VornMutexAttr errorChecking = {VORN_MUTEX_ERRORCHECK, 0};
    {
        vorn::Mutex mutex(&errorChecking);
        mutex.Lock();
        try {
            mutex.Lock();
            return 2;
        } catch (const vorn::LogicError& error) {
            if (std::strcmp(error.What(), "Attempt to lock alredy owned non-recursive mutex.") != 0) return 3;
        }
        mutex.Unlock();
    }
    VornTerminate();
    std::puts("consumer of the class layer: ok");
    return 0;
}
