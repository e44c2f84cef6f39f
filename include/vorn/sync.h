/*
 * sync.h - atomics and mutexes.
 *
 * A mutex is used through the address of a handle variable, which either holds a created mutex, or 0, or an
 * initialiser: a mutex declared with an initialiser is created when it is first locked.
 */
#ifndef VORN_SYNC_H
#define VORN_SYNC_H

#include <vorn/status.h>
#include <vorn/types.h>

VORN_BEGIN_C

/* ---- Atomics: each is a full barrier; the target is in memory of the caller and never null ---- */

/** Adds `addend` and returns the value before the addition. */
VORN_API int32_t VornAtomicAdd32(volatile int32_t* target, int32_t addend);

/** Subtracts `amount`. Deliberate: unlike VornAtomicAdd32 it returns nothing. */
VORN_API void VornAtomicSub32(volatile int32_t* target, int32_t amount);

/** Adds 1 and returns the new value. */
VORN_API int32_t VornAtomicInc32(volatile int32_t* target);

/** Subtracts 1 and returns the new value. */
VORN_API int32_t VornAtomicDec32(volatile int32_t* target);

/** Stores `value` and returns the value before. */
VORN_API int32_t VornAtomicExchange32(volatile int32_t* target, int32_t value);

/** Stores `exchange` if the target equals `comparand`; returns the value before either way. */
VORN_API int32_t VornAtomicCompareExchange32(volatile int32_t* target, int32_t exchange, int32_t comparand);

/** As VornAtomicCompareExchange32, for a pointer. */
VORN_API void* VornAtomicCompareExchangePointer(void* volatile* target, void* exchange, void* comparand);

/* ---- Mutexes ---- */

typedef struct VornMutex VornMutex;

#define VORN_MUTEX_NORMAL ((uint32_t)0)     /* keeps no owner: anyone may unlock it, at any time */
#define VORN_MUTEX_RECURSIVE ((uint32_t)1)  /* its holder may lock it again; needs as many unlocks */
#define VORN_MUTEX_ERRORCHECK ((uint32_t)2) /* reports a second lock and an unlock by a non-holder */

/** What a new mutex is like; read only at creation. A null attribute means {VORN_MUTEX_NORMAL, 0}. */
typedef struct VornMutexAttr {
    uint32_t kind;   /* VORN_MUTEX_NORMAL, VORN_MUTEX_RECURSIVE or VORN_MUTEX_ERRORCHECK */
    uint32_t shared; /* 0 private to the process; 1 shared between processes, which is not supported */
} VornMutexAttr;

/* Initial values of handle variables whose mutex is created by the first lock or try-lock. */
#define VORN_MUTEX_INITIALIZER ((VornMutex*)(intptr_t)-1)
#define VORN_RECURSIVE_MUTEX_INITIALIZER ((VornMutex*)(intptr_t)-2)
#define VORN_ERRORCHECK_MUTEX_INITIALIZER ((VornMutex*)(intptr_t)-3)

/**
 * Creates a mutex and stores it in `*mutex`, whatever that held before. `attr` may be null.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG mutex null, or kind or shared out of range (`*mutex` unchanged);
 * VORN_E_NOT_SUPPORTED shared is 1 (`*mutex` unchanged); VORN_E_NO_MEMORY, or VORN_E_SYSTEM its wake event
 * could not be created (`*mutex` is 0). Destroy it with VornMutexDestroy. Any thread may call this, but for
 * one variable only one at a time.
 */
VORN_API VornStatus VornMutexCreate(VornMutex** mutex, const VornMutexAttr* attr);

/**
 * Destroys the mutex, created or still an initialiser, and stores 0 in `*mutex`. Nobody may be on the way to
 * locking it.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG mutex null or `*mutex` 0; VORN_E_BUSY it is held, by the caller or by
 * someone else, or another thread created it during the call (nothing changed); VORN_E_SYSTEM its wake event
 * could not be signalled (nothing destroyed).
 */
VORN_API VornStatus VornMutexDestroy(VornMutex** mutex);

/**
 * Locks the mutex and waits for it without limit. Not a cancellation point. A normal mutex that the caller
 * holds already is waited for for ever.
 *
 * Returns VORN_OK; VORN_E_DEADLOCK an error-checking mutex that the caller holds; VORN_E_INVALID_ARG mutex
 * null or `*mutex` 0; VORN_E_SYSTEM the wait failed, or the process is ending and the holder is gone; and on
 * first use of an initialiser VORN_E_NO_MEMORY or VORN_E_SYSTEM, which leave 0 in `*mutex`. A recursive or
 * error-checking mutex gives VORN_E_NO_MEMORY when no record can be made for a foreign calling thread.
 * Any thread may call this.
 */
VORN_API VornStatus VornMutexLock(VornMutex** mutex);

/**
 * Locks the mutex if that needs no waiting: it is free, or recursive and held by the caller.
 *
 * Returns VORN_OK; VORN_E_BUSY it is held, also when an error-checking mutex is held by the caller; or the
 * statuses of VornMutexLock, save VORN_E_DEADLOCK. Any thread may call this.
 */
VORN_API VornStatus VornMutexTryLock(VornMutex** mutex);

/**
 * Unlocks the mutex. Deliberate: a normal mutex is unlocked whoever holds it, and also when nobody does.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG mutex null, `*mutex` 0 or still an initialiser; VORN_E_NOT_PERMITTED a
 * recursive or error-checking mutex that the caller does not hold; VORN_E_SYSTEM it is unlocked, but its wake
 * event could not be signalled. Any thread may call this.
 */
VORN_API VornStatus VornMutexUnlock(VornMutex** mutex);

/* ---- Condition variables ---- */

/* ---- Read-write locks ---- */

/* ---- Barriers ---- */

/* ---- Semaphores ---- */

VORN_END_C

#endif
