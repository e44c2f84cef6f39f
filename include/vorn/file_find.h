/*
 * file_find.h - directory search, the named data streams of a file, and directory operations.
 *
 * Paths are zero-terminated UTF-16 and go to the system as they are given: they are neither made absolute
 * nor given a prefix for long paths. Only the backslash separates a directory from a name.
 */
#ifndef VORN_FILE_FIND_H
#define VORN_FILE_FIND_H

#include <vorn/status.h>
#include <vorn/types.h>

VORN_BEGIN_C

/** An open search. Different threads may use different searches; one search is used by one thread at a time.
 */
typedef struct VornFileFind VornFileFind;

/**
 * Starts a search for the entries that match `pattern` and finds the first of them. "." and ".." are never
 * found.
 *
 * A pattern such as L"C:\\logs\\*.txt" searches a directory; without a backslash it searches the current
 * directory. The system does the matching, so that case does not matter.
 *
 * Where the text before the last backslash names an existing file, the search lists that file's named data
 * streams: L"C:\\logs\\a.txt\\*". Stream names have the form L":name:$DATA"; the pattern is compared with the
 * part behind the leading colon, case matters, `*` stands for any run of units and `?` for exactly one. The
 * unnamed stream, which holds the file's contents, is never found. Deliberate: ":$DATA" is appended to a
 * pattern of more than 6 units that does not end in it, and not to a shorter one, so that L"summary" finds
 * its stream while L"notes" finds none.
 *
 * name: receives the first entry's name, which belongs to the search and is valid until the next call of
 * VornFileFindNext or VornFileFindClose on it.
 *
 * Returns the search, to be released with VornFileFindClose, or null.
 * Last error: VORN_OK; VORN_E_INVALID_ARG pattern or name null; VORN_E_NOT_FOUND nothing matches, or nothing
 * but "." and ".."; VORN_E_PATH_NOT_FOUND the directory does not exist; VORN_E_NOT_AVAILABLE the file has no
 * stream that matches; VORN_E_READ the file's streams cannot be read; VORN_E_NO_MEMORY; or the status of the
 * system's error. Any thread may call this.
 */
VORN_API VornFileFind* VornFileFindFirst(const wchar_t* pattern, const wchar_t** name);

/**
 * Goes on to the next entry.
 *
 * A search of streams goes on to streams that can be opened for reading only; others are left out. At the end
 * of its list it looks at the file again and goes on with streams that are new; none is found twice.
 *
 * name: receives the entry's name, as VornFileFindFirst gives it; null with VORN_E_NO_MORE and
 * VORN_E_NO_MEMORY.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown search or name null; VORN_E_NO_MORE no further entry, now and
 * on each further call; VORN_E_NO_MEMORY a search of streams could not go on and may be asked again. The
 * last error is left alone.
 */
VORN_API VornStatus VornFileFindNext(VornFileFind* find, const wchar_t** name);

/**
 * Gives the current entry's full name: the directory part of the pattern (or the directory that was current
 * when the search began) and the entry's name, qualified by the system where it can.
 * Deliberate: a stream's full name starts with the directory of its file, not with the file: L"C:\\logs\\"
 * and L":name:$DATA" make L"C:\\logs\\:name:$DATA". Only a file given without a backslash is part of it.
 *
 * fullName: receives the text, which belongs to the search and is valid until the next call of this function
 * or of VornFileFindClose on it.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown search or fullName null; VORN_E_NO_MEMORY.
 */
VORN_API VornStatus VornFileFindGetFullName(VornFileFind* find, const wchar_t** fullName);

/**
 * Returns the current entry's size in bytes; all bits set for an unknown search. The last error is left
 * alone.
 */
VORN_API uint64_t VornFileFindGetSize(VornFileFind* find);

/**
 * Gives the times of the current entry's last access and last modification, in UTC; of a stream, those of its
 * file. Either pointer may be null. A time that is no calendar time leaves its output untouched.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown search; VORN_E_READ the stream's file cannot be examined.
 */
VORN_API VornStatus VornFileFindGetTime(VornFileFind* find, VornTime* accessTime, VornTime* modifyTime);

/**
 * Ends a search and frees it.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG unknown search; VORN_E_SYSTEM ending the system's search faulted: the
 * search then stays open, without its texts.
 */
VORN_API VornStatus VornFileFindClose(VornFileFind* find);

/**
 * Creates a directory; all directories on the way to it must exist. `security` may be null.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG path null; VORN_E_EXISTS a file or directory of that name exists;
 * VORN_E_PATH_NOT_FOUND a directory on the way is missing; VORN_E_SYSTEM any other error.
 * Any thread may call this.
 */
VORN_API VornStatus VornFileCreateDir(const wchar_t* path, const VornSecurityDescriptor* security);

/**
 * Removes a directory. With `recurse` and `deleteFiles` both 0 it must be empty; otherwise it is emptied
 * first, entry by entry in the system's order.
 *
 * recurse: not 0 to remove subdirectories, in the same manner; with 0 a subdirectory stops the call.
 * deleteFiles: not 0 to delete files; with 0 a file stops the call.
 * clearReadOnly: 1 to delete read-only files too; with any other value such a file stops the call.
 *
 * A junction or symbolic link to a directory counts as a subdirectory and is removed itself; what it points
 * to is never entered, also when `path` is such a link. A link to a file counts as a file and is deleted
 * itself.
 *
 * A stop leaves everything in place that was not removed before it. Trees of any depth are removed with one
 * path in memory; a path longer than the system takes needs the system's prefix for long paths.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG path null or empty; VORN_E_DIR_NOT_EMPTY stopped at an entry that the
 * flags exclude, or the directory is not empty; VORN_E_NOT_PERMITTED a read-only file, or access denied;
 * VORN_E_NOT_FOUND, VORN_E_PATH_NOT_FOUND, VORN_E_SHARING, VORN_E_INVALID_NAME or VORN_E_UNKNOWN as the
 * system refuses (VORN_E_UNKNOWN also when `path` is a file); VORN_E_NO_MEMORY. The last error is left alone.
 * Any thread may call this.
 */
VORN_API VornStatus VornFileRemoveDir(const wchar_t* path, int32_t recurse, uint32_t deleteFiles,
                                      uint32_t clearReadOnly);

/**
 * Gives the process's current directory. `size` is the buffer's size in UTF-16 units.
 *
 * Returns the size in units that the text needs, its terminating zero included: with a null buffer or one
 * that is too small nothing is written, otherwise this many units were. 0 when the system cannot tell. The
 * last error is left alone. Any thread may call this; the directory is one for the whole process.
 */
VORN_API uint32_t VornFileGetCurrentDir(wchar_t* buffer, uint32_t size);

/**
 * Sets the process's current directory.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG path null; VORN_E_SYSTEM the system refused.
 * Any thread may call this; the directory is one for the whole process.
 */
VORN_API VornStatus VornFileSetCurrentDir(const wchar_t* path);

VORN_END_C

#endif
