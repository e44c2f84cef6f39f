// guard_buffer.h - memory whose first or last byte lies flush against an inaccessible page, so that one byte
// read or written too many faults.
#ifndef VORN_TESTS_SUPPORT_GUARD_BUFFER_H
#define VORN_TESTS_SUPPORT_GUARD_BUFFER_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vorn_test {

class GuardBuffer {
public:
    enum class Flush { kEnd, kStart };

    explicit GuardBuffer(size_t size, Flush flush = Flush::kEnd);
    GuardBuffer(const GuardBuffer&) = delete;
    GuardBuffer& operator=(const GuardBuffer&) = delete;
    ~GuardBuffer();

    uint8_t* Data() const { return data_; }
    size_t Size() const { return size_; }
    template <class T>
    T* As() const
    {
        return reinterpret_cast<T*>(data_);
    }

    // A buffer of exactly the bytes given, and the same bytes as elements.
    static GuardBuffer Of(const void* bytes, size_t size, Flush flush = Flush::kEnd)
    {
        return GuardBuffer(bytes, size, flush);
    }

private:
    GuardBuffer(const void* bytes, size_t size, Flush flush) : GuardBuffer(size, flush)
    {
        if (size != 0) std::memcpy(data_, bytes, size);
    }

    size_t size_;
    size_t mapped_;
    uint8_t* base_;
    uint8_t* data_;
};

}  // namespace vorn_test

#endif
