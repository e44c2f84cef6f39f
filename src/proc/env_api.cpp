// env_api.cpp - the calling process's variables, and environment blocks as clients see them.

#include <vorn/proc.h>

#include "core/win32.h"

#include "core/last_error.h"
#include "core/record.h"
#include "core/registries.h"
#include "proc/env_table.h"

using namespace vorn::detail;

namespace {

// The calling process's environment as the system hands it out.
class EnvironmentStrings {
public:
    EnvironmentStrings() noexcept : strings_(GetEnvironmentStringsW()) {}
    EnvironmentStrings(const EnvironmentStrings&) = delete;
    EnvironmentStrings& operator=(const EnvironmentStrings&) = delete;
    ~EnvironmentStrings()
    {
        if (strings_ != nullptr) FreeEnvironmentStringsW(strings_);
    }
    const wchar_t* Get() const noexcept { return strings_; }

private:
    wchar_t* strings_;
};

bool FillTable(VornProcEnv* env, VornProcEnvMode mode) noexcept
{
    if (mode != VORN_ENV_COPY) return EnvTableInit(env, nullptr);
    const EnvironmentStrings strings;
    return strings.Get() != nullptr && EnvTableInit(env, strings.Get());
}

}  // namespace

extern "C" VornStatus VornProcGetVar(const wchar_t* name, wchar_t* value, uint32_t* size)
{
    if (name == nullptr || value == nullptr || size == nullptr) return VORN_E_INVALID_ARG;
    const DWORD length = GetEnvironmentVariableW(name, value, *size);
    if (length == 0) return VORN_E_SYSTEM;
    if (length < *size) return VORN_OK;
    // Deliberate: one more than the system asks for.
    *size = length + 1;
    return VORN_E_BUFFER_TOO_SMALL;
}

extern "C" VornStatus VornProcSetVar(const wchar_t* name, const wchar_t* value)
{
    if (name == nullptr) return VORN_E_INVALID_ARG;
    return SetEnvironmentVariableW(name, value) ? VORN_OK : VORN_E_SYSTEM;
}

extern "C" VornProcEnv* VornProcEnvAlloc(VornProcEnvMode mode)
{
    Record<VornProcEnv> env;
    if (!env || !FillTable(env.Get(), mode)) return Fail<VornProcEnv>(VORN_E_NO_MEMORY);
    if (!EnvironmentBlocks().Register(env.Get())) {
        EnvTableClear(env.Get());
        return Fail<VornProcEnv>(VORN_E_NO_MEMORY);
    }
    return Succeed(env.Release());
}

extern "C" VornStatus VornProcEnvFree(VornProcEnv* env)
{
    if (!EnvironmentBlocks().Unregister(env)) return VORN_E_INVALID_ARG;
    EnvTableClear(env);
    std::free(env);
    return VORN_OK;
}

extern "C" VornStatus VornProcEnvSet(VornProcEnv* env, const wchar_t* name, const wchar_t* value)
{
    if (name == nullptr || !EnvironmentBlocks().Contains(env)) return VORN_E_INVALID_ARG;
    return EnvTableSet(env, name, value);
}

extern "C" VornStatus VornProcEnvGet(VornProcEnv* env, const wchar_t* name, wchar_t* value, uint32_t* size)
{
    if (name == nullptr || size == nullptr || !EnvironmentBlocks().Contains(env)) return VORN_E_INVALID_ARG;
    return EnvTableGet(*env, name, value, size);
}
