// file_open.cpp - opening, closing and deleting files.

#include "core/fault_guard.h"
#include "core/kernel_handle.h"
#include "core/last_error.h"
#include "core/record.h"
#include "core/registries.h"
#include "core/security.h"
#include "core/system_error.h"
#include "file/file_record.h"
#include "file/region.h"

using namespace vorn::detail;

namespace {

constexpr DWORD kDispositions[] = {
    CREATE_ALWAYS,      // VORN_FILE_CREATE_ALWAYS
    CREATE_NEW,         // VORN_FILE_CREATE_NEW
    OPEN_ALWAYS,        // VORN_FILE_OPEN_ALWAYS
    OPEN_EXISTING,      // VORN_FILE_OPEN_EXISTING
    OPEN_ALWAYS,        // VORN_FILE_APPEND_ALWAYS
    OPEN_EXISTING,      // VORN_FILE_APPEND_EXISTING
    TRUNCATE_EXISTING,  // VORN_FILE_TRUNCATE_EXISTING
};
constexpr uint32_t kOpenModes = sizeof(kDispositions) / sizeof(kDispositions[0]);

constexpr DWORD kRights[] = {
    0,                             // VORN_FILE_ACCESS_NONE
    GENERIC_READ,                  // VORN_FILE_ACCESS_READ
    GENERIC_WRITE,                 // VORN_FILE_ACCESS_WRITE
    GENERIC_READ | GENERIC_WRITE,  // VORN_FILE_ACCESS_READ_WRITE
};
constexpr uint32_t kAccessModes = sizeof(kRights) / sizeof(kRights[0]);

static_assert(VORN_FILE_TRUNCATE_EXISTING + 1 == kOpenModes &&
              VORN_FILE_ACCESS_READ_WRITE + 1 == kAccessModes);

void MoveToEnd(HANDLE native)
{
    LONG high = 0;  // With it the move also works in files of 4 GiB and more.
    SetFilePointer(native, 0, &high, FILE_END);
}

}  // namespace

namespace vorn::detail {

VornFile* OpenRecord(HANDLE native, VornFileAccessMode access) noexcept
{
    Record<VornFile> file;
    if (!file) return Fail<VornFile>(VORN_E_NO_MEMORY);
    file->native = native;
    file->access = access;
    if (!Files().Register(file.Get())) {
        CloseHandle(native);
        return Fail<VornFile>(VORN_E_NO_MEMORY);
    }
    return Succeed(file.Release());
}

}  // namespace vorn::detail

extern "C" VornFile* VornFileCreate(const wchar_t* name, VornFileOpenMode mode, VornFileAccessMode access,
                                    VBool share, const VornSecurityDescriptor* security,
                                    const void* templateFile)
{
    if (mode >= kOpenModes) return Fail<VornFile>(VORN_E_INVALID_ARG);
    if (access >= kAccessModes) return Fail<VornFile>(VORN_E_INVALID_ARG);

    const DWORD sharing = share != VORN_FALSE ? FILE_SHARE_READ | FILE_SHARE_WRITE : 0;
    HANDLE native = CreateFileW(name, kRights[access], sharing, AttributesOf(security), kDispositions[mode],
                                FILE_ATTRIBUTE_NORMAL, const_cast<void*>(templateFile));
    if (native == INVALID_HANDLE_VALUE) return Fail<VornFile>(StatusFromSystemError(GetLastError()));

    VornFile* file = OpenRecord(native, access);
    if (file == nullptr) return nullptr;
    if (mode == VORN_FILE_APPEND_ALWAYS || mode == VORN_FILE_APPEND_EXISTING) MoveToEnd(native);
    return file;
}

extern "C" VornStatus VornFileClose(VornFile* file)
{
    if (!Files().Contains(file)) return VORN_E_INVALID_ARG;
    ReleaseRegions(file);
    // Closing an invalid handle raises a fault when a debugger watches the process.
    if (!CallGuarded(&CloseHandle, file->native).ended) return VORN_E_INVALID_ARG;
    if (Files().Unregister(file)) Record<VornFile> freed(file);
    return VORN_OK;
}

extern "C" VornStatus VornFileGetNativeHandle(VornFile* file, void** handle)
{
    if (handle == nullptr || !Files().Contains(file)) return VORN_E_INVALID_ARG;
    *handle = file->native;
    return VORN_OK;
}

extern "C" VornStatus VornFileDelete(const wchar_t* name)
{
    return DeleteFileW(name) ? VORN_OK : StatusFromSystemError(GetLastError());
}
