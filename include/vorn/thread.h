/*
 * thread.h - threads: creating, joining, identifying and ending them; cancellation; thread-specific data.
 *
 * Every thread that runs code of the library has one record, its VornThread. A thread that the library did
 * not create gets one when it first needs it (it is "adopted"); it is freed when the thread ends.
 */
#ifndef VORN_THREAD_H
#define VORN_THREAD_H

#include <vorn/status.h>
#include <vorn/types.h>

VORN_BEGIN_C

typedef struct VornThread VornThread;
typedef struct VornThreadKey VornThreadKey;

/** What a thread runs. The returned pointer is the thread's exit value. */
typedef void* (*VornThreadStart)(void*);

/** What a new thread is like; read only at creation. A null attribute means {0, 0}. */
typedef struct VornThreadAttr {
    int32_t priority;  /* the system's: -15 idle, -2 lowest, -1, 0 normal, 1, 2 highest, 15 time critical */
    uint32_t detached; /* 0 joinable, 1 detached */
} VornThreadAttr;

/* ---- Creating, joining, ending ---- */

/**
 * Starts a thread that runs `function` with `argument`. `*thread` is set before the thread runs. `attr` may
 * be null. While threads of the library run their functions, std::terminate runs the clean-up of the thread
 * that calls it before the process ends; an exception that leaves `function` does so too.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG thread or function null, a priority not in the list above, or detached
 * not 0 or 1; VORN_E_NO_MEMORY no memory, or no kernel event; VORN_E_SYSTEM the system starts no thread.
 * A joinable thread's record is freed by VornThreadJoin or VornThreadDetach; a detached one's when the thread
 * ends. Any thread may call this.
 */
VORN_API VornStatus VornThreadCreate(VornThread** thread, const VornThreadAttr* attr,
                                     VornThreadStart function, void* argument);

/**
 * Gives up the right to join the thread: its record is freed when it ends, or now if it has ended.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG no live thread record; VORN_E_SYSTEM detached already, or its state
 * lock could not be taken. Any thread may call this.
 */
VORN_API VornStatus VornThreadDetach(VornThread* thread);

/**
 * Waits until the thread has ended, stores its exit value in `*result` and frees its record. The exit value
 * is what the function returned or VornThreadExit was given; all ones for a thread that was cancelled.
 * `result` may be null. A cancellation point.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG no live thread record, also after a wait during which the thread was
 * detached and its record freed; VORN_E_DETACHED the thread is detached, as adopted ones always are;
 * VORN_E_NO_MEMORY no record can be made for the caller; VORN_E_DEADLOCK the thread is the caller;
 * VORN_E_SYSTEM the wait failed. On failure the thread stays joinable. Any thread may call this, once per
 * thread.
 */
VORN_API VornStatus VornThreadJoin(VornThread* thread, void** result);

/**
 * Sets the priority, which is not validated here: the system decides.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG no live thread record; VORN_E_SYSTEM refused. Any thread may call this.
 */
VORN_API VornStatus VornThreadSetPriority(VornThread* thread, int32_t priority);

/**
 * Ends the calling thread with this exit value; its low 32 bits are the system's exit code. Does not return.
 * A thread that the library started is unwound to its start by an internal exception: C++ destructors run,
 * and a `catch (...)` on the way must pass the exception on. Any other thread ends at once.
 */
VORN_API void VornThreadExit(void* value);

/* ---- Identity ---- */

/**
 * Returns the calling thread's record, the same on every call; a foreign thread is adopted by its first call.
 * Null only when an adoption fails for lack of memory or of a kernel event. Leaves the last error alone,
 * ours and the system's. The record lives until the thread is joined or, once detached, until it ends.
 * Any thread may call this.
 */
VORN_API VornThread* VornThreadSelf(void);

/** Returns 1 when both are the same thread, else 0. Does not look into the records; null is allowed. */
VORN_API int32_t VornThreadEqual(const VornThread* a, const VornThread* b);

/* ---- Time ---- */

/** Sleeps for `milliseconds`; VORN_INFINITE sleeps for ever. Not a cancellation point. */
VORN_API void VornThreadSleep(uint32_t milliseconds);

/** Gives up the rest of the thread's time slice: a sleep of zero length. */
VORN_API void VornThreadYield(void);

/* ---- Cancellation ----
 *
 * A deferred request (the default) waits for the target's next cancellation point: VornThreadTestCancel, and
 * every wait that says that it is one. An asynchronous one ends the target wherever it is; a thread should be
 * asynchronous only around code that holds no locks and owns nothing. Either way a thread that the library
 * started is unwound to its start, ends with the exit value all ones, and runs its cleanup handlers and the
 * destructors of its data; any other thread is ended at once with exit code 0xFFFFFFFF.
 *
 * A deferred cancel unwinds by an internal exception: a `catch (...)` must pass it on, and it must not meet a
 * function that is declared noexcept. An asynchronous one runs C++ destructors where the compiler left tables
 * for them at that place, and reaches the thread's start without them where it did not. A thread that is
 * blocked in a system call acts on it when the call returns, and one that is inside a call of this header,
 * the routine of VornThreadOnce apart, or inside a call on a condition, when that call ends or waits. */

#define VORN_CANCEL_ENABLE 0
#define VORN_CANCEL_DISABLE 1
#define VORN_CANCEL_ASYNCHRONOUS 0
#define VORN_CANCEL_DEFERRED 1

/**
 * Asks a thread to end. Does not wait for it. Cancelling the calling thread while it is enabled and
 * asynchronous does not return.
 *
 * Returns VORN_OK, also when a request is pending already and (deliberate) when the target's state lock could
 * not be taken, which leaves it alone; VORN_E_INVALID_ARG no live thread record; VORN_E_SYSTEM the target is
 * being cancelled or has finished, cannot be suspended, or cannot be notified. Any thread may call this.
 */
VORN_API VornStatus VornThreadCancel(VornThread* thread);

/**
 * Sets whether the calling thread can be cancelled: VORN_CANCEL_ENABLE (initially) or VORN_CANCEL_DISABLE.
 * `oldState` receives the state before and may be null. Acts on a pending request if that leaves the thread
 * enabled and asynchronous; otherwise the request stays pending.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG any other state; VORN_E_NO_MEMORY no record can be made for the caller;
 * VORN_E_SYSTEM its state lock could not be taken. Adopts a foreign thread.
 */
VORN_API VornStatus VornThreadSetCancelState(int32_t state, uint32_t* oldState);

/**
 * Sets how the calling thread is cancelled: VORN_CANCEL_DEFERRED (initially) or VORN_CANCEL_ASYNCHRONOUS.
 * `oldType` receives the type before and may be null. Acts and returns as VornThreadSetCancelState.
 */
VORN_API VornStatus VornThreadSetCancelType(int32_t type, uint32_t* oldType);

/** Acts on a pending request if cancellation is enabled, whatever the type; else returns at once. */
VORN_API void VornThreadTestCancel(void);

/* ---- Cleanup handlers ---- */

/**
 * Pushes a handler that runs when the thread ends, or when VornThreadCleanupPop takes it off with a non-zero
 * argument. Handlers that are left when the thread ends run newest first, after the thread's stack has been
 * unwound: `argument` must not point into the stack frame that pushes it. A handler must not throw; one that
 * does ends the process. Adopts a foreign thread. Does nothing when memory is exhausted or handler is null.
 */
VORN_API void VornThreadCleanupPush(void (*handler)(void*), void* argument);

/**
 * Takes the calling thread's newest handler off, and calls it when `execute` is not 0. Does nothing when
 * there is none. A handler that throws ends the process.
 */
VORN_API void VornThreadCleanupPop(int32_t execute);

/* ---- Thread-specific data ---- */

/**
 * Creates a key under which every thread has a pointer of its own, null at first. `destructor` may be null;
 * it is called with a thread's value when the thread ends with a value that is not null. A destructor may
 * store values: they are destroyed in further passes, four passes with calls at most; what is stored after
 * that is dropped, also by the destructors of thread_local objects that run later. It must not throw.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG key null; VORN_E_NO_MEMORY; VORN_E_NO_RESOURCES the system has no
 * thread-local slot left. Delete it with VornThreadKeyDelete. Any thread may call this.
 */
VORN_API VornStatus VornThreadKeyCreate(VornThreadKey** key, void (*destructor)(void*));

/**
 * Deletes the key. Values that threads still have are forgotten without a destructor call. `key` may be null.
 * Nobody may use the key during or after the call, save threads that are ending. Always returns VORN_OK.
 */
VORN_API VornStatus VornThreadKeyDelete(VornThreadKey* key);

/**
 * Stores the calling thread's value for the key; its destructor is not called for the value before. A null
 * key stores nothing.
 *
 * Returns VORN_OK; VORN_E_NO_MEMORY no record for the caller, or no memory to remember that the key's
 * destructor is to run (the value is unchanged); VORN_E_SYSTEM the slot could not be written. Adopts a
 * foreign thread.
 */
VORN_API VornStatus VornThreadSetSpecific(VornThreadKey* key, const void* value);

/**
 * Returns the calling thread's value for the key; null when it has none and for a null key. Leaves the last
 * error alone, ours and the system's.
 */
VORN_API void* VornThreadGetSpecific(VornThreadKey* key);

/* ---- Once ---- */

/** Controls one VornThreadOnce; starts as VORN_ONCE_INIT. The fields belong to the library. */
typedef struct VornOnce {
    uint32_t done; /* 1 after the routine has run */
    void* queue;   /* the last of the threads that wait for each other */
} VornOnce;

#define VORN_ONCE_INIT \
    {                  \
        0, 0           \
    }

/**
 * Runs `routine` if no call with this control has run it yet, and returns when it has run, here or in another
 * thread. A routine that is cancelled, or that ends by an exception, has not run: the next caller runs it.
 * A routine that calls VornThreadOnce with its own control waits for itself for ever.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG control or routine null. Any thread may call this.
 */
VORN_API VornStatus VornThreadOnce(VornOnce* control, void (*routine)(void));

VORN_END_C

#endif
