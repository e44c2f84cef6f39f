#include "core/system_error.h"

namespace vorn::detail {

namespace {

struct Translation {
    uint32_t systemError;
    VornStatus status;
};

// Deliberate: 183 (already exists) is not listed, while 80 (file exists) is.
constexpr Translation kTranslations[] = {
    {0, VORN_OK},                 // ERROR_SUCCESS
    {2, VORN_E_NOT_FOUND},        // ERROR_FILE_NOT_FOUND
    {3, VORN_E_PATH_NOT_FOUND},   // ERROR_PATH_NOT_FOUND
    {5, VORN_E_NOT_PERMITTED},    // ERROR_ACCESS_DENIED
    {32, VORN_E_SHARING},         // ERROR_SHARING_VIOLATION
    {80, VORN_E_EXISTS},          // ERROR_FILE_EXISTS
    {87, VORN_E_INVALID_ARG},     // ERROR_INVALID_PARAMETER
    {123, VORN_E_INVALID_NAME},   // ERROR_INVALID_NAME
    {145, VORN_E_DIR_NOT_EMPTY},  // ERROR_DIR_NOT_EMPTY
};

}  // namespace

VornStatus StatusFromSystemError(uint32_t systemError) noexcept
{
    for (const Translation& translation : kTranslations) {
        if (translation.systemError == systemError) return translation.status;
    }
    return VORN_E_UNKNOWN;
}

}  // namespace vorn::detail
