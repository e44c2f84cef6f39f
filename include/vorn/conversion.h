/*
 * conversion.h - text between UTF-8, UTF-16 and UTF-32, and between UTF-16 and the default code page.
 *
 * Lengths and capacities count units of the encoding they belong to: bytes of UTF-8 and of code pages, 16-bit
 * units of UTF-16, 32-bit units of UTF-32. Text is aligned as its type asks. Every function here may be
 * called by any thread, and none touches the last error.
 *
 * The six Unicode converters share one size contract.
 *
 * - `*size` 0 asks for the size; dst is not touched and may be null. With srcLength 0, src is read up to its
 * zero terminator and the answer counts a terminator too; otherwise exactly srcLength units are measured and
 * no terminator is counted. The needed size is stored in `*size` and the function returns
 *   VORN_E_BUFFER_TOO_SMALL, for an empty text too.
 * - `*size` above 0 converts exactly srcLength units into at most `*size` units; srcLength 0 converts
 * nothing. No terminator is ever written: a zero inside the text is converted like any other character. If
 * everything fits, `*size` receives the number of units written, and the function returns VORN_OK.
 * - Otherwise the conversion stops before the first character that does not fit, `*size` receives the size
 * that the whole text needs, and the function returns VORN_E_BUFFER_TOO_SMALL. What was converted stays in
 * dst; nothing is written behind it. The caller makes room and converts from the start.
 *
 * Ill-formed text never fails. Each byte of UTF-8 that does not belong to a well-formed sequence, each lone
 * surrogate of UTF-16, and each value of UTF-32 that is a surrogate or above 0x10FFFF becomes U+FFFD. A
 * sequence or pair that srcLength cuts off is ill-formed: nothing beyond srcLength is read. Overlong forms
 * and encoded surrogates are ill-formed. Four-byte sequences above U+10FFFF that start with 0xF4 are
 * well-formed here and become one U+FFFD. Deliberate: asking for the size of UTF-8 counts 0 units for such a
 * sequence, while the conversion writes and counts one.
 *
 * A size that 32 bits cannot hold is given as 0xFFFFFFFF.
 */
#ifndef VORN_CONVERSION_H
#define VORN_CONVERSION_H

#include <vorn/status.h>
#include <vorn/types.h>

VORN_BEGIN_C

/**
 * UTF-8 to UTF-16, under the size contract above. src must not be null unless srcLength is 0 and `*size` is
 * not; size is never null. The buffers belong to the caller and may not overlap. Returns VORN_OK;
 * VORN_E_BUFFER_TOO_SMALL with the needed size in `*size`.
 */
VORN_API VornStatus VornUtf8ToUtf16(const char* src, uint32_t srcLength, wchar_t* dst, uint32_t* size);

/** UTF-8 to UTF-32; otherwise as VornUtf8ToUtf16. */
VORN_API VornStatus VornUtf8ToUtf32(const char* src, uint32_t srcLength, uint32_t* dst, uint32_t* size);

/** UTF-16 to UTF-32; otherwise as VornUtf8ToUtf16. */
VORN_API VornStatus VornUtf16ToUtf32(const wchar_t* src, uint32_t srcLength, uint32_t* dst, uint32_t* size);

/** UTF-16 to UTF-8; otherwise as VornUtf8ToUtf16. */
VORN_API VornStatus VornUtf16ToUtf8(const wchar_t* src, uint32_t srcLength, char* dst, uint32_t* size);

/** UTF-32 to UTF-8; otherwise as VornUtf8ToUtf16. */
VORN_API VornStatus VornUtf32ToUtf8(const uint32_t* src, uint32_t srcLength, char* dst, uint32_t* size);

/** UTF-32 to UTF-16; otherwise as VornUtf8ToUtf16. */
VORN_API VornStatus VornUtf32ToUtf16(const uint32_t* src, uint32_t srcLength, wchar_t* dst, uint32_t* size);

/**
 * Converts text in the process's default code page, as ICU names it, to UTF-16.
 *
 * srcLength: bytes; -1 for zero-terminated text.
 * size: in, the capacity of dst in units, 0 to ask for the size (dst may then be null); out, the length of
 * the result without terminator, whether it fitted or not. A terminator is written when there is room for
 * one.
 *
 * Returns VORN_OK, also when the result fills the buffer without a terminator, and for an empty text with
 * capacity 0; VORN_E_BUFFER_TOO_SMALL with the needed size; VORN_E_CONVERSION the converter cannot be opened,
 * `*size` keeps its value; VORN_E_CONVERTER any other error of the converter.
 */
VORN_API VornStatus VornCodepageToUtf16(const char* src, int32_t srcLength, wchar_t* dst, uint32_t* size);

/**
 * Converts UTF-16 to text in the process's default code page; sizes of dst count bytes. Otherwise as
 * VornCodepageToUtf16.
 */
VORN_API VornStatus VornUtf16ToCodepage(const wchar_t* src, int32_t srcLength, char* dst, uint32_t* size);

VORN_END_C

#endif
