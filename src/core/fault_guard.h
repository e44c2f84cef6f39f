// fault_guard.h - runs a call so that a machine fault raised inside it is reported instead of ending the
// process.
//
//     bool done = RunGuarded([&] { ok = ReadFile(native, buffer, count, &read, nullptr); });
//
// A fault is what the processor or the kernel raises: an access violation, an in-page error, an invalid
// handle closed under a debugger. The stack is then unwound to RunGuarded, which gives false. C++ exceptions
// and every other exception that a program raises itself pass through untouched, and so does the exhaustion
// of the stack, after which nothing on this thread can be relied upon.
// Without a fault the guard costs two calls and no memory access: nothing is set up or taken down.
#ifndef VORN_CORE_FAULT_GUARD_H
#define VORN_CORE_FAULT_GUARD_H

#include <memory>
#include <type_traits>

namespace vorn::detail {

// Calls function(argument); false when a machine fault ended the call. Use RunGuarded.
extern "C" bool VornGuardedCall(void (*function)(void*), void* argument);

// Calls `function`, whose result is ignored; false when a machine fault ended the call. It must own nothing
// that needs a destructor: after a fault none is run. It should do no more than the one call that may fault,
// since the compiler may reorder plain stores around a fault that it does not foresee.
template <class Function>
bool RunGuarded(Function&& function)
{
    using Plain = std::remove_reference_t<Function>;
    return VornGuardedCall([](void* f) { (*static_cast<Plain*>(f))(); }, std::addressof(function));
}

}  // namespace vorn::detail

#endif
