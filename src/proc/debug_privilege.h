// debug_privilege.h - lets the calling thread open other users' processes for a scope, where it may.
#ifndef VORN_PROC_DEBUG_PRIVILEGE_H
#define VORN_PROC_DEBUG_PRIVILEGE_H

namespace vorn::detail {

// Enables the debug privilege on the calling thread's token and puts it back to the state it had. A thread
// without a token of its own gets one that stands for its process; deliberately, it keeps that. Where the
// privilege cannot be had, the work goes on without it: nothing is reported.
class DebugPrivilege {
public:
    DebugPrivilege() noexcept;
    DebugPrivilege(const DebugPrivilege&) = delete;
    DebugPrivilege& operator=(const DebugPrivilege&) = delete;
    ~DebugPrivilege();

    // The privilege is not put back when the scope ends.
    void LeaveAsItIs() noexcept { switchedOn_ = false; }

private:
    bool switchedOn_;  // it was off before, and is on through this object
};

}  // namespace vorn::detail

#endif
