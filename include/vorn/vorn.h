/*
 * vorn.h - the whole C interface.
 */
#ifndef VORN_VORN_H
#define VORN_VORN_H

#include <vorn/conversion.h>
#include <vorn/file.h>
#include <vorn/file_find.h>
#include <vorn/heap.h>
#include <vorn/library.h>
#include <vorn/proc.h>
#include <vorn/runtime.h>
#include <vorn/status.h>
#include <vorn/string.h>
#include <vorn/sync.h>
#include <vorn/thread.h>
#include <vorn/types.h>

#endif
