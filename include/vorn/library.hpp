// library.hpp - a loaded module as an object.
#ifndef VORN_LIBRARY_HPP
#define VORN_LIBRARY_HPP

#include <vorn/exceptions.hpp>
#include <vorn/library.h>
#include <vorn/unistr.hpp>

namespace vorn {

/// A module that stays loaded as long as the object lives. One thread may use it while others do.
class VORN_API Library : public NonCopyable {
public:
    /// Loads the module; `flags` has no effect. Throws RuntimeError "Error loading library." when it cannot
    /// be loaded, BadAlloc "Bad allocation" when memory is exhausted.
    Library(const UniStr& name, int flags = 0);
    ~Library();

    /// The empty string. Deliberate: file names are known only of modules that a module iterator lends.
    UniStr GetFileName();

    /// The address of what the module exports by this name; null when there is no such symbol.
    void* GetProcAddress(const char* name) const;

private:
    VornLibrary* library_;
};

}  // namespace vorn

#endif
