// stream_list.h - the named streams of one file, in the order in which they were found.
#ifndef VORN_FILE_STREAM_LIST_H
#define VORN_FILE_STREAM_LIST_H

#include <cstdint>
#include <utility>

namespace vorn::detail {

// Made with the C allocator, the name too.
struct StreamNode {
    StreamNode* next;
    wchar_t* name;  // as the backup data gives it, leading colon and ":$DATA" included; zero-terminated
    uint64_t size;  // bytes
};

// Frees a node with its name; null does nothing.
void FreeStream(StreamNode* node) noexcept;

// Owns a chain of nodes until it is released.
class StreamList {
public:
    StreamList() noexcept = default;
    explicit StreamList(StreamNode* first) noexcept : first_(first) {}
    StreamList(const StreamList&) = delete;
    StreamList& operator=(const StreamList&) = delete;
    ~StreamList();

    StreamNode* First() const noexcept { return first_; }
    // True when a node has exactly this name.
    bool Contains(const wchar_t* name) const noexcept;
    // Takes the node over, as the last one.
    void Append(StreamNode* node) noexcept;
    // Gives the first node away; null when the list is empty.
    [[nodiscard]] StreamNode* TakeFirst() noexcept;
    // Gives the node after `node`, which is in the list, away; null when `node` is the last.
    [[nodiscard]] static StreamNode* TakeAfter(StreamNode* node) noexcept;
    [[nodiscard]] StreamNode* Release() noexcept { return std::exchange(first_, nullptr); }

private:
    StreamNode* first_ = nullptr;
};

}  // namespace vorn::detail

#endif
