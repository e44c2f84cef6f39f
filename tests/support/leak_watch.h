// leak_watch.h - watches what the module leaves behind.
//
//     WarmUp();                       // first use may create what lives as long as the module
//     LeakWatch watch;
//     ...the case...
//     EXPECT_EQ(watch.Leaks(), "");   // names what was left: allocations, kernel handles
#ifndef VORN_TESTS_SUPPORT_LEAK_WATCH_H
#define VORN_TESTS_SUPPORT_LEAK_WATCH_H

#include "support/import_redirect.h"

#include <memory>
#include <string>

namespace vorn_test {

// The number that the system gives to the next kernel handle of this process. It grows when handles leak.
uintptr_t FreshHandleNumber();

// Counts allocations that the module makes through its imports and frees again, from construction on.
// Redirects the module's allocation functions: not to be made or ended while other threads are in the module.
class AllocationWatch {
public:
    AllocationWatch();
    AllocationWatch(const AllocationWatch&) = delete;
    AllocationWatch& operator=(const AllocationWatch&) = delete;
    ~AllocationWatch();

    // Blocks allocated since construction and not freed yet.
    size_t Live() const;
    // All allocations since construction.
    size_t Total() const;

private:
    struct Redirects;
    std::unique_ptr<Redirects> redirects_;
};

// Allocations and kernel handles together.
class LeakWatch {
public:
    LeakWatch();

    size_t LiveAllocations() const { return allocations_.Live(); }
    // Empty when nothing was left behind since construction, else a sentence that says what.
    std::string Leaks() const;

private:
    uintptr_t freshHandle_;
    AllocationWatch allocations_;
};

}  // namespace vorn_test

#endif
