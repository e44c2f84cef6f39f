#include "file/find_streams.h"

#include "core/kernel_handle.h"
#include "core/utf16.h"
#include "file/backup_reader.h"
#include "file/path_text.h"

#include <cstring>

namespace vorn::detail {

namespace {

constexpr wchar_t kStreamType[] = L":$DATA";
constexpr size_t kStreamTypeUnits = 6;

// Deliberate: a pattern of up to 6 units stays as it is, so that a short name without wildcards finds
// nothing.
Buffer<wchar_t> CompletePattern(const wchar_t* pattern) noexcept
{
    const size_t units = LengthUnits(pattern);
    const bool complete =
        units <= kStreamTypeUnits ||
        std::memcmp(pattern + units - kStreamTypeUnits, kStreamType, kStreamTypeUnits * sizeof(wchar_t)) == 0;
    return Concatenate(pattern, units, kStreamType, complete ? 0 : kStreamTypeUnits);
}

// What stands before a stream's name in its full name: the directory part of the file's path, or the current
// directory and the file when its path has no directory part.
VornStatus StreamPrefix(const wchar_t* filePath, size_t fileUnits, Buffer<wchar_t>* prefix) noexcept
{
    size_t directoryUnits = fileUnits;
    while (directoryUnits != 0 && filePath[directoryUnits - 1] != L'\\') --directoryUnits;
    if (directoryUnits != 0) {
        *prefix = Concatenate(filePath, directoryUnits, L"", 0);
    } else {
        Buffer<wchar_t> current;
        const VornStatus status = CurrentDirectoryPrefix(&current);
        if (status != VORN_OK) return status;
        *prefix = Concatenate(current.Get(), LengthUnits(current.Get()), filePath, fileUnits);
    }
    return *prefix ? VORN_OK : VORN_E_NO_MEMORY;
}

enum class OpenTest { kOpens, kDoesNotOpen, kNoMemory };

OpenTest TryStream(const wchar_t* filePath, const wchar_t* streamName) noexcept
{
    const Buffer<wchar_t> path =
        Concatenate(filePath, LengthUnits(filePath), streamName, LengthUnits(streamName));
    if (!path) return OpenTest::kNoMemory;
    const KernelHandle stream(CreateFileW(path.Get(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return stream ? OpenTest::kOpens : OpenTest::kDoesNotOpen;
}

// Moves on to the next stream in the list that can be opened. Streams that cannot leave the list for
// `refused`. VORN_E_NO_MORE leaves the current stream the last one.
VornStatus NextListedStream(VornFileFind* find, StreamList* refused) noexcept
{
    while (StreamNode* next = find->currentStream->next) {
        switch (TryStream(find->filePath, next->name)) {
            case OpenTest::kNoMemory:
                return VORN_E_NO_MEMORY;
            case OpenTest::kOpens:
                find->currentStream = next;
                return VORN_OK;
            case OpenTest::kDoesNotOpen:
                refused->Append(StreamList::TakeAfter(find->currentStream));
        }
    }
    return VORN_E_NO_MORE;
}

// Appends the file's streams that are neither in the search's list nor in `refused`; true when there are any.
bool AppendNewStreams(VornFileFind* find, const StreamList& refused) noexcept
{
    StreamList fresh;
    if (ListFileStreams(find->filePath, find->streamPattern, LengthUnits(find->streamPattern), &fresh) !=
        VORN_OK) {
        return false;
    }
    StreamList known(find->firstStream);
    bool appended = false;
    while (StreamNode* node = fresh.TakeFirst()) {
        if (known.Contains(node->name) || refused.Contains(node->name)) {
            FreeStream(node);
        } else {
            known.Append(node);
            appended = true;
        }
    }
    find->firstStream = known.Release();
    return appended;
}

}  // namespace

VornStatus OpenStreamSearch(const wchar_t* path, size_t fileUnits, const wchar_t* pattern,
                            VornFileFind** out) noexcept
{
    VornStatus status = FindBackupFunctions();
    if (status != VORN_OK) return status;
    Buffer<wchar_t> filePath = Concatenate(path, fileUnits, L"", 0);
    Buffer<wchar_t> streamPattern = CompletePattern(pattern);
    if (!filePath || !streamPattern) return VORN_E_NO_MEMORY;
    Buffer<wchar_t> prefix;
    status = StreamPrefix(path, fileUnits, &prefix);
    if (status != VORN_OK) return status;
    StreamList streams;
    status = ListFileStreams(filePath.Get(), streamPattern.Get(), LengthUnits(streamPattern.Get()), &streams);
    if (status != VORN_OK) return status;
    SearchOwner find;
    if (!find) return VORN_E_NO_MEMORY;
    find->filePath = filePath.Release();
    find->streamPattern = streamPattern.Release();
    find->prefix = prefix.Release();
    find->firstStream = find->currentStream = streams.Release();
    *out = find.Release();
    return VORN_OK;
}

VornStatus NextStream(VornFileFind* find) noexcept
{
    // A refused stream is not tried again within this call, however often the file is looked at.
    StreamList refused;
    for (;;) {
        const VornStatus status = NextListedStream(find, &refused);
        if (status != VORN_E_NO_MORE) return status;
        if (!AppendNewStreams(find, refused)) return VORN_E_NO_MORE;
    }
}

}  // namespace vorn::detail
