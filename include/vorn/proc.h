/*
 * proc.h - processes: starting them, waiting, exit codes, names, their memory; their environment; the lists
 * of running processes and of loaded modules.
 *
 * Lengths and sizes of text count UTF-16 units unless a comment says otherwise.
 */
#ifndef VORN_PROC_H
#define VORN_PROC_H

#include <vorn/status.h>
#include <vorn/types.h>

VORN_BEGIN_C

/** One process. Made by VornProcCreate or VornProcNative2PPid, or lent by a process iterator. */
typedef struct VornPPid VornPPid;
/** The environment of a process to be: NAME=value strings, sorted by name. */
typedef struct VornProcEnv VornProcEnv;
/** Walks over the processes that ran when VornProcGetFirst was called. */
typedef struct VornProcIterator VornProcIterator;
/** Walks over the modules that a process had loaded when VornProcGetFirstModule was called. */
typedef struct VornProcModuleIterator VornProcModuleIterator;
/** One loaded module of a process. Lent by a module iterator. */
typedef struct VornProcModule VornProcModule;

/* ---- Variables of the calling process ---- */

/**
 * Reads a variable of the calling process.
 *
 * value: receives the value with its terminating zero.
 * size: on entry the capacity of `value`. Left as it is on success. With VORN_E_BUFFER_TOO_SMALL it becomes
 * the needed capacity plus one. Deliberate: one more than needed.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG an argument is null; VORN_E_BUFFER_TOO_SMALL; VORN_E_SYSTEM there is
 * no such variable, its value is empty (the system does not tell the two apart), or the system failed.
 * Any thread may call this.
 */
VORN_API VornStatus VornProcGetVar(const wchar_t* name, wchar_t* value, uint32_t* size);

/**
 * Sets a variable of the calling process; a null `value` deletes it.
 * Returns VORN_OK; VORN_E_INVALID_ARG name null; VORN_E_SYSTEM the system refused.
 * Any thread may call this.
 */
VORN_API VornStatus VornProcSetVar(const wchar_t* name, const wchar_t* value);

/* ---- Environment blocks ----
 *
 * Names are compared case-insensitively with full Unicode case folding, up to the first '='. A block is not
 * locked: calls that change it must not run beside other calls on it. Look-ups may run beside each other. */

/** What a new environment block starts with. */
typedef uint32_t VornProcEnvMode;
#define VORN_ENV_EMPTY ((VornProcEnvMode)0) /* nothing; also meant by every value but 1 */
#define VORN_ENV_COPY ((VornProcEnvMode)1)  /* a copy of the calling process's environment */

/** What VornProcEnvGet returns when the variable is not in the block. A result, not an error. */
#define VORN_ENV_NOT_FOUND ((VornStatus)0xFFFFFFFF)

/**
 * Makes an environment block. The caller owns it and releases it with VornProcEnvFree.
 * Returns null on failure.
 *
 * Last error: VORN_OK; VORN_E_NO_MEMORY memory is exhausted or the system gave no environment.
 * Any thread may call this.
 */
VORN_API VornProcEnv* VornProcEnvAlloc(VornProcEnvMode mode);

/**
 * Releases an environment block. No other thread may be using it.
 * Returns VORN_OK; VORN_E_INVALID_ARG null, unknown or already released.
 */
VORN_API VornStatus VornProcEnvFree(VornProcEnv* env);

/**
 * Sets a variable in a block, or removes it when `value` is null; removing what is not there succeeds. An
 * entry that is there already takes over the new spelling of its name. After a failure the block is as it
 * was before the call.
 *
 * name: compared up to its first '=', and written as it is. Both texts are copied.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown block or null name; VORN_E_NO_MEMORY.
 */
VORN_API VornStatus VornProcEnvSet(VornProcEnv* env, const wchar_t* name, const wchar_t* value);

/**
 * Reads a variable from a block.
 *
 * value: receives the value with its terminating zero; may be null to ask only for the size.
 * size: on entry the capacity of `value`; afterwards the value's length with its terminating zero, also
 * with VORN_E_BUFFER_TOO_SMALL; 0 when there is no value. A capacity of 0 always gives
 * VORN_E_BUFFER_TOO_SMALL, with a null `value` too.
 *
 * Returns VORN_OK; VORN_ENV_NOT_FOUND; VORN_E_INVALID_ARG unknown block, null name or size;
 * VORN_E_BUFFER_TOO_SMALL; VORN_E_SYSTEM the entry has no '=' (only a copied environment can hold such).
 */
VORN_API VornStatus VornProcEnvGet(VornProcEnv* env, const wchar_t* name, wchar_t* value, uint32_t* size);

/* ---- Starting processes and following them ---- */

/** How a process is started. */
typedef uint32_t VornProcMode;
#define VORN_PROC_SHOW ((VornProcMode)0)      /* its window is shown; also meant by every value but 1 */
#define VORN_PROC_NO_WINDOW ((VornProcMode)1) /* hidden, and without a console window */

/**
 * Starts a process. Returns its PPid, which the caller releases with VornProcFreePPid, or null.
 *
 * program: the program's path; it is put between double quotes unless it begins with one. May be null when
 * `args` begins with the program.
 * args: the arguments, appended after one space exactly as they are: nothing is quoted or escaped. May be
 * null when `program` is given.
 * env: the new process's environment, only read; null gives it the caller's.
 * workDir: its current directory; null gives it the caller's.
 * wait: non-zero waits without limit until the process has ended; its exit code is known then.
 * Deliberate: the process's handle then stays open until the caller ends.
 * mode: VORN_PROC_SHOW or VORN_PROC_NO_WINDOW.
 * inherit: exactly 1 lets the new process inherit the caller's inheritable handles.
 * processSecurity, threadSecurity: null for default security.
 *
 * Last error: VORN_OK; VORN_E_INVALID_ARG program and args both null, or an unknown env; VORN_E_NO_MEMORY
 * (when registering fails the process runs on all the same); or the system's error translated, such as
 * VORN_E_NOT_FOUND. Any thread may call this. Not a cancellation point.
 */
VORN_API VornPPid* VornProcCreate(const wchar_t* program, const wchar_t* args, VornProcEnv* env,
                                  const wchar_t* workDir, int32_t wait, VornProcMode mode, int32_t inherit,
                                  const VornSecurityDescriptor* processSecurity,
                                  const VornSecurityDescriptor* threadSecurity);

/**
 * Releases a PPid; the process itself is not touched. Deliberate: the handle of a process that was started
 * with VornProcCreate and still runs is left open. The calling process's own PPid is never released: the
 * call succeeds and the PPid stays valid.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG null, unknown, already released, or lent by an iterator.
 * Any thread may call this; no other thread may be using the PPid.
 */
VORN_API VornStatus VornProcFreePPid(VornPPid* ppid);

/**
 * Gives the exit code of a process that has ended. It is asked from the system once and then remembered.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown PPid, one of process 0, or null code; VORN_E_BAD_STATE the
 * process still runs or its exit code cannot be read; or the system's error, translated, when the process
 * cannot be opened. Any thread may call this.
 */
VORN_API VornStatus VornProcGetExitCode(VornPPid* ppid, uint32_t* code);

/**
 * Waits until a process has ended, at most `timeout` milliseconds; VORN_INFINITE waits without limit.
 *
 * Returns VORN_OK the process has ended, or the wait itself failed; VORN_E_BAD_STATE it still runs when the
 * time is over; VORN_E_INVALID_ARG unknown PPid or one of process 0; or the system's error, translated,
 * when the process cannot be opened. Any thread may call this. Not a cancellation point.
 */
VORN_API VornStatus VornProcWaitForTerm(VornPPid* ppid, uint32_t timeout);

/**
 * Ends a process with the exit code 0xB5B5B5B5 and returns once it has ended.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown PPid; VORN_E_NOT_PERMITTED the process cannot be opened,
 * whatever the reason; or the system's error translated. Any thread may call this.
 */
VORN_API VornStatus VornProcKill(VornPPid* ppid);

/** Not available: both always return VORN_E_NOT_SUPPORTED, whatever they are given. */
VORN_API VornStatus VornProcSuspend(VornPPid* ppid);
VORN_API VornStatus VornProcResume(VornPPid* ppid);

/* ---- Which process is it ---- */

/**
 * Returns the native id of a process; 0 for an unknown PPid, and for the idle process.
 * Last error: VORN_OK; VORN_E_INVALID_ARG. Any thread may call this.
 */
VORN_API uint32_t VornProcPPid2Native(VornPPid* ppid);

/**
 * Makes a PPid for a running process named by its native id. The caller releases it with VornProcFreePPid.
 * It holds no handle: once the process has ended, the system may give its id to another.
 *
 * Returns null on failure. Last error: VORN_OK; VORN_E_INVALID_ARG the id is 0 or the process cannot be
 * opened, whatever the reason; VORN_E_NO_MEMORY. Any thread may call this.
 */
VORN_API VornPPid* VornProcNative2PPid(uint32_t nativeId);

/**
 * Returns the calling process's PPid, the same on every call. It need not be released.
 * Last error: VORN_OK; VORN_E_NO_MEMORY with a null result, on first use only. Any thread may call this.
 */
VORN_API VornPPid* VornProcGetCurrentPPid(void);

/**
 * Gives the path of a process's executable. A null `ppid` means the calling process.
 *
 * buffer: receives the path with its terminating zero.
 * size: on entry the capacity of `buffer`; on success the path's length without the terminating zero. With
 * VORN_E_BUFFER_TOO_SMALL it keeps the capacity, and the buffer holds a part of the path. Deliberate: the
 * needed size is not told. For the idle process, which is called "Idle", it is 4 either way.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG buffer or size null, or unknown PPid; VORN_E_BUFFER_TOO_SMALL;
 * VORN_E_SYSTEM the process cannot be opened; or the system's error translated (`*size` is then 0 for
 * another process and unchanged for the calling one). Any thread may call this.
 */
VORN_API VornStatus VornProcGetExecutableName(VornPPid* ppid, wchar_t* buffer, uint32_t* size);

/* ---- Running processes and loaded modules ----
 *
 * Other processes are opened under the debug privilege, where the calling thread can have it: it is enabled
 * for the work and then put back to the state it had. A thread without a token of its own gets one that
 * stands for its process and keeps it. Each iterator serves one thread at a time. */

/**
 * Takes a snapshot of the running processes and returns an iterator that stands at the first; the caller
 * releases it with VornProcGetClose. Returns null on failure.
 *
 * first: receives the first process's PPid, or null on failure. It belongs to the iterator: it stands for
 * the iterator's current process, works with every function of this header and ends with VornProcGetClose.
 * The process may have ended meanwhile, and its native id may be 0.
 *
 * Last error: VORN_OK; VORN_E_INVALID_ARG first null; VORN_E_SYSTEM no snapshot could be taken, or it cannot
 * be read; VORN_E_NO_MEMORY. Any thread may call this.
 */
VORN_API VornProcIterator* VornProcGetFirst(VornPPid** first);

/**
 * Moves to the next process. On systems older than version 6, processes that have ended are passed over.
 *
 * next: receives the PPid, as for VornProcGetFirst; null with VORN_E_NO_MORE.
 *
 * Returns VORN_OK; VORN_E_NO_MORE there is none, the first time; VORN_E_INVALID_ARG unknown iterator, next
 * null, or a call after VORN_E_NO_MORE.
 */
VORN_API VornStatus VornProcGetNext(VornProcIterator* iterator, VornPPid** next);

/**
 * Releases a process iterator; its PPid becomes invalid.
 * Returns VORN_OK; VORN_E_INVALID_ARG null, unknown or already released.
 */
VORN_API VornStatus VornProcGetClose(VornProcIterator* iterator);

/**
 * Lists the modules of a process and returns an iterator that stands at the first, the executable itself;
 * the caller releases it with VornProcGetModuleClose. Returns null on failure.
 *
 * first: receives the module's id, or null on failure. It belongs to the iterator: it stands for the
 * iterator's current module and ends with VornProcGetModuleClose.
 * ppid: a valid PPid. Deliberate: it is used without being looked up.
 *
 * Last error: VORN_OK; VORN_E_INVALID_ARG first or ppid null; VORN_E_SYSTEM the process cannot be opened or
 * listed; VORN_E_NO_MORE it has no modules; VORN_E_NO_MEMORY. Any thread may call this.
 */
VORN_API VornProcModuleIterator* VornProcGetFirstModule(VornProcModule** first, VornPPid* ppid);

/**
 * Moves to the next module.
 *
 * next: receives the module's id, as for VornProcGetFirstModule; null with VORN_E_NO_MORE.
 *
 * Returns VORN_OK; VORN_E_NO_MORE there is none, the first time; VORN_E_INVALID_ARG unknown iterator, next
 * null, or a call after VORN_E_NO_MORE.
 */
VORN_API VornStatus VornProcGetNextModule(VornProcModuleIterator* iterator, VornProcModule** next);

/**
 * Releases a module iterator; its module id becomes invalid.
 * Returns VORN_OK; VORN_E_INVALID_ARG null, unknown or already released.
 */
VORN_API VornStatus VornProcGetModuleClose(VornProcModuleIterator* iterator);

/**
 * Gives the file name of a module, with its path.
 *
 * ppid: the process that has it loaded; null means the calling process.
 * buffer: receives the name with its terminating zero; may be null only with a capacity of 0.
 * size: on entry the capacity of `buffer`; on success the name's length without the terminating zero. With
 * VORN_E_BUFFER_TOO_SMALL it keeps the capacity, and the buffer holds a part of the name. Deliberate: the
 * needed size is not told.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown module id or PPid, size null, or buffer null with a capacity
 * above 0; VORN_E_BUFFER_TOO_SMALL; VORN_E_SYSTEM the process cannot be opened; or the system's error
 * translated (`*size` is then 0 for another process and unchanged for the calling one). Any thread may call
 * this.
 */
VORN_API VornStatus VornProcGetModuleName(VornProcModule* module, VornPPid* ppid, wchar_t* buffer,
                                          uint32_t* size);

/* ---- Another process's memory ----
 *
 * Both work under the debug privilege as described above, with one exception. Deliberate: when the process
 * cannot be opened, the privilege stays enabled. */

/**
 * Reads memory of a process.
 *
 * address: where to read, in the process's own addresses. size: bytes, not 0.
 * buffer: receives the bytes; with VORN_E_READ its content is unspecified.
 * bytesRead: receives how many bytes were read; untouched on failure; may be null.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown PPid, buffer null, size 0; VORN_E_NOT_PERMITTED the process
 * cannot be opened; VORN_E_READ a part of the range is not readable. Any thread may call this.
 */
VORN_API VornStatus VornProcMemRead(VornPPid* ppid, const void* address, void* buffer, uint32_t size,
                                    uint32_t* bytesRead);

/**
 * Writes memory of a process.
 *
 * address: where to write, in the process's own addresses. size: bytes, not 0.
 * bytesWritten: receives how many bytes were written; untouched on failure; may be null.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown PPid, buffer null, size 0; VORN_E_NOT_PERMITTED the process
 * cannot be opened; VORN_E_WRITE a part of the range is not writable. Any thread may call this.
 */
VORN_API VornStatus VornProcMemWrite(VornPPid* ppid, void* address, const void* buffer, uint32_t size,
                                     uint32_t* bytesWritten);

VORN_END_C

#endif
