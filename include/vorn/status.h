/*
 * status.h - status codes and the per-thread last error.
 */
#ifndef VORN_STATUS_H
#define VORN_STATUS_H

#include <vorn/types.h>

VORN_BEGIN_C

/** The outcome of a call: 0 for success, otherwise one of the codes below. */
typedef uint32_t VornStatus;

#define VORN_OK ((VornStatus)0)                   /* success */
#define VORN_E_SYSTEM ((VornStatus)98)            /* a system call failed; its error is not translated */
#define VORN_E_UNKNOWN ((VornStatus)99)           /* a system error that has no status of its own */
#define VORN_E_TIMEOUT ((VornStatus)100)          /* a timed wait ran out */
#define VORN_E_BUFFER_TOO_SMALL ((VornStatus)101) /* the needed size was written back */
#define VORN_E_INVALID_ARG ((VornStatus)102)      /* null, out of range, or an unknown handle */
#define VORN_E_CONVERSION ((VornStatus)103)       /* text could not be converted between encodings */
#define VORN_E_CONVERTER ((VornStatus)105)        /* the code-page converter reported an error */
#define VORN_E_NOT_SUPPORTED ((VornStatus)109)    /* a variant that this platform does not offer */
#define VORN_E_NO_MEMORY ((VornStatus)110)        /* an allocation failed, or a heap has no room */
#define VORN_E_BAD_DATA ((VornStatus)113)         /* malformed input data */
#define VORN_E_BAD_STATE ((VornStatus)116)        /* the object's state does not allow the operation */
#define VORN_E_DEADLOCK ((VornStatus)117)         /* the caller would wait for itself */
#define VORN_E_NOT_PERMITTED ((VornStatus)118)    /* access denied, or not the owner */
#define VORN_E_BUSY ((VornStatus)119)             /* held by someone else */
#define VORN_E_NO_RESOURCES ((VornStatus)120)     /* no thread-local storage index is left */
#define VORN_E_DETACHED ((VornStatus)121)         /* the thread is detached and cannot be joined */
#define VORN_E_READ ((VornStatus)122)             /* a read failed or delivered too little */
#define VORN_E_WRITE ((VornStatus)123)            /* a write failed or was cut short */
#define VORN_E_SEEK ((VornStatus)124)             /* the file position could not be moved */
#define VORN_E_EXISTS ((VornStatus)125)           /* the object exists already */
#define VORN_E_RANGE ((VornStatus)127)            /* a number outside its range */
#define VORN_E_INVALID_NAME ((VornStatus)128)     /* a malformed name */
#define VORN_E_NO_MORE ((VornStatus)130)          /* an enumeration has no further entries */
#define VORN_E_NOT_FOUND ((VornStatus)131)        /* the file or object does not exist */
#define VORN_E_PATH_NOT_FOUND ((VornStatus)132)   /* a directory on the path does not exist */
#define VORN_E_NOT_AVAILABLE ((VornStatus)133)    /* no named data stream matches */
#define VORN_E_SHARING ((VornStatus)134)          /* the file is in use by another opener */
#define VORN_E_DIR_NOT_EMPTY ((VornStatus)135)    /* the directory is not empty */
#define VORN_E_MAPPING ((VornStatus)136)          /* a mapping or a view could not be made */
#define VORN_E_NOT_APPLIED ((VornStatus)137)      /* the change could not be carried out as asked */
#define VORN_E_HEAP_CORRUPT ((VornStatus)138)     /* the heap's structure is damaged */
#define VORN_E_HEAP_LOCK ((VornStatus)140)        /* the heap is in use and has no lock to wait for */
#define VORN_E_STOPPED ((VornStatus)141)          /* the callback stopped the enumeration */
#define VORN_E_BAD_IMAGE ((VornStatus)142)        /* not a heap image */

/**
 * Stores `status` as the calling thread's last error. Does nothing before VornInitialize has succeeded.
 * Any thread may call this.
 */
VORN_API void VornSetLastError(VornStatus status);

/**
 * Returns the status last stored by the calling thread: 0 if nothing was stored since the thread started,
 * and 0 before VornInitialize has succeeded. Functions that return a handle, a pointer or a count store
 * their outcome here on every path, 0 on success, unless their own comment says otherwise. Leaves the
 * system's error alone. Any thread may call this.
 */
VORN_API VornStatus VornGetLastError(void);

/**
 * Returns the symbolic name of a status, such as "VORN_E_NOT_FOUND"; "VORN_E_?" for a number that is not
 * a status. The text is static. Any thread may call this, before VornInitialize too.
 */
VORN_API const char* VornStatusName(VornStatus status);

/**
 * Returns one plain English sentence that describes a status. The text is static and never null.
 * Any thread may call this, before VornInitialize too.
 */
VORN_API const char* VornStatusText(VornStatus status);

VORN_END_C

#endif
