/*
 * runtime.h - starting and ending the use of the library, its version, Base64, time comparison.
 */
#ifndef VORN_RUNTIME_H
#define VORN_RUNTIME_H

#include <vorn/status.h>
#include <vorn/types.h>

VORN_BEGIN_C

#define VORN_VERSION_MAJOR 1
#define VORN_VERSION_MINOR 0
#define VORN_VERSION_PATCH 0
/** The version of these headers, as VornGetVersion gives the module's. */
#define VORN_VERSION                                                              \
    (((uint32_t)VORN_VERSION_MAJOR << 16) | ((uint32_t)VORN_VERSION_MINOR << 8) | \
     (uint32_t)VORN_VERSION_PATCH)

/**
 * Returns the module's version: major in bits 16 and up, minor in bits 8 to 15, patch in bits 0 to 7.
 * Any thread may call this, before VornInitialize too.
 */
VORN_API uint32_t VornGetVersion(void);

/**
 * Starts the use of the library; a client calls it before any other function. Calls nest: each successful
 * one is matched by one VornTerminate, and only the first does the work.
 *
 * Returns VORN_OK; VORN_E_SYSTEM the init lock cannot be taken or the system information record cannot be
 * made; VORN_E_NO_RESOURCES no thread-local storage index is left. After a failed first call the count is
 * back at 0 and the call may be repeated. Any thread may call this.
 */
VORN_API VornStatus VornInitialize(void);

/**
 * Ends one use of the library. The call that brings the count back to 0 releases what VornInitialize made;
 * handles that are still open are not closed. The count is not guarded: a call too many takes it past 0,
 * and the next VornInitialize then only counts and initialises nothing. Any thread may call this.
 */
VORN_API void VornTerminate(void);

/**
 * Encodes `length` bytes as Base64 (RFC 4648, section 4), in lines of 76 characters that end in carriage
 * return and line feed, with a terminating zero byte.
 *
 * text: receives the encoded text, or null to ask only for the size.
 * textSize: receives the size of the whole text in bytes, line breaks and terminating zero included. It is
 * not read: the buffer must have the size that the asking call gave.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG data or textSize null, or length not above 0.
 * Any thread may call this.
 */
VORN_API VornStatus VornBase64EncodeBuffer(const uint8_t* data, int32_t length, char* text,
                                           uint32_t* textSize);

/**
 * Decodes `length` characters of Base64 text. Line feeds are skipped, and so is a carriage return before a
 * line feed.
 *
 * data: receives the bytes, or null to ask only for the size.
 * dataSize: with a null `data` receives an upper bound of the size in bytes (line breaks are not
 * subtracted); otherwise the number of bytes written. On VORN_E_BAD_DATA it keeps the bound, and an
 * unspecified part of the buffer, never more than the bound, has been written.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG text or dataSize null, or length 0; VORN_E_BAD_DATA nothing but line
 * breaks, a character outside the alphabet, "=" anywhere but as the last one or two characters, a carriage
 * return without a line feed, or a number of characters that is no multiple of four.
 * Any thread may call this.
 */
VORN_API VornStatus VornBase64DecodeBuffer(const char* text, uint32_t length, uint8_t* data,
                                           uint32_t* dataSize);

/**
 * Compares two times field by field from year to second and, when ignoreMilliseconds is 0, milliseconds.
 * The day of week is not compared. Returns -1 when `a` is earlier, 1 when it is later, else 0.
 * Neither pointer may be null. Any thread may call this.
 */
VORN_API int32_t VornTimeCmp(const VornTime* a, const VornTime* b, int32_t ignoreMilliseconds);

VORN_END_C

#endif
