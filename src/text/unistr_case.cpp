// unistr_case.cpp - case mapping of UniStr by ICU in the default locale.
#include <vorn/unistr.hpp>

#include "text/unistr_units.h"

#include <unicode/ustring.h>

namespace vorn {

using namespace detail;

// Deliberate: the text is mapped up to its first zero unit, and the buffer is replaced by one whose capacity
// depends only on the mapped length.
template <typename MapCase>
void UniStr::ChangeCase(MapCase mapCase)
{
    const UChar* const source = IcuUnits(buffer_);
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length = mapCase(nullptr, 0, source, -1, nullptr, &status);
    if (U_FAILURE(status) && status != U_BUFFER_OVERFLOW_ERROR) return;

    const uint64_t capacity = Align(static_cast<uint64_t>(length) + 1, kCapacityUnit) + kCapacityUnit;
    UnitArray mapped = AllocateUnits(capacity);
    status = U_ZERO_ERROR;
    const int32_t written =
        mapCase(IcuUnits(mapped.get()), static_cast<int32_t>(capacity), source, -1, nullptr, &status);
    if (U_FAILURE(status)) return;
    ReplaceBuffer(mapped.release(), static_cast<uint32_t>(written), static_cast<uint32_t>(capacity));
}

void UniStr::ToUpper()
{
    ChangeCase(u_strToUpper);
}

void UniStr::ToLower()
{
    ChangeCase(u_strToLower);
}

}  // namespace vorn
