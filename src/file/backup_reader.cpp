#include "file/backup_reader.h"

#include "core/win32.h"

#include "core/kernel_handle.h"
#include "core/system_error.h"
#include "file/stream_walk.h"

#include <atomic>

namespace vorn::detail {

namespace {

using BackupReadFunction = decltype(&BackupRead);
using BackupSeekFunction = decltype(&BackupSeek);

// A race only repeats the look-up.
std::atomic<BackupReadFunction> backupRead{nullptr};
std::atomic<BackupSeekFunction> backupSeek{nullptr};

template <class Function>
VornStatus LookUp(const char* name, std::atomic<Function>* entry) noexcept
{
    if (entry->load(std::memory_order_relaxed) != nullptr) return VORN_OK;
    HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    if (kernel == nullptr) return StatusFromSystemError(GetLastError());
    const auto function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(kernel, name)));
    if (function == nullptr) return StatusFromSystemError(GetLastError());
    entry->store(function, std::memory_order_relaxed);
    return VORN_OK;
}

// Reads one file's backup data. The system keeps a context between the calls, which its destructor releases.
class BackupReader {
public:
    explicit BackupReader(HANDLE file) noexcept
        : file_(file),
          read_(backupRead.load(std::memory_order_relaxed)),
          seek_(backupSeek.load(std::memory_order_relaxed))
    {}
    BackupReader(const BackupReader&) = delete;
    BackupReader& operator=(const BackupReader&) = delete;
    ~BackupReader()
    {
        DWORD bytesRead = 0;
        if (begun_ || context_ != nullptr) read_(file_, nullptr, 0, &bytesRead, TRUE, TRUE, &context_);
    }

    StreamSource Source() noexcept
    {
        return {this,
                [](void* self, void* buffer, uint32_t bytes, uint32_t* bytesRead) {
                    return static_cast<BackupReader*>(self)->Read(buffer, bytes, bytesRead);
                },
                [](void* self, uint64_t bytes, uint64_t* bytesSkipped) {
                    return static_cast<BackupReader*>(self)->Seek(bytes, bytesSkipped);
                }};
    }

private:
    bool Read(void* buffer, uint32_t bytes, uint32_t* bytesRead) noexcept
    {
        DWORD count = 0;
        if (!read_(file_, static_cast<BYTE*>(buffer), bytes, &count, FALSE, TRUE, &context_)) return false;
        begun_ = true;
        *bytesRead = count;
        return true;
    }
    bool Seek(uint64_t bytes, uint64_t* bytesSkipped) noexcept
    {
        DWORD low = 0;
        DWORD high = 0;
        const BOOL done =
            seek_(file_, static_cast<DWORD>(bytes), static_cast<DWORD>(bytes >> 32), &low, &high, &context_);
        *bytesSkipped = static_cast<uint64_t>(high) << 32 | low;
        return done != FALSE;
    }

    HANDLE file_;
    BackupReadFunction read_;
    BackupSeekFunction seek_;
    void* context_ = nullptr;
    bool begun_ = false;
};

}  // namespace

VornStatus FindBackupFunctions() noexcept
{
    const VornStatus status = LookUp("BackupRead", &backupRead);
    return status != VORN_OK ? status : LookUp("BackupSeek", &backupSeek);
}

VornStatus ListFileStreams(const wchar_t* filePath, const wchar_t* pattern, size_t patternUnits,
                           StreamList* list) noexcept
{
    KernelHandle file(CreateFileW(filePath, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file) return StatusFromSystemError(GetLastError());
    BackupReader reader(file.Get());
    return FindStreams(reader.Source(), pattern, patternUnits, list);
}

}  // namespace vorn::detail
