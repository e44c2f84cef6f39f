// fault_guard.h - runs a call so that a machine fault raised inside it is reported instead of ending the
// process.
//
//     const GuardedResult result = CallGuarded(&ReadFile, native, buffer, count, &read, nullptr);
//     if (!result.ended || !result.value) return VORN_E_READ;
//
// A fault is what the processor or the kernel raises: an access violation, an in-page error, an invalid
// handle closed under a debugger. The stack is then unwound to the guard. C++ exceptions and every other
// exception that a program raises itself pass through untouched, and so does the exhaustion of the stack,
// after which nothing on this thread can be relied upon.
// Without a fault CallGuarded costs one call and a handful of moves: nothing is set up or taken down.
#ifndef VORN_CORE_FAULT_GUARD_H
#define VORN_CORE_FAULT_GUARD_H

#include <cstdint>
#include <memory>
#include <type_traits>

namespace vorn::detail {

// Calls function(a, b, c, d, e) and gives the low half of its result, or kGuardedCallFaulted. Use the
// templates below.
extern "C" uint64_t VornGuardedCall(void* function, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d,
                                    uintptr_t e);
constexpr uint64_t kGuardedCallFaulted = uint64_t{1} << 32;

struct GuardedResult {
    bool ended;     // false when a machine fault ended the call
    int32_t value;  // what the function returned; 0 after a fault
};

// Any argument of a system function, as the register that carries it.
template <class T>
uintptr_t GuardedArgument(T argument) noexcept
{
    // NOLINTNEXTLINE(bugprone-sizeof-expression): the size of the pointer itself is meant.
    static_assert(sizeof(T) <= sizeof(uintptr_t) && (std::is_pointer_v<T> || std::is_integral_v<T>));
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<uintptr_t>(argument);
    } else {
        return static_cast<uintptr_t>(argument);
    }
}

// Calls a system function that returns a BOOL, with up to five arguments.
template <class... Parameters>
GuardedResult CallGuarded(int (*function)(Parameters...), std::common_type_t<Parameters>... arguments)
{
    static_assert(sizeof...(Parameters) <= 5);
    const uintptr_t registers[5] = {GuardedArgument<Parameters>(arguments)...};
    const uint64_t result = VornGuardedCall(reinterpret_cast<void*>(function), registers[0], registers[1],
                                            registers[2], registers[3], registers[4]);
    return {result != kGuardedCallFaulted, static_cast<int32_t>(result)};
}

// Runs `function`, whose result is ignored; false when a machine fault ended it. It must own nothing that
// needs a destructor: after a fault none is run. It should do no more than the one thing that may fault,
// since the compiler may reorder plain stores around a fault that it does not foresee.
template <class Function>
bool RunGuarded(Function&& function)
{
    using Plain = std::remove_reference_t<Function>;
    int (*run)(void*) = [](void* f) {
        (*static_cast<Plain*>(f))();
        return 0;
    };
    return CallGuarded(run, std::addressof(function)).ended;
}

}  // namespace vorn::detail

#endif
