#include <vorn/library.hpp>

#include "core/win32.h"

#include "core/registries.h"
#include "core/throw_status.h"
#include "proc/library_record.h"

namespace vorn {

namespace {

constexpr detail::ThrowRule kLoadRules[] = {
    {VORN_E_NO_MEMORY, detail::Throw<BadAlloc>, "Bad allocation"},
    {detail::kAnyStatus, detail::Throw<RuntimeError>, "Error loading library."},
};

}  // namespace

Library::Library(const UniStr& name, int flags) : library_(nullptr)
{
    const VornStatus status = VornLibraryLoad(name.U_Str(), flags, &library_);
    if (status != VORN_OK) detail::ThrowForStatus(status, kLoadRules);
}

Library::~Library()
{
    VornLibraryFree(library_);
}

UniStr Library::GetFileName()
{
    constexpr DWORD kUnits = 4096;
    wchar_t name[kUnits] = {};
    // Deliberate: the records of libraries are never registered there, so the name stays empty.
    if (detail::ModuleRecords().Contains(library_)) GetModuleFileNameW(library_->module, name, kUnits);
    return UniStr(name);
}

void* Library::GetProcAddress(const char* name) const
{
    return VornLibraryGetProcAddress(library_, name);
}

}  // namespace vorn
