#include "support/guard_buffer.h"

#include <cstdlib>

#ifdef _WIN32
#include "core/win32.h"
#else
#include <sys/mman.h>
#endif

namespace vorn_test {

namespace {

constexpr size_t kPage = 4096;

#ifdef _WIN32
uint8_t* MapBetweenGuards(size_t mapped)
{
    auto* base = static_cast<uint8_t*>(VirtualAlloc(nullptr, mapped + 2 * kPage, MEM_RESERVE, PAGE_NOACCESS));
    if (base == nullptr || VirtualAlloc(base + kPage, mapped, MEM_COMMIT, PAGE_READWRITE) == nullptr)
        std::abort();
    return base;
}

void Unmap(uint8_t* base, size_t)
{
    VirtualFree(base, 0, MEM_RELEASE);
}
#else
uint8_t* MapBetweenGuards(size_t mapped)
{
    void* base = mmap(nullptr, mapped + 2 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) std::abort();
    if (mprotect(static_cast<uint8_t*>(base) + kPage, mapped, PROT_READ | PROT_WRITE) != 0) std::abort();
    return static_cast<uint8_t*>(base);
}

void Unmap(uint8_t* base, size_t mapped)
{
    munmap(base, mapped + 2 * kPage);
}
#endif

}  // namespace

GuardBuffer::GuardBuffer(size_t size, Flush flush)
    : size_(size),
      mapped_(size == 0 ? kPage : (size + kPage - 1) / kPage * kPage),
      base_(MapBetweenGuards(mapped_)),
      data_(base_ + kPage + (flush == Flush::kEnd ? mapped_ - size : 0))
{}

GuardBuffer::~GuardBuffer()
{
    Unmap(base_, mapped_);
}

}  // namespace vorn_test
