// system_error.h - the one translation of the system's error numbers into statuses.
#ifndef VORN_CORE_SYSTEM_ERROR_H
#define VORN_CORE_SYSTEM_ERROR_H

#include <vorn/status.h>

namespace vorn::detail {

// The status for a system error number (GetLastError); VORN_E_UNKNOWN for numbers without a status.
VornStatus StatusFromSystemError(uint32_t systemError) noexcept;

}  // namespace vorn::detail

#endif
