// shell_path.h - the system's path qualification, from a module loaded on first need.
//
// The module and its entry point are kept process-wide until the final VornTerminate. Several threads may
// need them first at once: each looks them up, one module reference is kept.
#ifndef VORN_FILE_SHELL_PATH_H
#define VORN_FILE_SHELL_PATH_H

namespace vorn::detail {

// Makes a path absolute in `qualified`, a buffer of `units` UTF-16 units; 0 when it does not fit.
using QualifyPathFunction = int(__attribute__((ms_abi)) *)(const wchar_t* path, wchar_t* qualified,
                                                           unsigned units);

struct ShellPath {
    void* module;                 // null when it cannot be loaded
    QualifyPathFunction qualify;  // null when unavailable
};

// Valid until ReleaseShellPath.
ShellPath GetShellPath() noexcept;

// Frees the module and forgets its entry point; the next request loads it again. Called by the final
// VornTerminate. Any thread may call this, but not while another qualifies a path.
void ReleaseShellPath() noexcept;

}  // namespace vorn::detail

#endif
