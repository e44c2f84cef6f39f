// thread_lifecycle.h - what the module's entry point does for threads.
#ifndef VORN_THREAD_THREAD_LIFECYCLE_H
#define VORN_THREAD_THREAD_LIFECYCLE_H

namespace vorn::detail {

// Makes the key under which each thread's record is stored. False when memory or thread-local storage
// indexes are exhausted.
bool CreateThreadRecordKey() noexcept;
void DeleteThreadRecordKey() noexcept;

// Ends the calling thread's use of the library: cleanup handlers, destructors of thread-specific data, and
// the record itself unless someone may still join it. Does nothing for a thread without a record.
void RunThreadExitCleanup() noexcept;

}  // namespace vorn::detail

#endif
