/*
 * types.h - the types that every family shares.
 *
 * Text crosses the interface as zero-terminated UTF-16; wchar_t is a 16-bit unit. Lengths count units.
 */
#ifndef VORN_TYPES_H
#define VORN_TYPES_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

/* VORN_API marks what the module exports. VORN_STATIC compiles the sources into a program instead. */
#if defined(VORN_STATIC)
#define VORN_API
#elif defined(VORN_BUILDING)
#define VORN_API __declspec(dllexport)
#else
#define VORN_API __declspec(dllimport)
#endif

#ifdef __cplusplus
#define VORN_BEGIN_C extern "C" {
#define VORN_END_C }
#else
#define VORN_BEGIN_C
#define VORN_END_C
#endif

VORN_BEGIN_C

/** The library's truth value where a signature asks for one of exactly two values. */
typedef enum VBool { VORN_FALSE = 0, VORN_TRUE = 1 } VBool;

/** An endless wait, where a time-out in milliseconds is asked for. */
#define VORN_INFINITE ((uint32_t)0xFFFFFFFF)

/**
 * A calendar time. The fields have the order and meaning of the system's SYSTEMTIME. File times are UTC.
 */
typedef struct VornTime {
    uint16_t year;         /* four digits */
    uint16_t month;        /* 1 to 12 */
    uint16_t dayOfWeek;    /* 0 Sunday to 6; carried, never compared */
    uint16_t day;          /* 1 to 31 */
    uint16_t hour;         /* 0 to 23 */
    uint16_t minute;       /* 0 to 59 */
    uint16_t second;       /* 0 to 59 */
    uint16_t milliseconds; /* 0 to 999 */
} VornTime;

/**
 * Security for an object that a function creates. The caller owns the record and what it points to; both
 * need to live only for the call. A null VornSecurityDescriptor pointer means default security.
 */
typedef struct VornSecurityDescriptor {
    void* attributes; /* the system's SECURITY_ATTRIBUTES, or null */
} VornSecurityDescriptor;

VORN_END_C

#endif
