#include "file/file_times.h"

#include "core/kernel_handle.h"
#include "core/registries.h"
#include "core/system_error.h"
#include "file/file_record.h"
#include "file/found_entry.h"

#include <cstring>

namespace vorn::detail {

static_assert(sizeof(VornTime) == sizeof(SYSTEMTIME) &&
              offsetof(VornTime, dayOfWeek) == offsetof(SYSTEMTIME, wDayOfWeek) &&
              offsetof(VornTime, milliseconds) == offsetof(SYSTEMTIME, wMilliseconds));

void FileTimeToVornTime(const FILETIME& time, VornTime* out) noexcept
{
    if (out == nullptr) return;
    SYSTEMTIME calendar;
    if (FileTimeToSystemTime(&time, &calendar)) std::memcpy(out, &calendar, sizeof(*out));
}

bool VornTimeToFileTime(const VornTime& time, FILETIME* out) noexcept
{
    SYSTEMTIME calendar;
    std::memcpy(&calendar, &time, sizeof(calendar));
    return SystemTimeToFileTime(&calendar, out);
}

}  // namespace vorn::detail

using namespace vorn::detail;

namespace {

// A time to be set: none, or the file time of a calendar time.
class WantedTime {
public:
    explicit WantedTime(const VornTime* time) noexcept
        : given_(time != nullptr), valid_(!given_ || VornTimeToFileTime(*time, &time_))
    {}

    bool Valid() const noexcept { return valid_; }
    const FILETIME* Get() const noexcept { return given_ ? &time_ : nullptr; }

private:
    FILETIME time_ = {};
    bool given_;
    bool valid_;
};

}  // namespace

extern "C" VornStatus VornFileGetTime(VornFile* file, VornTime* accessTime, VornTime* modifyTime,
                                      VornTime* createTime)
{
    if (!Files().Contains(file)) return VORN_E_INVALID_ARG;
    FILETIME access, modify, create;
    if (!GetFileTime(file->native, &create, &access, &modify)) return VORN_E_READ;
    FileTimeToVornTime(access, accessTime);
    FileTimeToVornTime(modify, modifyTime);
    FileTimeToVornTime(create, createTime);
    return VORN_OK;
}

extern "C" VornStatus VornFileSetTime(VornFile* file, const VornTime* accessTime, const VornTime* modifyTime,
                                      const VornTime* createTime)
{
    if (!Files().Contains(file)) return VORN_E_INVALID_ARG;
    // Deliberate: a creation time alone cannot be set.
    if (accessTime == nullptr && modifyTime == nullptr) return VORN_E_INVALID_ARG;
    const WantedTime access(accessTime), modify(modifyTime), create(createTime);
    if (!access.Valid() || !modify.Valid() || !create.Valid()) return VORN_E_INVALID_ARG;
    return SetFileTime(file->native, create.Get(), access.Get(), modify.Get()) ? VORN_OK : VORN_E_WRITE;
}

extern "C" VornStatus VornFileGetTimeByName(const wchar_t* name, VornTime* accessTime, VornTime* modifyTime,
                                            VornTime* createTime)
{
    if (name == nullptr) return VORN_E_INVALID_ARG;
    WIN32_FIND_DATAW entry;
    const VornStatus status = FindEntry(name, &entry);
    if (status != VORN_OK) return status;
    FileTimeToVornTime(entry.ftLastAccessTime, accessTime);
    FileTimeToVornTime(entry.ftLastWriteTime, modifyTime);
    FileTimeToVornTime(entry.ftCreationTime, createTime);
    return VORN_OK;
}

extern "C" VornStatus VornFileSetTimeByName(const wchar_t* name, const VornTime* accessTime,
                                            const VornTime* modifyTime, const VornTime* createTime)
{
    HANDLE native = CreateFileW(name, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (native == INVALID_HANDLE_VALUE) {
        const VornStatus status = StatusFromSystemError(GetLastError());
        VornSetLastError(status);
        return status;
    }
    VornFile* file = OpenRecord(native, VORN_FILE_ACCESS_WRITE);
    if (file == nullptr) return VORN_E_NO_MEMORY;
    const VornStatus status = VornFileSetTime(file, accessTime, modifyTime, createTime);
    VornFileClose(file);
    return status;
}
