/*
 * heap.h - heaps in memory of the caller or in named shared memory, and named shared memory by itself.
 *
 * A heap lives entirely inside one contiguous area, and everything in it is an offset in bytes from the
 * area's start: the same heap may be mapped at different addresses in several processes, or saved to a file
 * and loaded again. An allocation is therefore an offset too; VornHeapGetBasePtr plus the offset is its
 * address.
 *
 * Blocks carry a guard word before and an end marker after the bytes asked for. Nothing that stands in the
 * area is trusted: whatever has been written over it, no function here touches memory outside it, and a heap
 * found damaged is reported with VORN_E_HEAP_CORRUPT.
 *
 * Unless its comment says otherwise, each function stores its outcome in the last error on every path,
 * VORN_OK on success, and may be called from any thread. "The statuses of entering" below are those that are
 * common to the functions that enter a heap:
 * - VORN_E_INVALID_ARG: null, or not the handle of an open heap
 * - VORN_E_BAD_STATE: an enumeration runs, or one was stopped early; then the heap stays so for good
 * - VORN_E_HEAP_LOCK: the heap was created without a lock and another call is inside it
 * - VORN_E_HEAP_CORRUPT: the structure is damaged, or reaches beyond the area that the handle was given
 * - VORN_E_SYSTEM, or another status of VornMutexLock: the heap's lock could not be taken
 *
 * Entering a shared heap waits for its lock without limit. That wait is a cancellation point: a thread that
 * is cancelled in it leaves by the cancellation's exception, without the lock.
 */
#ifndef VORN_HEAP_H
#define VORN_HEAP_H

#include <vorn/status.h>
#include <vorn/types.h>

VORN_BEGIN_C

/** A handle of this process on a heap. Several handles may be open on one shared heap. */
typedef struct VornHeap VornHeap;

/**
 * Called by VornHeapEnumerate for one allocated block.
 *
 * offset: of the payload. size: the bytes that were asked for, never 0. context: as given to
 * VornHeapEnumerate. precedingOffset: of the header of the block before this one.
 * Returns non-zero to go on, 0 to stop. It must not throw.
 */
typedef int32_t (*VornHeapCallback)(uint64_t offset, uint64_t size, void* context, uint64_t precedingOffset);

/* ---- Create ---- */

/**
 * Lays out an empty heap over `size` bytes at `base` and returns a handle on it, or null.
 *
 * base: any alignment; the memory stays the caller's and must outlive the handle. size: at least 269; of an
 * odd size the last byte is not used. locking: 1 gives the heap a mutex; with any other value the heap has no
 * lock, and a call that finds another one inside fails with VORN_E_HEAP_LOCK.
 *
 * Last error: VORN_OK; VORN_E_INVALID_ARG base null; VORN_E_NO_MEMORY size below 269, or no memory for the
 * handle; or the status of VornMutexCreate. Give the handle back with VornHeapDestroy.
 */
VORN_API VornHeap* VornHeapCreateLocal(void* base, uint64_t size, int locking);

/**
 * Opens the shared heap of this name, or creates it, and returns a handle on it.
 *
 * size: of the heap's memory in bytes, at least the characters of the name plus userHeaderSize plus 541. To
 * open an existing heap give the size that it was created with: with a smaller one only so much is mapped,
 * and every function that enters the heap gives VORN_E_HEAP_CORRUPT. name: not null, and without slash,
 * backslash and space; processes that use the same name share the heap. Its lock is the semaphore of the name
 * followed by "_SEM", in the global namespace. userHeaderSize: when not 0, a new heap gets a block of that
 * many bytes for the clients' own use, see VornHeapGetUsrHdrOff; a new heap whose name takes the room for it
 * goes without. security: for the objects that are created; may be null.
 *
 * Last error: VORN_OK; VORN_E_INVALID_ARG name null; VORN_E_NO_MEMORY size too small, or no memory;
 * VORN_E_INVALID_NAME a character in the name that it must not have; VORN_E_EXISTS another process is just
 * creating the heap, or left its lock without a heap while it still holds it open, or the lock is there and
 * could not be opened for want of memory; VORN_E_CONVERSION or VORN_E_CONVERTER the name has no form in the
 * process's code page; VORN_E_SYSTEM the semaphore could not be made; VORN_E_MAPPING the memory could not be
 * mapped.
 *
 * Deliberate: when only the mapping fails, the result is not null but a handle that was never opened. The
 * last error tells, and every function gives VORN_E_INVALID_ARG for it; it cannot be given back. The lock
 * stays open.
 *
 * A process that ends while it is inside the heap leaves the lock taken: a semaphore has no owner. Every
 * other caller then waits for ever (until it is cancelled), VornHeapDestroy included. The way back is to end
 * every process that has the heap open: once the last handle is gone, the next VornHeapCreateShared of the
 * name finds nothing and lays out a new heap. A process that ends outside the heap harms nobody, but its
 * handles stay in the attach count, so that no VornHeapDestroy unmaps the memory any more before its process
 * ends.
 */
VORN_API VornHeap* VornHeapCreateShared(uint64_t size, const wchar_t* name, uint32_t userHeaderSize,
                                        const VornSecurityDescriptor* security);

/* ---- Use ---- */

/**
 * Allocates `size` bytes; 0 is a valid request. Returns the payload's offset in bytes from the heap's base,
 * or 0. The memory keeps whatever it held.
 *
 * Last error: VORN_OK; VORN_E_NO_MEMORY no free block is large enough; or the statuses of entering.
 * The block belongs to the heap and is valid in every process that has it open. Free it with VornHeapFree.
 */
VORN_API uint64_t VornHeapAlloc(VornHeap* heap, uint64_t size);

/**
 * Frees the block whose payload is at `offset`; 0 does nothing.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG no block can be there, or the guard word before it is overwritten;
 * VORN_E_HEAP_CORRUPT the end marker behind it is overwritten, it is free already, or a link around it is
 * damaged; or the statuses of entering. The last error is the same.
 */
VORN_API VornStatus VornHeapFree(VornHeap* heap, uint64_t offset);

/**
 * Calls `callback` for every allocated block of at least one byte, in the order of their offsets. Meanwhile
 * every function that enters the heap fails with VORN_E_BAD_STATE, from the callback and elsewhere.
 *
 * Returns VORN_OK at the end of the walk; VORN_E_INVALID_ARG callback null; VORN_E_STOPPED the callback
 * returned 0; VORN_E_HEAP_CORRUPT a damaged block; or the statuses of entering. The last error is the same.
 *
 * Deliberate: a walk that does not reach the end leaves the heap in its state, and every later call, also of
 * VornHeapDestroy, fails with VORN_E_BAD_STATE.
 */
VORN_API VornStatus VornHeapEnumerate(VornHeap* heap, VornHeapCallback callback, void* context);

/* ---- Ask ---- */

/** Returns the address of the heap in this process, or null: VORN_E_INVALID_ARG. Does not enter the heap. */
VORN_API void* VornHeapGetBasePtr(VornHeap* heap);

/**
 * Returns the offset of the clients' own block that VornHeapCreateShared was asked for; 0 when there is none,
 * and for VORN_E_INVALID_ARG. Does not enter the heap. The value is what stands in the heap, unchecked.
 */
VORN_API uint64_t VornHeapGetUsrHdrOff(VornHeap* heap);

/** Returns the size in bytes of the block that VornHeapGetUsrHdrOff gives; otherwise as that function. */
VORN_API uint32_t VornHeapGetUsrHdrSize(VornHeap* heap);

/**
 * Checks the whole structure: every link, guard word and end marker, and the tree of free blocks.
 * Returns VORN_OK, VORN_E_HEAP_CORRUPT, or another of the statuses of entering. The last error is the same.
 */
VORN_API VornStatus VornHeapCheck(VornHeap* heap);

/**
 * Returns the bytes in use: the heap's header and start block (168), every allocated block with its header,
 * and 32 for each free block's header; 200 for a new heap. 0 on failure: the statuses of entering.
 */
VORN_API uint64_t VornHeapAllocated(VornHeap* heap);

/** Returns the heap's size in bytes, or 0: the statuses of entering. */
VORN_API uint64_t VornHeapSize(VornHeap* heap);

/**
 * Returns the largest request in bytes that an empty heap of this size could satisfy, or 0: the statuses of
 * entering. The blocks that it has now do not matter.
 * Deliberate: the result is 4 too high when the heap's size is no multiple of 4.
 */
VORN_API uint64_t VornHeapFreeMax(VornHeap* heap);

/**
 * Returns the largest request in bytes that can be satisfied now; 0 when there is no free block, and for the
 * statuses of entering.
 */
VORN_API uint64_t VornHeapFreeMaxBlk(VornHeap* heap);

/**
 * Returns the sizes of all free blocks together, headers included, in bytes. All bits set on failure: the
 * statuses of entering, among them VORN_E_HEAP_CORRUPT when the tree of free blocks is damaged.
 */
VORN_API uint64_t VornHeapFreeTotal(VornHeap* heap);

/* ---- Keep ---- */

/**
 * Writes the heap to a file, byte for byte. An existing file is replaced.
 *
 * fileName: handed to the system as it is; null is a path that does not exist.
 * Returns VORN_OK; VORN_E_NOT_APPLIED the heap's size does not fit in 32 bits; VORN_E_NO_MEMORY;
 * VORN_E_WRITE; the translated system error when the file cannot be created (VORN_E_PATH_NOT_FOUND,
 * VORN_E_NOT_PERMITTED, VORN_E_SHARING, VORN_E_INVALID_NAME, VORN_E_UNKNOWN and so on); or the statuses of
 * entering. The last error is the same. The heap's lock is held for the whole call.
 */
VORN_API VornStatus VornHeapSave(VornHeap* heap, const wchar_t* fileName);

/**
 * Replaces the heap's contents by those of a file that VornHeapSave wrote. A larger heap gains the space that
 * the image does not fill; a named heap keeps its name; a heap without a name frees the image's name block.
 *
 * Deliberate: the root of the tree of free blocks stays the heap's own. A load is exact where the image has
 * the same root, as when it was saved from this very heap; VornHeapCheck tells.
 *
 * Returns VORN_OK; VORN_E_NO_MEMORY the image is larger than the heap, or no memory, or no room for the name;
 * VORN_E_READ the file is shorter than expected or cannot be read; VORN_E_BAD_IMAGE it is no heap image;
 * VORN_E_HEAP_CORRUPT the image cannot be joined to the heap; the translated system error when the file
 * cannot be opened (VORN_E_NOT_FOUND and so on); or the statuses of entering. The last error is the same.
 * After a failure the heap is as the load left it. The heap's lock is held for the whole call.
 */
VORN_API VornStatus VornHeapLoad(VornHeap* heap, const wchar_t* fileName);

/* ---- Release ---- */

/**
 * Closes a handle, which is invalid from then on; a damaged heap can be closed too. A local heap's memory is
 * not touched any more. The last handle on a shared heap unmaps its memory. No other thread may be waiting
 * for the heap's lock with this handle.
 *
 * Returns VORN_OK; the statuses of entering except VORN_E_HEAP_CORRUPT; the status of VornMutexDestroy;
 * VORN_E_SYSTEM the lock could not be closed or the memory not be unmapped. The last error is the same.
 * Deliberate: closing a handle that is not the last leaves the memory mapped in this process; its address, as
 * VornHeapGetBasePtr gave it, can be given to VornSharedMemFree.
 */
VORN_API VornStatus VornHeapDestroy(VornHeap* heap);

/* ---- Named shared memory ---- */

/**
 * Maps the named shared memory of this name, or creates it, zero-filled, and returns its address, or null.
 *
 * size: in bytes, not 0. name: as the system takes it; null makes memory without a name. security: for new
 * memory; may be null.
 * Last error: VORN_OK; VORN_E_INVALID_ARG size 0; VORN_E_MAPPING; VORN_E_NO_MEMORY. Give it back with
 * VornSharedMemFree. Deliberate: throws vorn::LockError as VornFileMapRegion does.
 */
VORN_API void* VornSharedMemAlloc(uint64_t size, const wchar_t* name, const VornSecurityDescriptor* security);

/**
 * Unmaps shared memory; it ends to exist when every process has done so.
 * Returns VORN_OK; VORN_E_INVALID_ARG address is not the start of mapped memory. The last error is not
 * changed. Deliberate: throws vorn::LockError as VornFileUnmapRegion does.
 */
VORN_API VornStatus VornSharedMemFree(void* address);

VORN_END_C

#endif
