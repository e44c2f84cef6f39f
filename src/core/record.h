// record.h - owns a record made with the C allocator until it is released to its handle.
#ifndef VORN_CORE_RECORD_H
#define VORN_CORE_RECORD_H

#include <cstdint>
#include <cstdlib>
#include <type_traits>
#include <utility>

namespace vorn::detail {

// Allocates a zeroed T; empty when memory is exhausted; freed unless released.
template <class T>
class Record {
    static_assert(std::is_trivially_destructible_v<T>, "records are plain structures");

public:
    Record() noexcept : record_(static_cast<T*>(std::calloc(1, sizeof(T)))) {}
    explicit Record(T* record) noexcept : record_(record) {}
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record() { std::free(record_); }

    explicit operator bool() const noexcept { return record_ != nullptr; }
    T* Get() const noexcept { return record_; }
    T* operator->() const noexcept { return record_; }
    [[nodiscard]] T* Release() noexcept { return std::exchange(record_, nullptr); }

private:
    T* record_;
};

// Owns `count` elements made with the C allocator (not zeroed); empty when memory is exhausted or the
// size would not fit.
template <class T>
class Buffer {
    static_assert(std::is_trivially_copyable_v<T>, "buffers hold plain data");

public:
    Buffer() noexcept = default;
    explicit Buffer(size_t count) noexcept
        // NOLINTNEXTLINE(bugprone-sizeof-expression): elements may be pointers
        : data_(count > SIZE_MAX / sizeof(T) ? nullptr : static_cast<T*>(std::malloc(count * sizeof(T))))
    {}
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    Buffer(Buffer&& other) noexcept : data_(std::exchange(other.data_, nullptr)) {}
    Buffer& operator=(Buffer&& other) noexcept
    {
        std::swap(data_, other.data_);
        return *this;
    }
    ~Buffer() { std::free(data_); }

    explicit operator bool() const noexcept { return data_ != nullptr; }
    T* Get() const noexcept { return data_; }
    T& operator[](size_t index) const noexcept { return data_[index]; }
    [[nodiscard]] T* Release() noexcept { return std::exchange(data_, nullptr); }

private:
    T* data_ = nullptr;
};

}  // namespace vorn::detail

#endif
