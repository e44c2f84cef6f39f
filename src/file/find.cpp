// find.cpp - the exported search functions.

#include <vorn/file_find.h>

#include "core/last_error.h"
#include "core/registries.h"
#include "core/utf16.h"
#include "file/file_times.h"
#include "file/find_directory.h"
#include "file/find_record.h"
#include "file/find_streams.h"
#include "file/found_entry.h"
#include "file/path_text.h"

using namespace vorn::detail;

namespace {

constexpr size_t kNoBackslash = SIZE_MAX;

size_t LastBackslash(const wchar_t* text) noexcept
{
    size_t index = LengthUnits(text);
    while (index-- != 0) {
        if (text[index] == L'\\') return index;
    }
    return kNoBackslash;
}

bool IsExistingFile(const wchar_t* path) noexcept
{
    const DWORD attributes = GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

// Decides by the text before the last backslash what is searched, and starts that search.
VornStatus OpenSearch(const wchar_t* pattern, VornFileFind** out) noexcept
{
    Buffer<wchar_t> prefix;
    const size_t backslash = LastBackslash(pattern);
    if (backslash == kNoBackslash) {
        const VornStatus status = CurrentDirectoryPrefix(&prefix);
        if (status != VORN_OK) return status;
        return OpenDirectorySearch(pattern, std::move(prefix), out);
    }
    prefix = Concatenate(pattern, backslash + 1, L"", 0);
    if (!prefix) return VORN_E_NO_MEMORY;
    prefix[backslash] = 0;
    if (IsExistingFile(prefix.Get())) {
        return OpenStreamSearch(pattern, backslash, pattern + backslash + 1, out);
    }
    prefix[backslash] = L'\\';
    return OpenDirectorySearch(pattern, std::move(prefix), out);
}

}  // namespace

extern "C" VornFileFind* VornFileFindFirst(const wchar_t* pattern, const wchar_t** name)
{
    if (pattern == nullptr || name == nullptr) return Fail<VornFileFind>(VORN_E_INVALID_ARG);
    VornFileFind* opened = nullptr;
    const VornStatus status = OpenSearch(pattern, &opened);
    if (status != VORN_OK) return Fail<VornFileFind>(status);
    SearchOwner find(opened);
    Registration entry(FileSearches(), find.Get());
    if (!entry) return Fail<VornFileFind>(VORN_E_NO_MEMORY);
    if (find->search != nullptr && IsDotEntry(find->data.cFileName) && !NextDirectoryEntry(find.Get())) {
        return Fail<VornFileFind>(VORN_E_NOT_FOUND);
    }
    entry.Keep();
    *name = CurrentName(find.Get());
    return Succeed(find.Release());
}

extern "C" VornStatus VornFileFindNext(VornFileFind* find, const wchar_t** name)
{
    if (name == nullptr || !FileSearches().Contains(find)) return VORN_E_INVALID_ARG;
    VornStatus status = VORN_E_NO_MORE;
    if (find->search == nullptr) {
        status = NextStream(find);
    } else if (NextDirectoryEntry(find)) {
        status = VORN_OK;
    }
    *name = status == VORN_OK ? CurrentName(find) : nullptr;
    return status;
}

extern "C" uint64_t VornFileFindGetSize(VornFileFind* find)
{
    if (!FileSearches().Contains(find)) return UINT64_MAX;
    if (find->search == nullptr) return find->currentStream->size;
    return static_cast<uint64_t>(find->data.nFileSizeHigh) << 32 | find->data.nFileSizeLow;
}

extern "C" VornStatus VornFileFindGetTime(VornFileFind* find, VornTime* accessTime, VornTime* modifyTime)
{
    if (!FileSearches().Contains(find)) return VORN_E_INVALID_ARG;
    // A stream has the times of its file.
    if (find->search == nullptr && FindEntry(find->filePath, &find->data) != VORN_OK) return VORN_E_READ;
    FileTimeToVornTime(find->data.ftLastAccessTime, accessTime);
    FileTimeToVornTime(find->data.ftLastWriteTime, modifyTime);
    return VORN_OK;
}

extern "C" VornStatus VornFileFindClose(VornFileFind* find)
{
    if (!FileSearches().Contains(find)) return VORN_E_INVALID_ARG;
    if (!ReleaseSearchContents(find)) return VORN_E_SYSTEM;
    if (FileSearches().Unregister(find)) std::free(find);
    return VORN_OK;
}
