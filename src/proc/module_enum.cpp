// module_enum.cpp - the iterator over the modules that a process has loaded, and their names.

#include <vorn/proc.h>

#include "core/win32.h"

#include "core/kernel_handle.h"
#include "core/last_error.h"
#include "core/record.h"
#include "core/registries.h"
#include "proc/debug_privilege.h"
#include "proc/module_names.h"
#include "proc/ppid.h"

#include <cstdlib>
#include <psapi.h>

using namespace vorn::detail;

struct VornProcModule {
    HMODULE handle;
};

// In two registries while it lives: itself among the module iterators, `current` among the module records.
struct VornProcModuleIterator {
    uint32_t index;  // of the current module; count once the end was met
    HMODULE* modules;
    uint32_t count;
    VornProcModule current;
};

namespace {

struct ModuleList {
    Buffer<HMODULE> modules;
    uint32_t count = 0;
};

VornStatus ListModules(uint32_t pid, ModuleList* list) noexcept
{
    const DebugPrivilege privilege;
    const KernelHandle process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, pid));
    if (!process) return VORN_E_SYSTEM;
    DWORD needed = 0;
    if (!EnumProcessModules(process.Get(), nullptr, 0, &needed)) return VORN_E_SYSTEM;
    for (DWORD size = 0; size < needed;) {
        // Again when modules were loaded since the size was asked.
        size = needed;
        list->modules = Buffer<HMODULE>(size / sizeof(HMODULE));
        if (!list->modules) return VORN_E_NO_MEMORY;
        if (!EnumProcessModules(process.Get(), list->modules.Get(), size, &needed)) return VORN_E_SYSTEM;
    }
    list->count = needed / sizeof(HMODULE);
    return list->count == 0 ? VORN_E_NO_MORE : VORN_OK;
}

VornProcModuleIterator* MakeIterator(VornProcModule** first, uint32_t pid) noexcept
{
    ModuleList list;
    const VornStatus status = ListModules(pid, &list);
    if (status != VORN_OK) return Fail<VornProcModuleIterator>(status);
    Record<VornProcModuleIterator> iterator;
    if (!iterator) return Fail<VornProcModuleIterator>(VORN_E_NO_MEMORY);
    iterator->count = list.count;
    iterator->current.handle = list.modules[0];
    Registration entry(ModuleIterators(), iterator.Get());
    if (!entry || !ModuleRecords().Register(&iterator->current)) {
        return Fail<VornProcModuleIterator>(VORN_E_NO_MEMORY);
    }
    entry.Keep();
    iterator->modules = list.modules.Release();
    *first = &iterator->current;
    return Succeed(iterator.Release());
}

}  // namespace

extern "C" VornProcModuleIterator* VornProcGetFirstModule(VornProcModule** first, VornPPid* ppid)
{
    if (first == nullptr) return Fail<VornProcModuleIterator>(VORN_E_INVALID_ARG);
    *first = nullptr;
    if (ppid == nullptr) return Fail<VornProcModuleIterator>(VORN_E_INVALID_ARG);
    // Deliberate: the PPid is not looked up.
    return MakeIterator(first, ppid->pid);
}

extern "C" VornStatus VornProcGetNextModule(VornProcModuleIterator* iterator, VornProcModule** next)
{
    if (next == nullptr || !ModuleIterators().Contains(iterator)) return VORN_E_INVALID_ARG;
    if (iterator->index == iterator->count) return VORN_E_INVALID_ARG;
    if (++iterator->index == iterator->count) {
        *next = nullptr;
        return VORN_E_NO_MORE;
    }
    iterator->current.handle = iterator->modules[iterator->index];
    *next = &iterator->current;
    return VORN_OK;
}

extern "C" VornStatus VornProcGetModuleClose(VornProcModuleIterator* iterator)
{
    if (!ModuleIterators().Unregister(iterator)) return VORN_E_INVALID_ARG;
    ModuleRecords().Unregister(&iterator->current);
    std::free(iterator->modules);
    std::free(iterator);
    return VORN_OK;
}

extern "C" VornStatus VornProcGetModuleName(VornProcModule* module, VornPPid* ppid, wchar_t* buffer,
                                            uint32_t* size)
{
    if (size == nullptr || (buffer == nullptr && *size != 0)) return VORN_E_INVALID_ARG;
    if (!ModuleRecords().Contains(module)) return VORN_E_INVALID_ARG;
    if (ppid == nullptr) return OwnModuleName(module->handle, buffer, size);
    if (!Processes().Contains(ppid)) return VORN_E_INVALID_ARG;
    return ModuleNameIn(ppid->pid, module->handle, buffer, size);
}
