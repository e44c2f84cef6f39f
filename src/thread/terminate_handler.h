// terminate_handler.h - what std::terminate does while threads of the library run: it runs the calling
// thread's exit clean-up before the process ends.
#ifndef VORN_THREAD_TERMINATE_HANDLER_H
#define VORN_THREAD_TERMINATE_HANDLER_H

namespace vorn::detail {

// Each library-started thread calls the first before its start function and the second after it. The handler
// is the process's: the first thread installs it, the last one puts the previous one back.
void InstallTerminateHandler() noexcept;
void RestoreTerminateHandler() noexcept;

// For module unload: puts the previous handler back also where threads have ended without doing so.
void RemoveTerminateHandler() noexcept;

}  // namespace vorn::detail

#endif
