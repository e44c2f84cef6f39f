// kernel_handle.h - owns a kernel object's handle.
#ifndef VORN_CORE_KERNEL_HANDLE_H
#define VORN_CORE_KERNEL_HANDLE_H

#include "core/win32.h"

#include <utility>

namespace vorn::detail {

// Closes a handle and keeps the thread's system error, which the caller may still have to translate.
inline void CloseKeepingError(HANDLE handle) noexcept
{
    const DWORD error = GetLastError();
    CloseHandle(handle);
    SetLastError(error);
}

// Owns a kernel handle; empty for both values by which the system reports failure.
class KernelHandle {
public:
    explicit KernelHandle(HANDLE handle = nullptr) noexcept
        : handle_(handle == INVALID_HANDLE_VALUE ? nullptr : handle)
    {}
    KernelHandle(const KernelHandle&) = delete;
    KernelHandle& operator=(const KernelHandle&) = delete;
    ~KernelHandle()
    {
        if (handle_ != nullptr) CloseKeepingError(handle_);
    }

    explicit operator bool() const noexcept { return handle_ != nullptr; }
    HANDLE Get() const noexcept { return handle_; }
    [[nodiscard]] HANDLE Release() noexcept { return std::exchange(handle_, nullptr); }

private:
    HANDLE handle_;
};

}  // namespace vorn::detail

#endif
