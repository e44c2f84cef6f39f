// shell_path.h - the system's path qualification, from a module loaded on first need.
#ifndef VORN_FILE_SHELL_PATH_H
#define VORN_FILE_SHELL_PATH_H

namespace vorn::detail {

// Frees the module and forgets its entry point; the next request loads it again. Called by the final
// VornTerminate. Any thread may call this, but not while another qualifies a path.
void ReleaseShellPath() noexcept;

}  // namespace vorn::detail

#endif
