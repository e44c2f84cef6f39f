// file_io.cpp - bytes in and out, and the end-of-file flag.

#include "core/fault_guard.h"
#include "core/registries.h"
#include "file/file_record.h"

using namespace vorn::detail;

namespace {

// The system counts bytes in a DWORD.
DWORD* AsDword(uint32_t* value)
{
    static_assert(sizeof(DWORD) == sizeof(uint32_t));
    return reinterpret_cast<DWORD*>(value);
}

}  // namespace

extern "C" VornStatus VornFileRead(VornFile* file, void* buffer, uint32_t count, uint32_t* bytesRead)
{
    if (buffer == nullptr || bytesRead == nullptr) return VORN_E_INVALID_ARG;
    if (!Files().Contains(file)) return VORN_E_INVALID_ARG;
    if (count == 0) {
        *bytesRead = 0;
        return VORN_OK;
    }
    const GuardedResult read =
        CallGuarded(&ReadFile, file->native, buffer, count, AsDword(bytesRead), nullptr);
    if (!read.ended || !read.value) return VORN_E_READ;
    // Deliberate: a read that delivers all it was asked for leaves the flag as it was.
    if (*bytesRead < count) file->endOfFile = 1;
    return VORN_OK;
}

extern "C" VornStatus VornFileWrite(VornFile* file, const void* buffer, uint32_t count,
                                    uint32_t* bytesWritten)
{
    if (buffer == nullptr || bytesWritten == nullptr) return VORN_E_INVALID_ARG;
    if (!Files().Contains(file)) return VORN_E_INVALID_ARG;
    file->endOfFile = 0;
    if (count == 0) {
        *bytesWritten = 0;
        return VORN_OK;
    }
    const GuardedResult write =
        CallGuarded(&WriteFile, file->native, buffer, count, AsDword(bytesWritten), nullptr);
    return write.ended && write.value ? VORN_OK : VORN_E_WRITE;
}

extern "C" VornStatus VornFileFlush(VornFile* file)
{
    if (!Files().Contains(file)) return VORN_E_INVALID_ARG;
    return FlushFileBuffers(file->native) ? VORN_OK : VORN_E_WRITE;
}

extern "C" VBool VornFileIsEof(VornFile* file)
{
    return Files().Contains(file) && file->endOfFile != 0 ? VORN_TRUE : VORN_FALSE;
}
