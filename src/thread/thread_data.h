// thread_data.h - thread-specific data at the end of a thread.
#ifndef VORN_THREAD_THREAD_DATA_H
#define VORN_THREAD_THREAD_DATA_H

struct VornThread;

namespace vorn::detail {

// Calls the destructors of the calling thread's values, in passes, and removes its entries.
void RunDataDestructors(VornThread* thread) noexcept;

// Removes a record's entries without calling destructors. For records that no thread uses any more.
void DropThreadData(VornThread* thread) noexcept;

}  // namespace vorn::detail

#endif
