// backup_reader.h - a file's backup data, as the system hands it out.
#ifndef VORN_FILE_BACKUP_READER_H
#define VORN_FILE_BACKUP_READER_H

#include <vorn/status.h>

#include "file/stream_list.h"

#include <cstddef>

namespace vorn::detail {

// Looks the system's entry points for backup data up, once per process. VORN_OK; the status of the failed
// look-up's system error. Any thread may call this.
VornStatus FindBackupFunctions() noexcept;

// Appends the named streams of a file that match the pattern to `list`. VORN_OK, or a status of FindStreams
// or of the system's error when the file cannot be opened. FindBackupFunctions has succeeded before.
VornStatus ListFileStreams(const wchar_t* filePath, const wchar_t* pattern, size_t patternUnits,
                           StreamList* list) noexcept;

}  // namespace vorn::detail

#endif
