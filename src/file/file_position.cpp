// file_position.cpp - position and size of an open file.

#include "core/last_error.h"
#include "core/registries.h"
#include "core/system_error.h"
#include "file/file_record.h"

#include <atomic>

using namespace vorn::detail;

static_assert(VORN_FILE_SEEK_BEGIN == FILE_BEGIN && VORN_FILE_SEEK_CURRENT == FILE_CURRENT &&
              VORN_FILE_SEEK_END == FILE_END);

namespace {

using GetFileSizeExFunction = BOOL(WINAPI*)(HANDLE, LARGE_INTEGER*);

// Older systems lack the entry point. A race at its first use only repeats the look-up.
GetFileSizeExFunction FindGetFileSizeEx()
{
    static std::atomic<GetFileSizeExFunction> found{nullptr};
    GetFileSizeExFunction function = found.load(std::memory_order_relaxed);
    if (function != nullptr) return function;
    FARPROC entry = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetFileSizeEx");
    function = reinterpret_cast<GetFileSizeExFunction>(reinterpret_cast<void*>(entry));
    found.store(function, std::memory_order_relaxed);
    return function;
}

}  // namespace

extern "C" uint64_t VornFileSeek(VornFile* file, int64_t offset, VornFileSeekMethod method)
{
    if (method > VORN_FILE_SEEK_END || !Files().Contains(file)) return VORN_FILE_FAILED;
    file->endOfFile = 0;
    LARGE_INTEGER distance;
    distance.QuadPart = offset;
    // The low half of a valid position may look like the value for failure: only the error tells.
    SetLastError(ERROR_SUCCESS);
    distance.LowPart =
        SetFilePointer(file->native, static_cast<LONG>(distance.LowPart), &distance.HighPart, method);
    if (GetLastError() != ERROR_SUCCESS) return VORN_FILE_FAILED;
    return static_cast<uint64_t>(distance.QuadPart);
}

extern "C" uint64_t VornFileGetPos(VornFile* file)
{
    // Deliberate: asking for the position clears the end-of-file flag.
    return VornFileSeek(file, 0, VORN_FILE_SEEK_CURRENT);
}

extern "C" uint64_t VornFileGetSize(VornFile* file)
{
    if (!Files().Contains(file)) {
        VornSetLastError(VORN_E_INVALID_ARG);
        return VORN_FILE_FAILED;
    }
    if (const GetFileSizeExFunction getFileSizeEx = FindGetFileSizeEx()) {
        LARGE_INTEGER size;
        return getFileSizeEx(file->native, &size) ? static_cast<uint64_t>(size.QuadPart) : VORN_FILE_FAILED;
    }
    SetLastError(ERROR_SUCCESS);
    // Deliberate: without the entry point only the low half of the size is asked for.
    const DWORD low = GetFileSize(file->native, nullptr);
    const DWORD error = GetLastError();
    VornSetLastError(StatusFromSystemError(error));
    return error == ERROR_SUCCESS ? low : VORN_FILE_FAILED;
}

extern "C" VornStatus VornFileSetSize(VornFile* file, uint64_t size)
{
    if (!Files().Contains(file)) return VORN_E_INVALID_ARG;
    const uint64_t position = VornFileGetPos(file);
    if (position == VORN_FILE_FAILED) return VORN_E_SEEK;
    if (VornFileSeek(file, static_cast<int64_t>(size), VORN_FILE_SEEK_BEGIN) == VORN_FILE_FAILED)
        return VORN_E_SEEK;
    // The handle may have been closed since: each step looks it up again.
    const bool resized = Files().Contains(file) && SetEndOfFile(file->native);
    VornFileSeek(file, static_cast<int64_t>(position), VORN_FILE_SEEK_BEGIN);
    return resized ? VORN_OK : VORN_E_SEEK;
}
