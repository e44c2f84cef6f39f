#include "thread/semaphore.h"

#include "core/win32.h"

#include "core/kernel_handle.h"
#include "core/record.h"
#include "core/runtime.h"
#include "core/security.h"
#include "text/codepage_converter.h"
#include "thread/cancellable_wait.h"

#include <cstring>
#include <cwchar>
#include <utility>

namespace vorn::detail {

namespace {

constexpr wchar_t kGlobalPrefix[] = L"Global\\";
constexpr size_t kPrefixUnits = sizeof(kGlobalPrefix) / sizeof(wchar_t) - 1;
constexpr int32_t kKnownFlags = VORN_SEMAPHORE_CREATE | VORN_SEMAPHORE_EXCLUSIVE;

bool IsValidName(const char* name) noexcept
{
    return name != nullptr && *name != '\0' && std::strpbrk(name, "/\\ ") == nullptr;
}

VornStatus CheckOpenArguments(const VornSemaphore* const* out, int32_t flags, int32_t initialCount) noexcept
{
    if (out == nullptr || (flags & ~kKnownFlags) != 0) return VORN_E_INVALID_ARG;
    if (flags == VORN_SEMAPHORE_EXCLUSIVE) return VORN_E_INVALID_ARG;
    return initialCount < 0 ? VORN_E_RANGE : VORN_OK;
}

// The name in UTF-16, from the default code page.
VornStatus ConvertName(const char* name, Buffer<wchar_t>* converted) noexcept
{
    CodepageConverter converter;
    if (!converter) return VORN_E_CONVERSION;
    UErrorCode error = U_ZERO_ERROR;
    const int32_t units = ucnv_toUChars(converter.Get(), nullptr, 0, name, -1, &error);
    if (error != U_BUFFER_OVERFLOW_ERROR) return VORN_E_CONVERSION;
    *converted = Buffer<wchar_t>(static_cast<size_t>(units) + 1);
    if (!*converted) return VORN_E_NO_MEMORY;
    error = U_ZERO_ERROR;
    ucnv_toUChars(converter.Get(), reinterpret_cast<UChar*>(converted->Get()), units + 1, name, -1, &error);
    return U_FAILURE(error) ? VORN_E_CONVERSION : VORN_OK;
}

}  // namespace

VornStatus OpenNamedSemaphore(VornSemaphore** out, const wchar_t* name, int32_t flags, int32_t initialCount,
                              const VornSecurityDescriptor* security) noexcept
{
    const VornStatus status = CheckOpenArguments(out, flags, initialCount);
    if (status != VORN_OK) return status;
    if (std::wcspbrk(name, L"/\\ ") != nullptr) return VORN_E_INVALID_NAME;
    Record<VornSemaphore> semaphore;
    if (!semaphore) return VORN_E_NO_MEMORY;
    const size_t nameUnits = std::wcslen(name);
    const size_t prefixUnits = NamedObjectsAreGlobal() ? kPrefixUnits : 0;
    Buffer<wchar_t> systemName(prefixUnits + nameUnits + 1);
    if (!systemName) return VORN_E_NO_MEMORY;
    std::memcpy(systemName.Get(), kGlobalPrefix, prefixUnits * sizeof(wchar_t));
    std::memcpy(systemName.Get() + prefixUnits, name, (nameUnits + 1) * sizeof(wchar_t));

    // The call says by the system error alone whether the semaphore was there before.
    SetLastError(ERROR_SUCCESS);
    KernelHandle native(
        CreateSemaphoreW(AttributesOf(security), initialCount, kMaxSemaphoreCount, systemName.Get()));
    if (!native) return VORN_E_SYSTEM;
    const bool existed = GetLastError() == ERROR_ALREADY_EXISTS;
    if (!existed && (flags & VORN_SEMAPHORE_CREATE) == 0) return VORN_E_SYSTEM;
    if (existed && (flags & VORN_SEMAPHORE_EXCLUSIVE) != 0) return VORN_E_EXISTS;
    semaphore->native = native.Release();
    *out = semaphore.Release();
    return VORN_OK;
}

}  // namespace vorn::detail

using namespace vorn::detail;

extern "C" VornStatus VornSemaphoreCreate(VornSemaphore** out, int32_t initialCount, uint32_t shared)
{
    if (out == nullptr || shared > 1) return VORN_E_INVALID_ARG;
    if (shared == 1) return VORN_E_NOT_SUPPORTED;
    if (initialCount < 0) return VORN_E_RANGE;
    Record<VornSemaphore> semaphore;
    if (!semaphore) return VORN_E_NO_MEMORY;
    semaphore->native = CreateSemaphoreW(nullptr, initialCount, kMaxSemaphoreCount, nullptr);
    if (semaphore->native == nullptr) return VORN_E_SYSTEM;
    *out = semaphore.Release();
    return VORN_OK;
}

extern "C" VornStatus VornSemaphoreOpen(VornSemaphore** out, const char* name, int32_t flags,
                                        int32_t initialCount, const VornSecurityDescriptor* security)
{
    VornStatus status = CheckOpenArguments(out, flags, initialCount);
    if (status != VORN_OK) return status;
    if (!IsValidName(name)) return VORN_E_INVALID_NAME;
    Buffer<wchar_t> wideName;
    status = ConvertName(name, &wideName);
    if (status != VORN_OK) return status;
    return OpenNamedSemaphore(out, wideName.Get(), flags, initialCount, security);
}

extern "C" VornStatus VornSemaphoreClose(VornSemaphore** semaphore)
{
    if (semaphore == nullptr || *semaphore == nullptr) return VORN_E_INVALID_ARG;
    Record<VornSemaphore> record(std::exchange(*semaphore, nullptr));
    return CloseHandle(record->native) ? VORN_OK : VORN_E_SYSTEM;
}

extern "C" VornStatus VornSemaphoreDestroy(VornSemaphore** semaphore)
{
    return VornSemaphoreClose(semaphore);
}

extern "C" VornStatus VornSemaphoreUnlink(const char*)
{
    // Deliberate: a named semaphore goes when its last handle is closed, so there is nothing to remove.
    return VORN_OK;
}

extern "C" VornStatus VornSemaphoreWait(VornSemaphore** semaphore)
{
    if (semaphore == nullptr || *semaphore == nullptr) return VORN_E_INVALID_ARG;
    return WaitCancellable((*semaphore)->native, INFINITE);
}

extern "C" VornStatus VornSemaphoreTryWait(VornSemaphore** semaphore)
{
    if (semaphore == nullptr || *semaphore == nullptr) return VORN_E_INVALID_ARG;
    return WaitForSingleObject((*semaphore)->native, 0) == WAIT_OBJECT_0 ? VORN_OK : VORN_E_BUSY;
}

extern "C" VornStatus VornSemaphorePost(VornSemaphore** semaphore)
{
    if (semaphore == nullptr || *semaphore == nullptr) return VORN_E_INVALID_ARG;
    return PostSemaphore(*semaphore, 1);
}
