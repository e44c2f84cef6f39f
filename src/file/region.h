// region.h - stretches of files and of paging memory that are mapped into memory.
//
// Every mapped region stands in the process-wide region map under its view's address; a region of a file is
// also chained to the file's record. Both change only under the region lock, which is held for neither a
// system call nor a registry's mutex. A region leaves map and chain before its view is unmapped: from then
// on another thread may be given the same address.
#ifndef VORN_FILE_REGION_H
#define VORN_FILE_REGION_H

#include <vorn/file.h>

#include "core/win32.h"

namespace vorn::detail {

struct Region {
    Region* previous;  // of the same file; null for the first
    Region* next;      // of the same file; null for the last
    VornFile* file;    // null for paging memory
    HANDLE mapping;
    void* view;            // where the view starts; the key in the region map
    Region* nextInBucket;  // the region map's
};

// VornFileMapRegion with security for the mapping object that is created; null for default security.
// Sets the last error on every path. Throws vorn::LockError as VornFileMapRegion does.
void* MapRegion(VornFile* file, uint64_t offset, uint64_t length, const wchar_t* name, void* address,
                const VornSecurityDescriptor* security);

// Releases every region of a file. Throws vorn::LockError; the regions left then are still the file's.
void ReleaseRegions(VornFile* file);

}  // namespace vorn::detail

#endif
