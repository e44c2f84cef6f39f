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

VORN_END_C

#endif
