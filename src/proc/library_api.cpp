// library_api.cpp - dynamic libraries.

#include <vorn/library.h>

#include "core/win32.h"

#include "core/last_error.h"
#include "core/record.h"
#include "proc/library_record.h"

#include <cstdlib>

using namespace vorn::detail;

extern "C" VornStatus VornLibraryLoad(const wchar_t* name, int32_t, VornLibrary** library)
{
    if (library == nullptr) return VORN_E_INVALID_ARG;
    const HMODULE module = LoadLibraryW(name);
    if (module == nullptr) return VORN_E_SYSTEM;
    Record<VornLibrary> record;
    if (!record) return VORN_E_NO_MEMORY;  // Deliberate: the module stays loaded.
    record->module = module;
    *library = record.Release();
    return VORN_OK;
}

extern "C" void VornLibraryFree(VornLibrary* library)
{
    if (library == nullptr) return;
    FreeLibrary(library->module);
    std::free(library);
}

extern "C" void* VornLibraryGetProcAddress(VornLibrary* library, const char* name)
{
    if (library == nullptr || name == nullptr) return Fail<void>(VORN_E_INVALID_ARG);
    void* address = reinterpret_cast<void*>(GetProcAddress(library->module, name));
    return address == nullptr ? Fail<void>(VORN_E_SYSTEM) : Succeed(address);
}
