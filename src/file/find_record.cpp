#include "file/find_record.h"

#include "core/fault_guard.h"

namespace vorn::detail {

namespace {

void FreeText(wchar_t** text) noexcept
{
    std::free(std::exchange(*text, nullptr));
}

}  // namespace

bool ReleaseSearchContents(VornFileFind* find) noexcept
{
    FreeText(&find->fullName);
    find->fullNameBytes = 0;
    {
        StreamList streams(std::exchange(find->firstStream, nullptr));
    }
    find->currentStream = nullptr;
    FreeText(&find->filePath);
    FreeText(&find->streamPattern);
    FreeText(&find->prefix);
    if (find->search == nullptr) return true;
    if (!RunGuarded([find] { FindClose(find->search); })) return false;
    find->search = nullptr;
    return true;
}

SearchOwner::~SearchOwner()
{
    if (find_ == nullptr) return;
    ReleaseSearchContents(find_);
    std::free(find_);
}

}  // namespace vorn::detail
