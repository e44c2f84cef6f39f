// shared_heap_fixture.h - what the tests of shared heaps begin with: a name that nobody else has, and looks
// at the two system objects behind a heap.
#ifndef VORN_TESTS_HEAP_SHARED_HEAP_FIXTURE_H
#define VORN_TESTS_HEAP_SHARED_HEAP_FIXTURE_H

#include <vorn/vorn.h>

#include "core/win32.h"

#include "heap/layout_checker.h"
#include "support/child_process.h"

#include <gtest/gtest.h>
#include <string>

namespace heap_test {

constexpr uint64_t kSize = 65536;

inline uint8_t* Base(VornHeap* heap)
{
    return static_cast<uint8_t*>(VornHeapGetBasePtr(heap));
}

inline std::wstring GlobalLock(const std::wstring& name)
{
    return L"Global\\" + name + L"_SEM";
}

inline bool IsMapped(const void* address)
{
    MEMORY_BASIC_INFORMATION information;
    VirtualQuery(address, &information, sizeof information);
    return information.State == MEM_COMMIT;
}

class SharedHeap : public testing::Test {
protected:
    SharedHeap() : name(vorn_test::UniqueName(L"shared")) { VornInitialize(); }
    ~SharedHeap() override { VornTerminate(); }

    VornHeap* Open(uint64_t size = kSize, uint32_t userHeaderSize = 0)
    {
        VornHeap* heap = VornHeapCreateShared(size, name.c_str(), userHeaderSize, nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_OK);
        return heap;
    }

    std::wstring name;
};

}  // namespace heap_test

#endif
