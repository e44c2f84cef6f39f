/*
 * file.h - open files, what the file system knows about a name, and files mapped into memory.
 *
 * Names are zero-terminated UTF-16 and go to the system exactly as given: they are not qualified, get no
 * long-path prefix, and keep their separators. A null or empty name is one that the system cannot find
 * (VORN_E_PATH_NOT_FOUND), unless a function says otherwise.
 *
 * Where a function returns the status of a system error, that is: VORN_E_NOT_FOUND,
 * VORN_E_PATH_NOT_FOUND, VORN_E_NOT_PERMITTED (access denied), VORN_E_SHARING, VORN_E_EXISTS,
 * VORN_E_INVALID_ARG, VORN_E_INVALID_NAME, VORN_E_DIR_NOT_EMPTY, or VORN_E_UNKNOWN for any other.
 *
 * Different handles may be used by different threads at once. One handle carries no lock: its position and
 * its end-of-file flag belong to whoever uses it, and it must not be closed while another thread uses it.
 */
#ifndef VORN_FILE_H
#define VORN_FILE_H

#include <vorn/status.h>
#include <vorn/types.h>

VORN_BEGIN_C

/** An open file: from VornFileCreate to VornFileClose. A handle that is not open is refused everywhere. */
typedef struct VornFile VornFile;

/** What to do about an existing and about a missing file. */
typedef uint32_t VornFileOpenMode;
#define VORN_FILE_CREATE_ALWAYS ((VornFileOpenMode)0)   /* create, or cut an existing file to length 0 */
#define VORN_FILE_CREATE_NEW ((VornFileOpenMode)1)      /* create; fail if the file exists */
#define VORN_FILE_OPEN_ALWAYS ((VornFileOpenMode)2)     /* open; create if missing */
#define VORN_FILE_OPEN_EXISTING ((VornFileOpenMode)3)   /* open; fail if missing */
#define VORN_FILE_APPEND_ALWAYS ((VornFileOpenMode)4)   /* open or create, position at the end */
#define VORN_FILE_APPEND_EXISTING ((VornFileOpenMode)5) /* open, position at the end; fail if missing */
#define VORN_FILE_TRUNCATE_EXISTING                                     \
    ((VornFileOpenMode)6) /* open and cut to length 0; fail if missing. \
                             Needs write access. */

/** What the handle may do. */
typedef uint32_t VornFileAccessMode;
#define VORN_FILE_ACCESS_NONE ((VornFileAccessMode)0) /* ask for size and times only */
#define VORN_FILE_ACCESS_READ ((VornFileAccessMode)1)
#define VORN_FILE_ACCESS_WRITE ((VornFileAccessMode)2)
#define VORN_FILE_ACCESS_READ_WRITE ((VornFileAccessMode)3)

/** From where VornFileSeek counts. */
typedef uint32_t VornFileSeekMethod;
#define VORN_FILE_SEEK_BEGIN ((VornFileSeekMethod)0)
#define VORN_FILE_SEEK_CURRENT ((VornFileSeekMethod)1)
#define VORN_FILE_SEEK_END ((VornFileSeekMethod)2)

/** What a name stands for. */
typedef uint32_t VornFileType;
#define VORN_FILE_TYPE_FILE ((VornFileType)1)
#define VORN_FILE_TYPE_DIRECTORY ((VornFileType)2)
#define VORN_FILE_TYPE_UNKNOWN ((VornFileType)3) /* the name cannot be examined */

/** What functions that return a position or a size in bytes return when they fail. */
#define VORN_FILE_FAILED ((uint64_t)0xFFFFFFFFFFFFFFFF)

/* ---- Opening and closing ---- */

/**
 * Opens or creates a file, with the attribute "normal". Returns its handle, or null on failure.
 *
 * share: true lets other openers read and write the file meanwhile; false keeps all others out.
 * security: applies to a file that is created; null for default security. Needed only during the call.
 * templateFile: the system's template-file handle, passed on as it is; null as a rule.
 *
 * Last error: VORN_OK; VORN_E_INVALID_ARG mode or access out of range (nothing is asked of the system);
 * VORN_E_NO_MEMORY; or the status of the system error.
 * Deliberate: when memory runs out for the handle's record, the system's handle stays open, out of reach.
 * Close the handle with VornFileClose. Any thread may call this.
 */
VORN_API VornFile* VornFileCreate(const wchar_t* name, VornFileOpenMode mode, VornFileAccessMode access,
                                  VBool share, const VornSecurityDescriptor* security,
                                  const void* templateFile);

/**
 * Closes a file: releases every region still mapped from it, then the handle itself.
 *
 * Returns VORN_OK, whatever the system says to the closing; VORN_E_INVALID_ARG unknown handle, or a machine
 * fault was raised by the closing (the handle then stays open).
 * Deliberate: a vorn::LockError of the lock over all mapped regions passes out of this function. The handle
 * then stays open, and the call may be repeated.
 * Any thread may call this.
 */
VORN_API VornStatus VornFileClose(VornFile* file);

/**
 * Stores the system's handle of the file in `*handle`. It stays the library's: do not close it.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown handle or `handle` null. Any thread may call this.
 */
VORN_API VornStatus VornFileGetNativeHandle(VornFile* file, void** handle);

/**
 * Deletes a file by name. Returns VORN_OK or the status of the system error. Any thread may call this.
 */
VORN_API VornStatus VornFileDelete(const wchar_t* name);

/* ---- Reading and writing ---- */

/**
 * Reads up to `count` bytes from the position and moves it behind them. `*bytesRead` receives the number of
 * bytes read; fewer than `count` set the end-of-file flag. A read never clears the flag. A count of 0 reads
 * nothing, succeeds and leaves the flag alone.
 *
 * Returns VORN_OK, also at the end of the file; VORN_E_INVALID_ARG buffer or bytesRead null, or an unknown
 * handle; VORN_E_READ the system refused (no read access, for example) or the buffer cannot be written.
 */
VORN_API VornStatus VornFileRead(VornFile* file, void* buffer, uint32_t count, uint32_t* bytesRead);

/**
 * Reads one line of 8-bit text, which ends at a line feed, with or without a carriage return before it. The
 * line without its end goes to `buffer`, with a terminating zero byte; `*length` receives the number of
 * bytes stored, the zero included. At the end of the file the text is empty, `*length` is 0, and the
 * end-of-file flag is set; otherwise the flag is clear afterwards.
 *
 * size: the buffer's size in bytes. A line that does not fit is returned in pieces of size - 1 bytes. The
 * whole buffer may be overwritten. With a size of 0 nothing is stored in it and `*length` is 0; with a size
 * of 1 a line that is not empty is never got past.
 *
 * Returns VORN_OK; otherwise what VornFileRead returned for the same buffer, size and length.
 *
 * Deliberate: a carriage return at the very end of a file, or read as the last byte that fits, counts as
 * the line's end for the position, whether or not a line feed follows. In the first case it stays in the
 * text, and the position is left one byte past the end.
 * Deliberate: a piece without a line end is followed one byte further on when the byte in memory behind the
 * bytes read happens to be 11. Where that byte lies behind the buffer it is looked at, never changed; one
 * that cannot be read is not 11.
 */
VORN_API VornStatus VornFileReadLine(VornFile* file, uint8_t* buffer, uint32_t size, uint32_t* length);

/**
 * Writes up to `count` bytes at the position and moves it behind them. `*bytesWritten` receives the number
 * of bytes written. Clears the end-of-file flag, also with a count of 0, which writes nothing and succeeds.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG buffer or bytesWritten null, or an unknown handle; VORN_E_WRITE the
 * system refused (no write access, for example) or the buffer cannot be read.
 */
VORN_API VornStatus VornFileWrite(VornFile* file, const void* buffer, uint32_t count, uint32_t* bytesWritten);

/**
 * Has the system write what it still holds back. Returns VORN_OK; VORN_E_INVALID_ARG unknown handle;
 * VORN_E_WRITE the system refused (it needs write access).
 */
VORN_API VornStatus VornFileFlush(VornFile* file);

/**
 * Returns VORN_TRUE when the last read delivered fewer bytes than asked for and the flag was not cleared
 * since (by a write, a seek, a question for the position, a change of size or the reading of a line);
 * VORN_FALSE also for an unknown handle.
 */
VORN_API VBool VornFileIsEof(VornFile* file);

/* ---- Position and size ---- */

/**
 * Moves the position by `offset` bytes, counted from where `method` says, and clears the end-of-file flag.
 * Positions past the end are allowed. Returns the new position, or VORN_FILE_FAILED: unknown handle,
 * method out of range (flag and position stay as they are), or a position that the system refuses, such as
 * a negative one. The last error is left alone.
 */
VORN_API uint64_t VornFileSeek(VornFile* file, int64_t offset, VornFileSeekMethod method);

/**
 * Returns the position in bytes from the start, or VORN_FILE_FAILED. The last error is left alone.
 * Deliberate: asking for the position clears the end-of-file flag, as a seek does.
 */
VORN_API uint64_t VornFileGetPos(VornFile* file);

/**
 * Returns the size in bytes, or VORN_FILE_FAILED.
 *
 * Last error: VORN_E_INVALID_ARG unknown handle; otherwise left alone, success included. Deliberate: only on
 * a system without GetFileSizeEx it is set on every path, to VORN_OK or the status of the system error, and
 * there a size of 4 GiB and more is reported by its low 32 bits alone.
 */
VORN_API uint64_t VornFileGetSize(VornFile* file);

/**
 * Cuts the file to `size` bytes or extends it to them (what is added reads as zeros). The position stays,
 * even if it lies past the end now. Clears the end-of-file flag.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown handle; VORN_E_SEEK the size could not be changed, or the
 * position could not be asked for or moved on the way.
 */
VORN_API VornStatus VornFileSetSize(VornFile* file, uint64_t size);

/* ---- What the file system knows ----
 *
 * Times are UTC, always in the order last access, last modification, creation. A null pointer means: not
 * wanted, or not to be changed. Attributes are the system's bits as they are (1 read-only, 16 directory).
 * All of these may be called by any thread, and leave the last error alone unless they say otherwise.
 */

/**
 * Reads the times of an open file. Outputs may be null; one whose time has no calendar form stays
 * unchanged. Returns VORN_OK; VORN_E_INVALID_ARG unknown handle; VORN_E_READ the system refused.
 */
VORN_API VornStatus VornFileGetTime(VornFile* file, VornTime* accessTime, VornTime* modifyTime,
                                    VornTime* createTime);

/**
 * Sets the times of an open file that has write access; the day of week is ignored.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown handle, a time that is no calendar time (nothing is changed
 * then), or neither accessTime nor modifyTime given; VORN_E_WRITE the system refused.
 * Deliberate: a creation time alone cannot be set.
 */
VORN_API VornStatus VornFileSetTime(VornFile* file, const VornTime* accessTime, const VornTime* modifyTime,
                                    const VornTime* createTime);

/**
 * Reads the times of the file or directory that a name stands for; of the first one found when the name
 * holds wildcards. Outputs are treated as by VornFileGetTime.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG name null; or the status of the system error.
 */
VORN_API VornStatus VornFileGetTimeByName(const wchar_t* name, VornTime* accessTime, VornTime* modifyTime,
                                          VornTime* createTime);

/**
 * Sets the times of an existing file, which it opens for writing meanwhile. Times as for VornFileSetTime.
 *
 * Returns VORN_OK; the status of the system error when the file cannot be opened; VORN_E_NO_MEMORY; or what
 * VornFileSetTime returned.
 * Last error: what is returned when the file cannot be opened or memory runs out; otherwise VORN_OK, whether
 * or not the times could be set.
 * Deliberate: when memory runs out for the file's record, the system's handle stays open, out of reach.
 */
VORN_API VornStatus VornFileSetTimeByName(const wchar_t* name, const VornTime* accessTime,
                                          const VornTime* modifyTime, const VornTime* createTime);

/**
 * Returns the size in bytes of the file that a name stands for; of the first one found when the name holds
 * wildcards; VORN_FILE_FAILED when nothing is found.
 *
 * Last error: VORN_OK, or the status of the system error.
 * Deliberate: a null name gives the number 102 as the size and leaves the last error alone.
 */
VORN_API uint64_t VornFileGetSizeByName(const wchar_t* name);

/**
 * Stores the attributes in `*attributes`; all bits set when it fails.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG name or attributes null (nothing is stored); or the status of the
 * system error.
 */
VORN_API VornStatus VornFileGetAttributes(const wchar_t* name, uint32_t* attributes);

/**
 * Sets the attributes to `*attributes`. Returns VORN_OK; VORN_E_INVALID_ARG name or attributes null; or the
 * status of the system error.
 */
VORN_API VornStatus VornFileSetAttributes(const wchar_t* name, const uint32_t* attributes);

/**
 * Stores 1 in `*readOnly` when the file is read-only, else 0.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG name or readOnly null; VORN_E_NOT_FOUND the attributes cannot be
 * read, whatever the reason (`*readOnly` stays unchanged).
 */
VORN_API VornStatus VornFileGetReadOnly(const wchar_t* name, uint32_t* readOnly);

/**
 * Makes a file read-only when `readOnly` is 1, and writable for every other value.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG name null; VORN_E_NOT_FOUND the attributes cannot be read, whatever
 * the reason; VORN_E_WRITE the attributes cannot be set or not be read back; VORN_E_NOT_APPLIED read back,
 * they do not show the change.
 */
VORN_API VornStatus VornFileSetReadOnly(const wchar_t* name, uint32_t readOnly);

/** Returns VORN_TRUE when the name stands for a file. Deliberate: not for one whose attributes are all 0. */
VORN_API VBool VornFileExistsFile(const wchar_t* name);

/** Returns VORN_TRUE when the name stands for a directory. */
VORN_API VBool VornFileExistsDir(const wchar_t* name);

/** Returns what the name stands for; VORN_FILE_TYPE_UNKNOWN when it cannot be examined. */
VORN_API VornFileType VornFileGetType(const wchar_t* name);

/* ---- Mapped regions ---- */

/**
 * Maps a stretch of an open file, or of paging memory, into the address space. Returns the address of the
 * view's first byte, or null on failure.
 *
 * file: opened for reading (the view is read-only) or for reading and writing; not empty. Null for paging
 * memory, which is readable and writable.
 * offset: where the view starts in bytes; a multiple of the system's allocation granularity (64 KiB).
 * length: the view's bytes; 0 means all of the file from `offset` on, and is invalid without a file.
 * name: null, or without a file the name of the paging memory: memory that exists under that name is joined,
 * by other processes too; otherwise it is created with `length` bytes (an `offset` above 0 then asks for a
 * view that ends behind it).
 * address: where the view is wanted, or null for anywhere.
 *
 * Last error: VORN_OK; VORN_E_INVALID_ARG file and name both given, neither a file nor a length, unknown
 * handle, empty file, or a file without read access; VORN_E_MAPPING the system made no mapping or no view
 * (an offset off the granularity, an address that is not free, a stretch that ends behind the file);
 * VORN_E_NO_MEMORY.
 * The view lives until VornFileUnmapRegion, or until its file is closed.
 * Deliberate: a vorn::LockError of the lock over all mapped regions passes out of this function. When the
 * lock could not be taken nothing is mapped; when only its release failed the region lives until its file is
 * closed. Any thread may call this.
 */
VORN_API void* VornFileMapRegion(VornFile* file, uint64_t offset, uint64_t length, const wchar_t* name,
                                 void* address);

/**
 * Releases the region whose view starts at `view`.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG no view starts there (an address inside a view does not do).
 * Deliberate: a vorn::LockError of the lock over all mapped regions passes out of this function. When the
 * lock could not be taken the region stays mapped.
 * Any thread may call this; two that release the same view at once are the caller's error: only one finds
 * it.
 */
VORN_API VornStatus VornFileUnmapRegion(void* view);

VORN_END_C

#endif
