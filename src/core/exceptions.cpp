#include <vorn/exceptions.hpp>

#include <cstdlib>
#include <cstring>

namespace vorn {

namespace {

// A copy made with the C allocator; null for a null text and when memory is exhausted.
char* CopyMessage(const char* text) noexcept
{
    if (text == nullptr) return nullptr;
    const size_t size = std::strlen(text) + 1;
    char* copy = static_cast<char*>(std::malloc(size));
    if (copy != nullptr) std::memcpy(copy, text, size);
    return copy;
}

}  // namespace

Exception::Exception(const char* message) noexcept : message_(CopyMessage(message)) {}

Exception::Exception(const Exception& other) noexcept : message_(CopyMessage(other.What())) {}

Exception& Exception::operator=(const Exception& other) noexcept
{
    char* const copy = CopyMessage(other.What());  // first: it may be this message that the other one shows
    std::free(message_);
    message_ = copy;
    return *this;
}

Exception::~Exception()
{
    std::free(message_);
    message_ = nullptr;
}

const char* Exception::What() const
{
    return message_;
}

Waitable::~Waitable() = default;
Runnable::~Runnable() = default;
Lockable::~Lockable() = default;
IStream::~IStream() = default;
OStream::~OStream() = default;
Countable::~Countable() = default;

void Countable::AddRef() const noexcept
{
    count_.fetch_add(1);
}

void Countable::Release() const
{
    if (count_.fetch_sub(1) == 1) delete this;
}

}  // namespace vorn
