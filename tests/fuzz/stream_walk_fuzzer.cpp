// Feeds arbitrary bytes to the walk over a file's backup data. The first byte says how the source behaves,
// the second how many units of pattern follow; the rest is the data.

#include "file/stream_walk.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace vorn::detail;

namespace {

struct Source {
    const uint8_t* data;
    size_t size;
    uint8_t shortReadAt;
    uint8_t reads;
};

bool Read(void* context, void* buffer, uint32_t bytes, uint32_t* bytesRead)
{
    auto* source = static_cast<Source*>(context);
    *bytesRead = static_cast<uint32_t>(std::min<size_t>(bytes, source->size));
    if (++source->reads == source->shortReadAt) *bytesRead /= 2;
    if (*bytesRead != 0) std::memcpy(buffer, source->data, *bytesRead);
    source->data += *bytesRead;
    source->size -= *bytesRead;
    return true;
}

bool Seek(void* context, uint64_t bytes, uint64_t* bytesSkipped)
{
    auto* source = static_cast<Source*>(context);
    *bytesSkipped = std::min<uint64_t>(bytes, source->size);
    source->data += *bytesSkipped;
    source->size -= static_cast<size_t>(*bytesSkipped);
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2) return 0;
    const size_t patternUnits = std::min<size_t>(data[1], (size - 2) / sizeof(wchar_t));
    std::vector<wchar_t> pattern(patternUnits);
    if (patternUnits != 0) std::memcpy(pattern.data(), data + 2, patternUnits * sizeof(wchar_t));
    const size_t used = 2 + patternUnits * sizeof(wchar_t);
    Source source = {data + used, size - used, data[0], 0};

    StreamList list;
    const VornStatus status = FindStreams({&source, Read, Seek}, pattern.data(), pattern.size(), &list);
    if ((status == VORN_OK) != (list.First() != nullptr) && status != VORN_E_NO_MEMORY) std::abort();
    // Every name listed is whole and can be found again.
    for (const StreamNode* node = list.First(); node != nullptr; node = node->next) {
        if (!list.Contains(node->name)) std::abort();
    }
    return 0;
}
