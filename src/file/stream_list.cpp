#include "file/stream_list.h"

#include <cstdlib>

namespace vorn::detail {

namespace {

bool SameText(const wchar_t* a, const wchar_t* b) noexcept
{
    while (*a == *b) {
        if (*a == 0) return true;
        ++a;
        ++b;
    }
    return false;
}

}  // namespace

void FreeStream(StreamNode* node) noexcept
{
    if (node == nullptr) return;
    std::free(node->name);
    std::free(node);
}

StreamList::~StreamList()
{
    while (first_ != nullptr) FreeStream(TakeFirst());
}

bool StreamList::Contains(const wchar_t* name) const noexcept
{
    for (const StreamNode* node = first_; node != nullptr; node = node->next) {
        if (SameText(node->name, name)) return true;
    }
    return false;
}

void StreamList::Append(StreamNode* node) noexcept
{
    node->next = nullptr;
    StreamNode** link = &first_;
    while (*link != nullptr) link = &(*link)->next;
    *link = node;
}

StreamNode* StreamList::TakeFirst() noexcept
{
    StreamNode* node = first_;
    if (node != nullptr) first_ = std::exchange(node->next, nullptr);
    return node;
}

StreamNode* StreamList::TakeAfter(StreamNode* node) noexcept
{
    StreamNode* taken = node->next;
    if (taken != nullptr) node->next = std::exchange(taken->next, nullptr);
    return taken;
}

}  // namespace vorn::detail
