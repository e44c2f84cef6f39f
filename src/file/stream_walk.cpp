#include "file/stream_walk.h"

#include "core/record.h"
#include "file/stream_header.h"
#include "file/wildcard.h"

namespace vorn::detail {

namespace {

// The system counts the bytes of a name in 16 bits, so that a longer one is none.
constexpr uint32_t kLongestNameBytes = 0xFFFE;

constexpr uint64_t kLargestStream = INT64_MAX;

bool ReadWhole(const StreamSource& source, void* buffer, uint32_t bytes) noexcept
{
    uint32_t bytesRead = 0;
    return source.read(source.context, buffer, bytes, &bytesRead) && bytesRead == bytes;
}

bool ReadHeader(const StreamSource& source, StreamHeader* header) noexcept
{
    uint8_t bytes[kStreamHeaderBytes] = {};
    return ReadWhole(source, bytes, sizeof(bytes)) && ParseStreamHeader(bytes, sizeof(bytes), header);
}

// A stream of size 0 needs no skip.
bool SkipData(const StreamSource& source, uint64_t bytes) noexcept
{
    if (bytes == 0) return true;
    if (bytes > kLargestStream) return false;
    uint64_t skipped = 0;
    return source.seek(source.context, bytes, &skipped) && skipped == bytes;
}

enum class NameResult { kRead, kUnreadable, kNoMemory };

// Reads the name that follows a header. A name of an odd number of bytes is no text and counts as unreadable.
NameResult ReadName(const StreamSource& source, uint32_t bytes, Buffer<wchar_t>* name) noexcept
{
    if (bytes > kLongestNameBytes || bytes % sizeof(wchar_t) != 0) return NameResult::kUnreadable;
    const size_t units = bytes / sizeof(wchar_t);
    *name = Buffer<wchar_t>(units + 1);
    if (!*name) return NameResult::kNoMemory;
    if (!ReadWhole(source, name->Get(), bytes)) return NameResult::kUnreadable;
    (*name)[units] = 0;
    return NameResult::kRead;
}

// A zero inside the name ends it here, as it does for whoever reads the name later.
bool NameMatches(const wchar_t* name, const wchar_t* pattern, size_t patternUnits) noexcept
{
    if (*name == L':') ++name;
    size_t units = 0;
    while (name[units] != 0) ++units;
    return WildcardMatches(pattern, patternUnits, name, units);
}

bool AppendStream(Buffer<wchar_t> name, uint64_t size, StreamList* list) noexcept
{
    Record<StreamNode> node;
    if (!node) return false;
    node->name = name.Release();
    node->size = size;
    list->Append(node.Release());
    return true;
}

}  // namespace

VornStatus FindStreams(const StreamSource& source, const wchar_t* pattern, size_t patternUnits,
                       StreamList* list) noexcept
{
    StreamHeader header;
    if (!ReadHeader(source, &header)) return VORN_E_READ;
    do {
        if (header.nameBytes != 0) {
            Buffer<wchar_t> name;
            const NameResult result = ReadName(source, header.nameBytes, &name);
            if (result == NameResult::kNoMemory) return VORN_E_NO_MEMORY;
            if (result == NameResult::kUnreadable) break;
            if (NameMatches(name.Get(), pattern, patternUnits) &&
                !AppendStream(std::move(name), header.dataBytes, list)) {
                return VORN_E_NO_MEMORY;
            }
        }
    } while (SkipData(source, header.dataBytes) && ReadHeader(source, &header));
    return list->First() != nullptr ? VORN_OK : VORN_E_NOT_AVAILABLE;
}

}  // namespace vorn::detail
