// codepage_converter.h - the use of ICU's default converter for one call.
// Any thread may take one at any time; each taken converter belongs to its taker until it is given back.
// Converters that were given back are kept for the next taker, who sees no difference to a fresh one: ICU's
// one-call conversions reset the converter before they begin, and a converter is kept only as long as the
// default converter's name stays what it was when the converter was opened.
#pragma once

#include <unicode/ucnv.h>

namespace vorn::detail {

class CodepageConverter {
public:
    // Takes a kept converter or opens one. Get() is null and Status() an error when that fails.
    CodepageConverter() noexcept;
    CodepageConverter(const CodepageConverter&) = delete;
    CodepageConverter& operator=(const CodepageConverter&) = delete;
    ~CodepageConverter();

    explicit operator bool() const noexcept { return entry_ != nullptr; }
    UConverter* Get() const noexcept;
    UErrorCode Status() const noexcept { return status_; }

    struct Entry;

private:
    Entry* entry_;
    UErrorCode status_;
};

// Closes the converters that nobody uses at the moment. To be called when the module is unloaded from a
// process that goes on, and not when the process ends: ICU's locks may then be held by threads that are gone.
void CloseKeptConverters() noexcept;

}  // namespace vorn::detail
