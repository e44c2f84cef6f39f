/*
 * sync.h - atomics, mutexes, condition variables, read-write locks, barriers and semaphores.
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
 * could not be signalled (nothing destroyed); VORN_E_NO_MEMORY it is recursive or error-checking, and no
 * record can be made for a foreign calling thread (nothing changed).
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

typedef struct VornCondition VornCondition;

/** Initial value of a handle variable whose condition is created by the first wait. */
#define VORN_CONDITION_INITIALIZER ((VornCondition*)(intptr_t)-1)

/**
 * Creates a condition and stores it in `*condition`. `shared` must be 0.
 *
 * Returns VORN_OK; VORN_E_NOT_SUPPORTED shared is 1; VORN_E_INVALID_ARG condition null or any other value of
 * shared; VORN_E_NO_MEMORY; VORN_E_SYSTEM. On failure `*condition` is unchanged. Destroy it with
 * VornConditionDestroy. Any thread may call this.
 */
VORN_API VornStatus VornConditionCreate(VornCondition** condition, uint32_t shared);

/**
 * Destroys the condition, created or still the initialiser, and stores 0 in `*condition`. May be called as
 * soon as every waiter has been woken; nobody may begin a new call on the condition. A cancellation point
 * while wake-ups are being delivered.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG condition null or `*condition` 0; VORN_E_BUSY threads are waiting, or
 * one is being woken (nothing changed); VORN_E_SYSTEM a wait failed (nothing changed), or the system refused
 * to give something back (the condition is gone all the same).
 */
VORN_API VornStatus VornConditionDestroy(VornCondition** condition);

/**
 * Releases the mutex, which the caller holds, waits for a wake-up, and locks the mutex again, on every path.
 * No wake-up is lost, and none is taken by a thread that began to wait after it was sent. A thread that is
 * about to wait while earlier wake-ups are being delivered first waits, with the mutex held, until they are.
 *
 * A cancellation point: a cancelled waiter gives up its place to another waiter, and has locked the mutex
 * again when the cleanup handlers run that were pushed before the call. Where memory is exhausted, or the
 * caller is a foreign thread for which no record can be made, the wait is no cancellation point. A thread of
 * the asynchronous type is cancelled as one of the deferred type during the call.
 *
 * Returns VORN_OK woken; VORN_E_INVALID_ARG condition or mutex null, or `*condition` 0; the failure of
 * creating the condition on first use (VORN_E_NO_MEMORY, VORN_E_SYSTEM; `*condition` keeps the initialiser);
 * the failure of unlocking or locking the mutex, as VornMutexUnlock and VornMutexLock report it; VORN_E_RANGE
 * or VORN_E_SYSTEM a system call failed. Any thread may call this.
 */
VORN_API VornStatus VornConditionWait(VornCondition** condition, VornMutex** mutex);

/**
 * As VornConditionWait, but waits for a wake-up at most `timeoutMs` milliseconds (VORN_INFINITE: without
 * limit); the waits for the mutex and for earlier deliveries are not counted. Also returns VORN_E_TIMEOUT no
 * wake-up came in time. A wake-up that was sent before the caller had left its place is taken, and the result
 * is VORN_OK.
 */
VORN_API VornStatus VornConditionTimedWait(VornCondition** condition, VornMutex** mutex, uint32_t timeoutMs);

/**
 * Wakes one waiter; without one it changes nothing, and creates nothing where the initialiser was never
 * waited on. A cancellation point only while the condition is closed for the moment in which a waiter comes
 * or goes.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG condition null or `*condition` 0; VORN_E_SYSTEM a system call failed.
 * Any thread may call this, with or without the waiters' mutex held.
 */
VORN_API VornStatus VornConditionSignal(VornCondition** condition);

/** Wakes all waiters, with one release of their queue. Statuses and conditions as for VornConditionSignal. */
VORN_API VornStatus VornConditionBroadcast(VornCondition** condition);

/* ---- Read-write locks: writers go first ---- */

typedef struct VornRWLock VornRWLock;

/** Initial value of a handle variable whose read-write lock is created by the first lock. */
#define VORN_RWLOCK_INITIALIZER ((VornRWLock*)(intptr_t)-1)

/**
 * Creates a read-write lock and stores it in `*lock`. `shared` must be 0.
 *
 * Returns VORN_OK; VORN_E_NOT_SUPPORTED shared is 1, or VORN_E_INVALID_ARG lock null or any other value of
 * shared (`*lock` unchanged); VORN_E_NO_MEMORY, VORN_E_SYSTEM (`*lock` is 0). Destroy it with
 * VornRWLockDestroy. Any thread may call this.
 */
VORN_API VornStatus VornRWLockCreate(VornRWLock** lock, uint32_t shared);

/**
 * Destroys the lock, created or still the initialiser, and stores 0 in `*lock`. Waits for a writer that is
 * inside or on its way in. All calls on the lock must have returned.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG lock null or `*lock` 0; VORN_E_BUSY readers are inside (nothing
 * changed); VORN_E_SYSTEM a system call failed.
 */
VORN_API VornStatus VornRWLockDestroy(VornRWLock** lock);

/**
 * Enters as a reader, together with other readers. Waits, without limit, for a writer that is inside or that
 * has come before. Not a cancellation point. A thread may enter several times, if no writer can come in
 * between.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG lock null or `*lock` 0; VORN_E_RANGE 0x7FFFFFFE readers are inside;
 * VORN_E_SYSTEM a system call failed; on first use of the initialiser also VORN_E_NO_MEMORY. A failed
 * creation leaves 0 in `*lock`. Any thread may call this.
 */
VORN_API VornStatus VornRWLockReadLock(VornRWLock** lock);

/** As VornRWLockReadLock, but returns VORN_E_BUSY instead of waiting. */
VORN_API VornStatus VornRWLockTryReadLock(VornRWLock** lock);

/**
 * Enters as the only writer. Waits, without limit, until everybody who is inside has left; no reader comes in
 * from the moment at which the writer is the next. A cancellation point while it waits for readers: a
 * cancelled writer leaves the lock as if it had not come.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG lock null or `*lock` 0; VORN_E_SYSTEM a system call failed (the caller
 * is not inside); on first use of the initialiser also VORN_E_NO_MEMORY. Any thread may call this; one that
 * is inside already waits for ever.
 */
VORN_API VornStatus VornRWLockWriteLock(VornRWLock** lock);

/** As VornRWLockWriteLock, but returns VORN_E_BUSY instead of waiting. Not a cancellation point. */
VORN_API VornStatus VornRWLockTryWriteLock(VornRWLock** lock);

/**
 * Leaves the lock: the writer, if one is inside, else a reader. Deliberate: that the caller is inside is not
 * checked. On the initialiser it does nothing and returns VORN_OK. Not a cancellation point.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG lock null or `*lock` 0; VORN_E_SYSTEM a system call failed. A reader
 * that could not wake the writer waiting for it is still inside and may call this again.
 */
VORN_API VornStatus VornRWLockUnlock(VornRWLock** lock);

/* ---- Barriers ---- */

typedef struct VornBarrier VornBarrier;

/** What VornBarrierWait returns to exactly one thread of each phase. */
#define VORN_BARRIER_SERIAL_THREAD ((VornStatus)0xFFFFFFFE)

/**
 * Creates a barrier at which `count` threads meet, and stores it in `*barrier`. `shared` must be 0.
 *
 * Returns VORN_OK; VORN_E_NOT_SUPPORTED shared is 1; VORN_E_INVALID_ARG barrier null, count 0, or any other
 * value of shared; VORN_E_NO_MEMORY; VORN_E_SYSTEM. On failure `*barrier` is unchanged. Destroy it with
 * VornBarrierDestroy. Any thread may call this.
 */
VORN_API VornStatus VornBarrierCreate(VornBarrier** barrier, uint32_t count, uint32_t shared);

/**
 * Destroys the barrier and stores 0 in `*barrier`. Nobody may be waiting at it.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG barrier null or `*barrier` 0; VORN_E_SYSTEM the system refused to close
 * a semaphore (the barrier is gone all the same).
 */
VORN_API VornStatus VornBarrierDestroy(VornBarrier** barrier);

/**
 * Waits, without limit, until as many threads as the barrier was made for have arrived; then all of them go
 * on, and the barrier is ready for the next phase. No more than that number of threads may use one barrier.
 * Not a cancellation point.
 *
 * Returns VORN_BARRIER_SERIAL_THREAD to the thread that leaves first (not always the one that arrived last)
 * and VORN_OK to the others; VORN_E_INVALID_ARG barrier null or `*barrier` 0; VORN_E_SYSTEM the wait or the
 * release failed.
 */
VORN_API VornStatus VornBarrierWait(VornBarrier** barrier);

/* ---- Semaphores: a count of permits, 0 to 0x7FFFFFFF ---- */

typedef struct VornSemaphore VornSemaphore;

/* Flags of VornSemaphoreOpen. */
#define VORN_SEMAPHORE_CREATE ((int32_t)1) /* create it if it is missing */
#define VORN_SEMAPHORE_EXCLUSIVE \
    ((int32_t)2) /* fail if it exists; only together with VORN_SEMAPHORE_CREATE */

/**
 * Creates an unnamed semaphore, private to the process, with `initialCount` permits, and stores it in
 * `*semaphore`. `shared` must be 0.
 *
 * Returns VORN_OK; VORN_E_NOT_SUPPORTED shared is 1; VORN_E_INVALID_ARG semaphore null or any other value of
 * shared; VORN_E_RANGE initialCount negative; VORN_E_NO_MEMORY; VORN_E_SYSTEM. On failure `*semaphore` is
 * unchanged. Close it with VornSemaphoreClose. Any thread may call this.
 */
VORN_API VornStatus VornSemaphoreCreate(VornSemaphore** semaphore, int32_t initialCount, uint32_t shared);

/**
 * Opens the semaphore of this name, which every process of the machine can open, or creates it with
 * `initialCount` permits (not used when it exists). It lives until its last handle is closed.
 *
 * name: in the default code page; neither null nor empty, without slash, backslash and space.
 * flags: 0, VORN_SEMAPHORE_CREATE, or VORN_SEMAPHORE_CREATE | VORN_SEMAPHORE_EXCLUSIVE.
 * security: for a semaphore that is created; null for default security.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG semaphore null, or any other flags; VORN_E_RANGE initialCount negative;
 * VORN_E_INVALID_NAME; VORN_E_CONVERSION the name cannot be converted; VORN_E_NO_MEMORY; VORN_E_EXISTS an
 * exclusive open of an existing one; VORN_E_SYSTEM no semaphore of this name and no VORN_SEMAPHORE_CREATE, or
 * the system refused. On failure `*semaphore` is unchanged. Close it with VornSemaphoreClose. Any thread may
 * call this.
 */
VORN_API VornStatus VornSemaphoreOpen(VornSemaphore** semaphore, const char* name, int32_t flags,
                                      int32_t initialCount, const VornSecurityDescriptor* security);

/**
 * Closes the semaphore and stores 0 in `*semaphore`. No thread of the caller may be using it.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG semaphore null or `*semaphore` 0; VORN_E_SYSTEM the system refused to
 * close its handle (the record is gone all the same).
 */
VORN_API VornStatus VornSemaphoreClose(VornSemaphore** semaphore);

/** VornSemaphoreClose under another name, for semaphores made with VornSemaphoreCreate. */
VORN_API VornStatus VornSemaphoreDestroy(VornSemaphore** semaphore);

/** Deliberate: does nothing and returns VORN_OK for every name, null included. */
VORN_API VornStatus VornSemaphoreUnlink(const char* name);

/**
 * Takes a permit, and waits for one without limit. A cancellation point.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG semaphore null or `*semaphore` 0; VORN_E_SYSTEM the wait failed.
 * Deliberate: the exception that cancels a thread of the library passes through. Any thread may call this.
 */
VORN_API VornStatus VornSemaphoreWait(VornSemaphore** semaphore);

/**
 * Takes a permit if there is one.
 *
 * Returns VORN_OK; VORN_E_BUSY there is none; VORN_E_INVALID_ARG semaphore null or `*semaphore` 0.
 * Any thread may call this.
 */
VORN_API VornStatus VornSemaphoreTryWait(VornSemaphore** semaphore);

/**
 * Gives a permit.
 *
 * Returns VORN_OK; VORN_E_RANGE the count is 0x7FFFFFFF already; VORN_E_INVALID_ARG semaphore null or
 * `*semaphore` 0; VORN_E_SYSTEM the system refused. Any thread may call this.
 */
VORN_API VornStatus VornSemaphorePost(VornSemaphore** semaphore);

VORN_END_C

#endif
