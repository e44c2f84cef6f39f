#include <vorn/status.h>

namespace {

struct StatusEntry {
    VornStatus status;
    const char* name;
    const char* text;
};

#define VORN_STATUS_ENTRY(name, text) \
    {                                 \
        name, #name, text             \
    }

constexpr StatusEntry kStatuses[] = {
    VORN_STATUS_ENTRY(VORN_OK, "Success."),
    VORN_STATUS_ENTRY(VORN_E_SYSTEM, "A call to the operating system failed."),
    VORN_STATUS_ENTRY(VORN_E_UNKNOWN,
                      "The operating system reported an error that has no status of its own."),
    VORN_STATUS_ENTRY(VORN_E_TIMEOUT, "The time limit of a wait was reached."),
    VORN_STATUS_ENTRY(VORN_E_BUFFER_TOO_SMALL, "The buffer is too small; the needed size was written back."),
    VORN_STATUS_ENTRY(VORN_E_INVALID_ARG, "An argument is null, out of range or an unknown handle."),
    VORN_STATUS_ENTRY(VORN_E_CONVERSION, "The text could not be converted to another encoding."),
    VORN_STATUS_ENTRY(VORN_E_CONVERTER, "The code-page converter reported an error."),
    VORN_STATUS_ENTRY(VORN_E_NOT_SUPPORTED, "The requested variant is not supported on this platform."),
    VORN_STATUS_ENTRY(VORN_E_NO_MEMORY, "There is not enough memory."),
    VORN_STATUS_ENTRY(VORN_E_BAD_DATA, "The input data is malformed."),
    VORN_STATUS_ENTRY(VORN_E_BAD_STATE, "The object is in a state in which the operation cannot run."),
    VORN_STATUS_ENTRY(VORN_E_DEADLOCK, "The calling thread would wait for itself."),
    VORN_STATUS_ENTRY(VORN_E_NOT_PERMITTED, "Access is denied, or the caller is not the owner."),
    VORN_STATUS_ENTRY(VORN_E_BUSY, "The object is held by someone else."),
    VORN_STATUS_ENTRY(VORN_E_NO_RESOURCES, "No thread-local storage index is left."),
    VORN_STATUS_ENTRY(VORN_E_DETACHED, "The thread is detached and cannot be joined."),
    VORN_STATUS_ENTRY(VORN_E_READ, "A read failed or delivered too little."),
    VORN_STATUS_ENTRY(VORN_E_WRITE, "A write failed or was cut short."),
    VORN_STATUS_ENTRY(VORN_E_SEEK, "The file position could not be moved."),
    VORN_STATUS_ENTRY(VORN_E_EXISTS, "The object exists already."),
    VORN_STATUS_ENTRY(VORN_E_RANGE, "A number is outside its range."),
    VORN_STATUS_ENTRY(VORN_E_INVALID_NAME, "The name is malformed."),
    VORN_STATUS_ENTRY(VORN_E_NO_MORE, "There are no more entries."),
    VORN_STATUS_ENTRY(VORN_E_NOT_FOUND, "The file or object does not exist."),
    VORN_STATUS_ENTRY(VORN_E_PATH_NOT_FOUND, "A directory on the path does not exist."),
    VORN_STATUS_ENTRY(VORN_E_NOT_AVAILABLE, "No named data stream matches."),
    VORN_STATUS_ENTRY(VORN_E_SHARING, "The file is in use by another opener."),
    VORN_STATUS_ENTRY(VORN_E_DIR_NOT_EMPTY, "The directory is not empty."),
    VORN_STATUS_ENTRY(VORN_E_MAPPING, "A memory mapping or a view of it could not be made."),
    VORN_STATUS_ENTRY(VORN_E_NOT_APPLIED, "The change could not be carried out as asked."),
    VORN_STATUS_ENTRY(VORN_E_HEAP_CORRUPT, "The structure of the heap is damaged."),
    VORN_STATUS_ENTRY(VORN_E_HEAP_LOCK, "The heap is in use and has no lock to wait for."),
    VORN_STATUS_ENTRY(VORN_E_STOPPED, "The callback stopped the enumeration."),
    VORN_STATUS_ENTRY(VORN_E_BAD_IMAGE, "The file is not a heap image."),
};

constexpr StatusEntry kNoStatus = {0, "VORN_E_?", "The number is not a status of this library."};

const StatusEntry& FindStatus(VornStatus status) noexcept
{
    for (const StatusEntry& entry : kStatuses) {
        if (entry.status == status) return entry;
    }
    return kNoStatus;
}

}  // namespace

extern "C" const char* VornStatusName(VornStatus status)
{
    return FindStatus(status).name;
}

extern "C" const char* VornStatusText(VornStatus status)
{
    return FindStatus(status).text;
}
