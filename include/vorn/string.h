/*
 * string.h - zero-terminated text of UTF-16 units: length, copying, comparison, search, case, tokens,
 * formatting.
 *
 * Everything counts 16-bit units; a surrogate pair is two of them, and nothing checks surrogates. The
 * terminator is never counted in a length. Text lies at even addresses, as its type asks. No pointer may be
 * null unless its function says so, and buffers are as large as what is written into them; copying and
 * appending ask that source and destination do not overlap. None of these functions touches the last error.
 * Any thread may call them on text that no other thread changes.
 */
#ifndef VORN_STRING_H
#define VORN_STRING_H

#include <vorn/types.h>

VORN_BEGIN_C

/** Returns the number of units before the terminator. */
VORN_API size_t VornStrLen(const wchar_t* s);

/** Copies src with its terminator to dst. Returns dst. */
VORN_API wchar_t* VornStrCpy(wchar_t* dst, const wchar_t* src);

/**
 * Writes exactly n units to dst: the text of src, cut after n units, and zeros behind it. A src of n units or
 * more leaves dst without a terminator. Returns dst.
 */
VORN_API wchar_t* VornStrNCpy(wchar_t* dst, const wchar_t* src, uint32_t n);

/** Appends src with its terminator at the end of dst. Returns dst. */
VORN_API wchar_t* VornStrCat(wchar_t* dst, const wchar_t* src);

/** Appends at most n units of src and always a terminator, n + 1 units at most. Returns dst. */
VORN_API wchar_t* VornStrNCat(wchar_t* dst, const wchar_t* src, uint32_t n);

/** Compares unit by unit as unsigned numbers. Returns exactly -1, 0 or 1. */
VORN_API int32_t VornStrCmp(const wchar_t* a, const wchar_t* b);

/**
 * Compares without regard to case, by ICU's default case folding in the order of code units. Returns ICU's
 * result: negative, 0 or positive.
 */
VORN_API int32_t VornStrICmp(const wchar_t* a, const wchar_t* b);

/** Returns the first unit equal to c, or null. With c 0, the terminator. */
VORN_API wchar_t* VornStrChr(const wchar_t* s, wchar_t c);

/** Returns the last unit equal to c, or null. With c 0, the terminator. */
VORN_API wchar_t* VornStrRChr(const wchar_t* s, wchar_t c);

/** Returns the first occurrence of sub in s, or null. An empty sub occurs at the start of every text. */
VORN_API wchar_t* VornStrStr(const wchar_t* s, const wchar_t* sub);

/** Returns the length of the initial run of s made only of units that occur in set. */
VORN_API uint32_t VornStrSpn(const wchar_t* s, const wchar_t* set);

/** Returns the length of the initial run of s made only of units that do not occur in set. */
VORN_API uint32_t VornStrCSpn(const wchar_t* s, const wchar_t* set);

/**
 * Returns a copy of s, which the caller releases with VornStrFree. Returns null for a null s and when there
 * is no memory.
 */
VORN_API wchar_t* VornStrDup(const wchar_t* s);

/** Releases text that VornStrDup returned. A null p is ignored. */
VORN_API void VornStrFree(wchar_t* p);

/** Reverses the units of s in place; surrogate pairs come out swapped. Returns s. */
VORN_API wchar_t* VornStrRev(wchar_t* s);

/** Overwrites every unit of s before the terminator with c. Returns s. */
VORN_API wchar_t* VornStrSet(wchar_t* s, wchar_t c);

/** Overwrites at most n units of s with c, none behind the terminator. Returns s. */
VORN_API wchar_t* VornStrNSet(wchar_t* s, wchar_t c, uint32_t n);

/**
 * Lower-cases src into dst by ICU's full case mapping for the default locale; the result may be longer than
 * src.
 *
 * size: in, the capacity of dst in units. When that has no room for the result and its terminator, the size
 * needed, terminator included, is stored there, dst is not touched (and may be null), and 0 is returned.
 * Returns otherwise the length of the result, and `*size` keeps its value.
 * Deliberate: 0 is also the length of an empty result; `*size` tells the two apart.
 */
VORN_API uint32_t VornStrToLower(wchar_t* dst, uint32_t* size, const wchar_t* src);

/** Upper-cases src into dst; otherwise as VornStrToLower. */
VORN_API uint32_t VornStrToUpper(wchar_t* dst, uint32_t* size, const wchar_t* src);

/**
 * Returns the next token, a run of units that do not occur in delims, and null when there is none left. The
 * delimiter behind the token is overwritten with a terminator.
 *
 * s: the text to start with, which is changed; null to go on where the last call with the same context ended.
 * context: the caller's variable that carries the position. It is not read when s is not null.
 */
VORN_API wchar_t* VornStrTok(wchar_t* s, const wchar_t* delims, wchar_t** context);

/**
 * Formats into buffer by ICU's printf-style formats, given as narrow text. See ICU's u_sprintf for the format
 * language and the types of the arguments.
 *
 * count: the capacity of buffer in units. No terminator is written when the text fills it.
 * Returns what ICU's u_vsnprintf returns: the number of units.
 */
VORN_API int32_t VornStrFormat(wchar_t* buffer, int32_t count, const char* format, ...);

/** VornStrFormat with the format given as UTF-16. */
VORN_API int32_t VornStrFormatU(wchar_t* buffer, int32_t count, const wchar_t* format, ...);

VORN_END_C

#endif
