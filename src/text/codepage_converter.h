// codepage_converter.h - the use of ICU's default converter for one call.
// Any thread may take one at any time; a taken converter belongs to its taker until it is given back. A few
// converters are kept open between calls. Their users see no difference to fresh ones: ICU's one-call
// conversions reset the converter before they begin, and a converter is used again only while the default
// converter has the name it had when the converter was opened.
#ifndef VORN_TEXT_CODEPAGE_CONVERTER_H
#define VORN_TEXT_CODEPAGE_CONVERTER_H

#include <unicode/ucnv.h>

namespace vorn::detail {

struct ConverterSlot;

class CodepageConverter {
public:
    // Takes a kept converter or opens one. Where that fails Get() is null and Status() says why.
    CodepageConverter() noexcept;
    CodepageConverter(const CodepageConverter&) = delete;
    CodepageConverter& operator=(const CodepageConverter&) = delete;
    ~CodepageConverter();

    explicit operator bool() const noexcept { return converter_ != nullptr; }
    UConverter* Get() const noexcept { return converter_; }
    UErrorCode Status() const noexcept { return status_; }

private:
    UConverter* converter_;
    ConverterSlot* slot_;  // null: opened for this use only
    UErrorCode status_;
};

// Closes the converters that nobody uses at the moment; the next use opens them again. The final
// VornTerminate calls this. The end of a process does not: threads that are gone may then hold ICU's locks.
void CloseKeptConverters() noexcept;

}  // namespace vorn::detail

#endif
