#include "file/backup_replay.h"

#include "file/scratch_dir.h"

#include <algorithm>
#include <cstring>

namespace vorn_test {

namespace {

// Where one walk stands.
struct Cursor {
    size_t at;
};

BackupReplay* active = nullptr;

using LookUpFunction = FARPROC(WINAPI*)(HMODULE, const char*);
LookUpFunction originalLookUp = nullptr;

}  // namespace

struct BackupEntryPoints {
    static BOOL WINAPI Read(HANDLE file, BYTE* buffer, DWORD bytes, DWORD* bytesRead, BOOL abort,
                            BOOL security, void** context)
    {
        if (active == nullptr) return BackupRead(file, buffer, bytes, bytesRead, abort, security, context);
        return active->Read(buffer, bytes, bytesRead, abort, security, context);
    }
    static BOOL WINAPI Seek(HANDLE file, DWORD low, DWORD high, DWORD* lowSkipped, DWORD* highSkipped,
                            void** context)
    {
        if (active == nullptr) return BackupSeek(file, low, high, lowSkipped, highSkipped, context);
        return active->Seek(low, high, lowSkipped, highSkipped, context);
    }
    static FARPROC WINAPI LookUp(HMODULE module, const char* name)
    {
        if (std::strcmp(name, "BackupRead") == 0)
            return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Read));
        if (std::strcmp(name, "BackupSeek") == 0)
            return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Seek));
        return originalLookUp(module, name);
    }
};

bool SystemHasNamedStreams()
{
    static const bool has = [] {
        ScratchDir dir;
        const std::wstring path = dir.MakeFile(L"probe", 1);
        HANDLE stream =
            CreateFileW((path + L":probe").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
        if (stream == INVALID_HANDLE_VALUE) return false;
        CloseHandle(stream);
        HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        BYTE header[20];
        DWORD bytesRead = 0;
        void* context = nullptr;
        const BOOL read = BackupRead(file, header, sizeof(header), &bytesRead, FALSE, TRUE, &context);
        if (context != nullptr) BackupRead(file, nullptr, 0, &bytesRead, TRUE, TRUE, &context);
        CloseHandle(file);
        return read && bytesRead == sizeof(header);
    }();
    return has;
}

bool RedirectBackupLookUps()
{
    // Left to the process's end: the module's pointers to our functions live as long as it does.
    static ImportRedirect* redirect = [] {
        auto* made =
            new ImportRedirect("GetProcAddress", reinterpret_cast<void*>(&BackupEntryPoints::LookUp));
        originalLookUp = made->Original<LookUpFunction>();
        return made;
    }();
    return redirect->Found();
}

BackupReplay::BackupReplay(Bytes data) : data_(std::move(data))
{
    active = this;
}

BackupReplay::~BackupReplay()
{
    if (active == this) active = nullptr;
}

BOOL BackupReplay::Read(BYTE* buffer, DWORD bytes, DWORD* bytesRead, BOOL abort, BOOL security,
                        void** context)
{
    if (abort) {
        ++aborts_;
        if (*context != nullptr) --liveContexts_;
        delete static_cast<Cursor*>(*context);
        *context = nullptr;
        return TRUE;
    }
    if (!security || bytesRead == nullptr) calledAsDocumented_ = false;
    if (*context == nullptr) {
        *context = new Cursor{0};
        ++liveContexts_;
    }
    if (++reads_ == failReadNumber) {
        SetLastError(ERROR_READ_FAULT);
        return FALSE;
    }
    size_t& at = static_cast<Cursor*>(*context)->at;
    *bytesRead = static_cast<DWORD>(std::min<size_t>(bytes, data_.size() - at));
    std::copy_n(data_.begin() + static_cast<ptrdiff_t>(at), *bytesRead, buffer);
    at += *bytesRead;
    return TRUE;
}

BOOL BackupReplay::Seek(DWORD low, DWORD high, DWORD* lowSkipped, DWORD* highSkipped, void** context)
{
    if (++seeks_ == failSeekNumber) {
        SetLastError(ERROR_SEEK);
        return FALSE;
    }
    const uint64_t wanted = static_cast<uint64_t>(high) << 32 | low;
    if (wanted == 0 || *context == nullptr) calledAsDocumented_ = false;
    size_t& at = static_cast<Cursor*>(*context)->at;
    const uint64_t skipped = std::min<uint64_t>(wanted, data_.size() - at);
    at += static_cast<size_t>(skipped);
    const uint64_t told = seeks_ == shortSeekNumber ? skipped - 1 : skipped;
    *lowSkipped = static_cast<DWORD>(told);
    *highSkipped = static_cast<DWORD>(told >> 32);
    return TRUE;
}

}  // namespace vorn_test
