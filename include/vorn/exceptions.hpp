// exceptions.hpp - the exception classes of the class layer, and the small abstract bases.
//
// Exceptions own a copy of their message, made with the C allocator; where that allocation fails the
// message is null and the exception is thrown all the same. They do not derive from std::exception.
#ifndef VORN_EXCEPTIONS_HPP
#define VORN_EXCEPTIONS_HPP

#include <vorn/types.h>

#include <atomic>

namespace vorn {

/// Root of every exception that the class layer throws.
class VORN_API Exception {
public:
    /// Keeps a copy of `message`; a null message stays null.
    Exception(const char* message = "Exception") noexcept;
    Exception(const Exception& other) noexcept;
    Exception& operator=(const Exception& other) noexcept;
    virtual ~Exception();

    /// The message, owned by the exception; null when it was made with null or memory ran out.
    virtual const char* What() const;

private:
    char* message_;
};

class VORN_API RuntimeError : public Exception {
public:
    RuntimeError(const char* message = "Runtime error") noexcept : Exception(message) {}
};

class VORN_API LogicError : public Exception {
public:
    LogicError(const char* message = "Logic error") noexcept : Exception(message) {}
};

class VORN_API InvalidArgument : public LogicError {
public:
    InvalidArgument(const char* message = "Invalid argument") noexcept : LogicError(message) {}
};

class VORN_API LengthError : public LogicError {
public:
    LengthError(const char* message = "Length error") noexcept : LogicError(message) {}
};

class VORN_API OutOfRange : public LogicError {
public:
    OutOfRange(const char* message = "Out of range") noexcept : LogicError(message) {}
};

class VORN_API LockError : public LogicError {
public:
    LockError(const char* message = "Lock error") noexcept : LogicError(message) {}
};

class VORN_API OverflowError : public RuntimeError {
public:
    OverflowError(const char* message = "Overflow error") noexcept : RuntimeError(message) {}
};

class VORN_API UnderflowError : public RuntimeError {
public:
    UnderflowError(const char* message = "Underflow error") noexcept : RuntimeError(message) {}
};

class VORN_API RangeError : public RuntimeError {
public:
    RangeError(const char* message = "Range error") noexcept : RuntimeError(message) {}
};

class VORN_API BadAlloc : public Exception {
public:
    BadAlloc(const char* message = "Bad allocation") noexcept : Exception(message) {}
};

class VORN_API SyncError : public Exception {
public:
    // Deliberate: the message is spelled as clients have always seen it.
    SyncError(const char* message = "Syncronization error") noexcept : Exception(message) {}
};

class VORN_API NotImplementedError : public Exception {
public:
    NotImplementedError(const char* message = "Not implemented") noexcept : Exception(message) {}
};

/// Something a thread can wait for.
class VORN_API Waitable {
public:
    Waitable() = default;
    virtual ~Waitable();
    /// Returns when the object is ready.
    virtual void Wait() = 0;
};

/// Something a thread can run.
class VORN_API Runnable {
public:
    Runnable() = default;
    virtual ~Runnable();
    /// Does the work.
    virtual void Run() = 0;
    /// Asks a running Run to return soon; may be called from another thread.
    virtual void Stop() = 0;
};

/// Something that one thread at a time can hold.
class VORN_API Lockable {
public:
    Lockable() = default;
    virtual ~Lockable();
    virtual void Lock() = 0;
    virtual bool TryLock() = 0;
    virtual void Unlock() = 0;
};

/// A source of bytes.
class VORN_API IStream {
public:
    IStream() = default;
    virtual ~IStream();
    /// Reads up to `size` bytes and returns how many were read; 0 at the end.
    virtual size_t Read(void* buffer, size_t size) = 0;
};

/// A sink of bytes.
class VORN_API OStream {
public:
    OStream() = default;
    virtual ~OStream();
    /// Writes up to `size` bytes and returns how many were written.
    virtual size_t Write(const void* buffer, size_t size) = 0;
};

/// Base that forbids copying.
class NonCopyable {
public:
    NonCopyable(const NonCopyable&) = delete;
    NonCopyable& operator=(const NonCopyable&) = delete;

protected:
    NonCopyable() = default;
    ~NonCopyable() = default;
};

/// Base that counts references; the count is 1 after construction. AddRef and Release may be called
/// from any thread.
class VORN_API Countable {
public:
    void AddRef() const noexcept;
    /// Gives up one reference; the call that gives up the last deletes the object.
    void Release() const;

protected:
    Countable() noexcept : count_(1) {}
    // A copy is a new object with one reference of its own.
    Countable(const Countable&) noexcept : count_(1) {}
    Countable& operator=(const Countable&) noexcept { return *this; }
    virtual ~Countable();

private:
    mutable std::atomic<uint32_t> count_;
};

}  // namespace vorn

#endif
