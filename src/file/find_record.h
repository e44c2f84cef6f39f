// find_record.h - what a search handle points to.
//
// A search looks either through a directory (search is set) or through the named streams of one file (search
// is null). All texts and nodes are made with the C allocator and owned by the record. Nothing in it is
// locked: one thread at a time uses a search.
#ifndef VORN_FILE_FIND_RECORD_H
#define VORN_FILE_FIND_RECORD_H

#include <vorn/file_find.h>

#include "core/win32.h"

#include "file/shell_path.h"
#include "file/stream_list.h"

struct VornFileFind {
    HANDLE search;           // the system's directory search; null marks a search of streams
    wchar_t* filePath;       // streams only: the file
    wchar_t* streamPattern;  // streams only
    wchar_t* prefix;         // stands before an entry's name in its path; null after a close that faulted
    wchar_t* fullName;       // handed out by VornFileFindGetFullName; null before
    uint32_t fullNameBytes;  // the size of that buffer
    vorn::detail::StreamNode* currentStream;  // streams only; in the list
    vorn::detail::StreamNode* firstStream;    // streams only
    WIN32_FIND_DATAW data;  // the current entry; of streams, their file once its times were asked for
    void* shellModule;      // as of the last request for a full name
    vorn::detail::QualifyPathFunction qualify;
};

namespace vorn::detail {

// The name of the entry at hand; it belongs to the record and changes with the next step.
inline const wchar_t* CurrentName(const VornFileFind* find) noexcept
{
    return find->search != nullptr ? find->data.cFileName : find->currentStream->name;
}

// Frees what the record owns and forgets it, the record itself excepted; may run a second time. False when
// ending the system's search faulted: it then stays in the record.
bool ReleaseSearchContents(VornFileFind* find) noexcept;

// Owns a search until it is released to its handle.
class SearchOwner {
public:
    // Starts with a zeroed record; empty when memory is exhausted.
    SearchOwner() noexcept : find_(static_cast<VornFileFind*>(std::calloc(1, sizeof(VornFileFind)))) {}
    explicit SearchOwner(VornFileFind* find) noexcept : find_(find) {}
    SearchOwner(const SearchOwner&) = delete;
    SearchOwner& operator=(const SearchOwner&) = delete;
    ~SearchOwner();

    explicit operator bool() const noexcept { return find_ != nullptr; }
    VornFileFind* operator->() const noexcept { return find_; }
    VornFileFind* Get() const noexcept { return find_; }
    [[nodiscard]] VornFileFind* Release() noexcept { return std::exchange(find_, nullptr); }

private:
    VornFileFind* find_;
};

}  // namespace vorn::detail

#endif
