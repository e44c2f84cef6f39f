// heap_record.h - the record behind a heap's handle.
//
// A VornHeap* from a client is looked up in Heaps() before its record is touched. The record itself does not
// change while it is registered; what changes is the heap's area.
#ifndef VORN_HEAP_HEAP_RECORD_H
#define VORN_HEAP_HEAP_RECORD_H

#include <vorn/heap.h>
#include <vorn/sync.h>

struct VornHeap {
    void* base;                // of the area, in this process
    VornMutex* mutex;          // a local heap's lock; null without
    VornSemaphore* semaphore;  // a shared heap's lock; null for a local heap
    uint64_t size;             // bytes of the area that are this process's to touch, whatever its header says
};

#endif
