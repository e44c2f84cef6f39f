/*
 * library.h - dynamic libraries: loading a module, finding what it exports, unloading it.
 */
#ifndef VORN_LIBRARY_H
#define VORN_LIBRARY_H

#include <vorn/status.h>
#include <vorn/types.h>

VORN_BEGIN_C

/** One use of a loaded module. */
typedef struct VornLibrary VornLibrary;

/**
 * Loads a module by file name, searched for as the system does by default; loading counts, so a module is
 * unloaded when its last use ends.
 *
 * flags: without effect.
 * library: receives the record, which the caller releases with VornLibraryFree; left alone on failure.
 *
 * Returns VORN_OK; VORN_E_INVALID_ARG library null; VORN_E_SYSTEM the module cannot be loaded;
 * VORN_E_NO_MEMORY. Deliberate: with VORN_E_NO_MEMORY the module stays loaded. Any thread may call this.
 */
VORN_API VornStatus VornLibraryLoad(const wchar_t* name, int32_t flags, VornLibrary** library);

/**
 * Ends one use of a module; null does nothing. Addresses found in it are not to be used any more. The record
 * is not checked. Any thread may call this.
 */
VORN_API void VornLibraryFree(VornLibrary* library);

/**
 * Returns the address of what the module exports by this name, valid while the module stays loaded; null when
 * there is no such symbol. The record is not checked, save for null.
 *
 * Last error: VORN_OK; VORN_E_SYSTEM no such symbol; VORN_E_INVALID_ARG library or name null.
 * Any thread may call this.
 */
VORN_API void* VornLibraryGetProcAddress(VornLibrary* library, const char* name);

VORN_END_C

#endif
