// security.h - what the system is to be told of the security that a caller asks for.
#ifndef VORN_CORE_SECURITY_H
#define VORN_CORE_SECURITY_H

#include <vorn/types.h>

#include "core/win32.h"

namespace vorn::detail {

// Null, for the system's default, where the descriptor is null or says nothing.
inline SECURITY_ATTRIBUTES* AttributesOf(const VornSecurityDescriptor* security) noexcept
{
    return security == nullptr ? nullptr : static_cast<SECURITY_ATTRIBUTES*>(security->attributes);
}

}  // namespace vorn::detail

#endif
