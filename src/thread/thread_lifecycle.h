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

// Called at process detach when the process ends, as against an unload of the module. The system has then
// ended every other thread, wherever it was, possibly inside the library with a lock held.
void NoteProcessEnd() noexcept;

// True from then on, and where the system says so itself, earlier: from the moment at which it has ended the
// other threads. No lock that is held will be released, and whoever waits for another thread hangs.
bool ProcessIsEnding() noexcept;

}  // namespace vorn::detail

#endif
