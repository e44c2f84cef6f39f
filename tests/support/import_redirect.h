// import_redirect.h - makes a loaded module call something else instead of an import, for a scope.
//
// Redirects of one import nest: the last one made is undone first, and each sees the one before it as its
// original. Not to be made or undone while other threads call the import.
#ifndef VORN_TESTS_SUPPORT_IMPORT_REDIRECT_H
#define VORN_TESTS_SUPPORT_IMPORT_REDIRECT_H

#include "core/win32.h"

#include <cstdint>

namespace vorn_test {

// The module under test, which must be loaded.
HMODULE VornModule();

// The address in `module`'s import table that holds the function imported by this name (from whichever
// module); null when it imports no such function.
void** FindImport(HMODULE module, const char* name);

class ImportRedirect {
public:
    ImportRedirect(const char* name, void* replacement, HMODULE module = VornModule());
    template <class Result, class... Arguments>
    ImportRedirect(const char* name, Result (*replacement)(Arguments...), HMODULE module = VornModule())
        : ImportRedirect(name, reinterpret_cast<void*>(replacement), module)
    {}
    ImportRedirect(const ImportRedirect&) = delete;
    ImportRedirect& operator=(const ImportRedirect&) = delete;
    ~ImportRedirect();

    // False when the module does not import the function: then nothing was redirected.
    bool Found() const { return slot_ != nullptr; }
    template <class Function>
    Function Original() const
    {
        return reinterpret_cast<Function>(original_);
    }

private:
    void** slot_;
    void* original_ = nullptr;
};

// Replaces a function by overwriting its first bytes with a jump: for entry points that are looked up by
// name instead of imported. The original cannot be called meanwhile.
class PatchedFunction {
public:
    PatchedFunction(const wchar_t* module, const char* name, void* replacement);
    template <class Result, class... Arguments>
    PatchedFunction(const wchar_t* module, const char* name, Result (*replacement)(Arguments...))
        : PatchedFunction(module, name, reinterpret_cast<void*>(replacement))
    {}
    PatchedFunction(const PatchedFunction&) = delete;
    PatchedFunction& operator=(const PatchedFunction&) = delete;
    ~PatchedFunction();

    bool Found() const { return code_ != nullptr; }

private:
    static constexpr size_t kJumpSize = 14;
    uint8_t* code_;
    uint8_t saved_[kJumpSize] = {};
};

}  // namespace vorn_test

#endif
