// codepage_units.h - a text in the default code page, converted to UTF-16 units for one use.
// Short results live on the stack; longer ones in an array that fits a UniStr of that length.
#ifndef VORN_TEXT_CODEPAGE_UNITS_H
#define VORN_TEXT_CODEPAGE_UNITS_H

#include "text/unistr_units.h"

namespace vorn::detail {

class UnitsFromCodepage {
public:
    // Converts n bytes, n > 0. False where the conversion fails; memory exhaustion throws.
    UnitsFromCodepage(const char* s, uint32_t n);
    UnitsFromCodepage(const UnitsFromCodepage&) = delete;
    UnitsFromCodepage& operator=(const UnitsFromCodepage&) = delete;

    explicit operator bool() const noexcept { return ok_; }
    const wchar_t* Data() const noexcept { return units_; }
    uint32_t Length() const noexcept { return length_; }
    bool IsAllocated() const noexcept { return allocated_ != nullptr; }
    // Gives up the array, which has FreshCapacity(Length()) units.
    wchar_t* Release() noexcept { return allocated_.release(); }

private:
    static constexpr int32_t kOnStack = 256;

    wchar_t onStack_[kOnStack];
    UnitArray allocated_;
    wchar_t* units_;
    uint32_t length_;
    bool ok_;
};

}  // namespace vorn::detail

#endif
