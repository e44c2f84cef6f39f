// throw_status.h - the one mechanism that turns a status into a class's exception.
//
// Each class keeps its statuses and messages as a table and throws with ThrowForStatus:
//
//     constexpr ThrowRule kCreateRules[] = {
//         {VORN_E_NO_MEMORY, Throw<BadAlloc>, "Bad allocation"},
//         {kAnyStatus, Throw<RuntimeError>, "Error creating semaphore."},
//     };
//     if (status != VORN_OK) ThrowForStatus(status, kCreateRules);
#ifndef VORN_CORE_THROW_STATUS_H
#define VORN_CORE_THROW_STATUS_H

#include <vorn/exceptions.hpp>
#include <vorn/status.h>

#include <cstddef>

namespace vorn::detail {

constexpr VornStatus kAnyStatus = 0xFFFFFFFF;

struct ThrowRule {
    VornStatus status;  // kAnyStatus in the last rule of each table
    void (*raise)(const char* message);
    const char* message;
};

template <class E>
[[noreturn]] void Throw(const char* message)
{
    throw E(message);
}

// Throws what the first rule for `status` says. The last rule stands for every other status.
template <size_t N>
[[noreturn]] void ThrowForStatus(VornStatus status, const ThrowRule (&rules)[N])
{
    for (size_t i = 0; i + 1 < N; ++i) {
        if (rules[i].status == status) rules[i].raise(rules[i].message);
    }
    rules[N - 1].raise(rules[N - 1].message);
    __builtin_unreachable();
}

}  // namespace vorn::detail

#endif
