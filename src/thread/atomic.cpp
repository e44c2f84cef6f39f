#include <vorn/sync.h>

// The builtins compile to one locked instruction each. "volatile" in the interface only says that other
// threads change the target.

extern "C" int32_t VornAtomicAdd32(volatile int32_t* target, int32_t addend)
{
    return __atomic_fetch_add(target, addend, __ATOMIC_SEQ_CST);
}

extern "C" void VornAtomicSub32(volatile int32_t* target, int32_t amount)
{
    __atomic_sub_fetch(target, amount, __ATOMIC_SEQ_CST);
}

extern "C" int32_t VornAtomicInc32(volatile int32_t* target)
{
    return __atomic_add_fetch(target, 1, __ATOMIC_SEQ_CST);
}

extern "C" int32_t VornAtomicDec32(volatile int32_t* target)
{
    return __atomic_sub_fetch(target, 1, __ATOMIC_SEQ_CST);
}

extern "C" int32_t VornAtomicExchange32(volatile int32_t* target, int32_t value)
{
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

extern "C" int32_t VornAtomicCompareExchange32(volatile int32_t* target, int32_t exchange, int32_t comparand)
{
    // A failed exchange leaves the value it found in `comparand`.
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    return comparand;
}

extern "C" void* VornAtomicCompareExchangePointer(void* volatile* target, void* exchange, void* comparand)
{
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    return comparand;
}
