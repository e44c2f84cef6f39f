// heap_shared.h - the end of a handle on a shared heap.
#ifndef VORN_HEAP_HEAP_SHARED_H
#define VORN_HEAP_HEAP_SHARED_H

#include "heap/heap_record.h"

namespace vorn::detail {

// Closes the lock of a handle that is no longer registered and counts the handle out of the heap; the last
// one in all processes unmaps the memory. VORN_OK, or what went wrong first.
VornStatus DetachSharedHeap(VornHeap* heap) noexcept;

}  // namespace vorn::detail

#endif
