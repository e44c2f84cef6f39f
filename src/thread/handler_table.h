// handler_table.h - what a frame's exception table says about one place in its function.
//
// Reads the tables that the compiler writes for C++ functions (call sites, actions, types), so that a frame
// can be judged before an unwind reaches it. Bytes in, answer out: no system.
#ifndef VORN_THREAD_HANDLER_TABLE_H
#define VORN_THREAD_HANDLER_TABLE_H

#include <cstdint>

namespace vorn::detail {

enum class FrameAction {
    kNone,       // nothing to run
    kCleanup,    // destructors, or a handler that catches everything
    kTerminate,  // an exception here ends the process
    kForeign,    // not a table of this kind
};

// `table` is the function's table, `offset` the place's distance from the function's start in bytes.
FrameAction LookUpFrameAction(const uint8_t* table, uint64_t offset) noexcept;

}  // namespace vorn::detail

#endif
