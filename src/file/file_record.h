// file_record.h - the record behind an open file's handle, and how it is made.
//
// A VornFile* from a client is looked up in Files() before its record is touched. Nothing in a record is
// locked, except the chain of regions (region.cpp): the end-of-file flag belongs to whoever uses the handle.
#ifndef VORN_FILE_FILE_RECORD_H
#define VORN_FILE_FILE_RECORD_H

#include <vorn/file.h>

#include "core/win32.h"

#include <atomic>

namespace vorn::detail {

struct Region;

// Makes the record of a system handle, registers it and gives it the handle, which is then the record's to
// close. Sets the last error: VORN_OK, or VORN_E_NO_MEMORY with null returned.
// Deliberate: when the record itself finds no memory, the system handle stays open, out of reach. When only
// its registration fails, the system handle is closed.
VornFile* OpenRecord(HANDLE native, VornFileAccessMode access) noexcept;

}  // namespace vorn::detail

struct VornFile {
    HANDLE native;
    uint8_t endOfFile;          // 1 after a read that delivered fewer bytes than asked for
    VornFileAccessMode access;  // as opened
    // Head of the chain of this file's regions. Changes under the region lock only.
    std::atomic<vorn::detail::Region*> firstRegion;
};

#endif
