// unistr_codepage.cpp - the two ways between UniStr and the default code page.
// A conversion first goes into memory on the stack. What the string allocates is sized by the length that
// the conversion reports, so that a short text costs one conversion and a long one two.
#include <vorn/unistr.hpp>

#include "text/codepage_converter.h"
#include "text/codepage_units.h"
#include "text/unistr_units.h"

#include <cstring>

namespace vorn {

using namespace detail;

namespace detail {

UnitsFromCodepage::UnitsFromCodepage(const char* s, uint32_t n) : units_(onStack_), length_(0), ok_(false)
{
    if (n > kLargestCapacity) throw LengthError();
    const CodepageConverter converter;
    if (!converter) return;
    UErrorCode status = U_ZERO_ERROR;
    const int32_t size = static_cast<int32_t>(n);
    int32_t length = ucnv_toUChars(converter.Get(), IcuUnits(onStack_), kOnStack, s, size, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        const uint64_t capacity = FreshCapacity(static_cast<uint32_t>(length));
        allocated_ = AllocateUnits(capacity);
        units_ = allocated_.get();
        status = U_ZERO_ERROR;
        length = ucnv_toUChars(converter.Get(), IcuUnits(units_), static_cast<int32_t>(capacity), s, size,
                               &status);
    }
    if (U_FAILURE(status) || length < 0) return;
    length_ = static_cast<uint32_t>(length);
    ok_ = true;
}

}  // namespace detail

// Only for constructors: the fields hold nothing yet.
void UniStr::ConstructFromCodepage(const char* s, uint32_t n)
{
    if (n == 0) n = s == nullptr ? 0 : CheckedLength(std::strlen(s));
    if (n == 0) {
        ConstructFromUnits(nullptr, 0);
        return;
    }
    UnitsFromCodepage units(s, n);
    if (!units) throw RuntimeError("Error converting to UTF-16");
    const uint32_t length = units.Length();
    if (length == 0) {
        // Deliberate: nothing is allocated for a text that is not empty and converts to nothing.
        AdoptBuffer(nullptr, 0, 0);
    } else if (units.IsAllocated()) {
        AdoptBuffer(units.Release(), length, static_cast<uint32_t>(FreshCapacity(length)));
    } else {
        ConstructFromUnits(units.Data(), length);
    }
}

const char* UniStr::GetAsCodepage() const
{
    const CodepageConverter converter;
    UErrorCode status = U_ZERO_ERROR;
    const auto convert = [&](char* to, uint32_t capacity) {
        status = U_ZERO_ERROR;
        return static_cast<uint32_t>(ucnv_fromUChars(converter.Get(), to, static_cast<int32_t>(capacity),
                                                     IcuUnits(buffer_), static_cast<int32_t>(Size()),
                                                     &status));
    };
    const auto failUnless = [this](bool converted) {
        if (converted) return;
        DiscardCodepageCopy();
        throw RuntimeError("Error converting to codepage");
    };
    failUnless(static_cast<bool>(converter));

    // A result that leaves no room for its terminator is treated like one that does not fit.
    constexpr uint32_t kOnStack = 512;
    char onStack[kOnStack];
    uint32_t needed = 0;
    bool isOnStack = false;
    if (narrow_ != nullptr) {
        needed = convert(narrow_, narrowCapacity_);
        failUnless(U_SUCCESS(status) || status == U_BUFFER_OVERFLOW_ERROR);
        if (needed < narrowCapacity_) {
            narrowEnd_ = narrow_ + needed;
            return narrow_;
        }
    } else {
        needed = convert(onStack, kOnStack);
        failUnless(U_SUCCESS(status) || status == U_BUFFER_OVERFLOW_ERROR);
        if (needed == 0) return nullptr;  // Deliberate: no copy is made for an empty text.
        isOnStack = needed < kOnStack;
    }

    DiscardCodepageCopy();
    const uint64_t capacity = Align(needed, kCapacityUnit) + kCapacityUnit;
    failUnless(capacity <= kLargestCapacity);
    std::unique_ptr<char[]> copy(new char[static_cast<size_t>(capacity)]);
    if (isOnStack) {
        std::memcpy(copy.get(), onStack, size_t{needed} + 1);
    } else {
        needed = convert(copy.get(), static_cast<uint32_t>(capacity));
        failUnless(U_SUCCESS(status));
    }
    narrow_ = copy.release();
    narrowEnd_ = narrow_ + needed;
    narrowCapacity_ = static_cast<uint32_t>(capacity);
    return narrow_;
}

}  // namespace vorn
