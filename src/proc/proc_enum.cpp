// proc_enum.cpp - the iterator over running processes.

#include <vorn/proc.h>

#include "core/win32.h"

#include "core/kernel_handle.h"
#include "core/last_error.h"
#include "core/record.h"
#include "core/registries.h"
#include "core/runtime.h"
#include "proc/debug_privilege.h"
#include "proc/ppid.h"

#include <cstdlib>
#include <cstring>
#include <tlhelp32.h>

using namespace vorn::detail;

// In two registries while it lives: itself among the process iterators, `current` among the processes.
struct VornProcIterator {
    uint32_t index;  // of the current process; count once the end was met
    uint32_t* pids;
    uint32_t count;
    VornPPid current;
};

namespace {

class PidList {
public:
    bool Append(uint32_t pid) noexcept
    {
        if (count_ == capacity_ && !Grow()) return false;
        pids_[count_++] = pid;
        return true;
    }
    uint32_t Count() const noexcept { return count_; }
    uint32_t operator[](uint32_t index) const noexcept { return pids_[index]; }
    [[nodiscard]] uint32_t* Release() noexcept { return pids_.Release(); }

private:
    bool Grow() noexcept
    {
        const uint32_t capacity = capacity_ == 0 ? kFirstCapacity : capacity_ * 2;
        Buffer<uint32_t> larger(capacity);
        if (!larger) return false;
        if (count_ != 0) std::memcpy(larger.Get(), pids_.Get(), count_ * sizeof(uint32_t));
        pids_ = std::move(larger);
        capacity_ = capacity;
        return true;
    }

    static constexpr uint32_t kFirstCapacity = 256;
    Buffer<uint32_t> pids_;
    uint32_t count_ = 0;
    uint32_t capacity_ = 0;
};

VornStatus ListProcesses(PidList* list) noexcept
{
    const DebugPrivilege privilege;
    const KernelHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return VORN_E_SYSTEM;
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    if (!Process32FirstW(snapshot.Get(), &entry)) return VORN_E_SYSTEM;
    do {
        if (!list->Append(entry.th32ProcessID)) return VORN_E_NO_MEMORY;
    } while (Process32NextW(snapshot.Get(), &entry));
    return VORN_OK;
}

bool StillRuns(uint32_t pid) noexcept
{
    const KernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, pid));
    return process && WaitForSingleObject(process.Get(), 0) == WAIT_TIMEOUT;
}

// Before version 6 a snapshot may list processes that have ended. From then on every listed process is
// taken, and none need be opened to find out.
void PassOverEndedProcesses(VornProcIterator* iterator) noexcept
{
    const SystemInfo* system = GetSystemInfoRecord();
    if (system == nullptr || system->majorVersion >= 6) return;
    const DebugPrivilege privilege;
    while (iterator->index < iterator->count && !StillRuns(iterator->pids[iterator->index])) {
        ++iterator->index;
    }
}

void StandAt(VornProcIterator* iterator, uint32_t pid) noexcept
{
    VornPPid& current = iterator->current;
    current.pid = pid;
    current.process = nullptr;
    current.owned = 0;
    current.lent = 1;
    current.exited.store(0, std::memory_order_relaxed);
    current.exitCode.store(0, std::memory_order_relaxed);
}

VornProcIterator* MakeIterator(VornPPid** first) noexcept
{
    PidList list;
    const VornStatus status = ListProcesses(&list);
    if (status != VORN_OK) return Fail<VornProcIterator>(status);
    Record<VornProcIterator> iterator;
    if (!iterator) return Fail<VornProcIterator>(VORN_E_NO_MEMORY);
    iterator->count = list.Count();
    StandAt(iterator.Get(), list[0]);
    Registration entry(ProcessIterators(), iterator.Get());
    if (!entry || !Processes().Register(&iterator->current)) {
        return Fail<VornProcIterator>(VORN_E_NO_MEMORY);
    }
    entry.Keep();
    iterator->pids = list.Release();
    *first = &iterator->current;
    return Succeed(iterator.Release());
}

}  // namespace

extern "C" VornProcIterator* VornProcGetFirst(VornPPid** first)
{
    if (first == nullptr) return Fail<VornProcIterator>(VORN_E_INVALID_ARG);
    *first = nullptr;
    return MakeIterator(first);
}

extern "C" VornStatus VornProcGetNext(VornProcIterator* iterator, VornPPid** next)
{
    if (next == nullptr || !ProcessIterators().Contains(iterator)) return VORN_E_INVALID_ARG;
    if (iterator->index == iterator->count) return VORN_E_INVALID_ARG;
    ++iterator->index;
    PassOverEndedProcesses(iterator);
    if (iterator->index == iterator->count) {
        *next = nullptr;
        return VORN_E_NO_MORE;
    }
    StandAt(iterator, iterator->pids[iterator->index]);
    *next = &iterator->current;
    return VORN_OK;
}

extern "C" VornStatus VornProcGetClose(VornProcIterator* iterator)
{
    if (!ProcessIterators().Unregister(iterator)) return VORN_E_INVALID_ARG;
    Processes().Unregister(&iterator->current);
    std::free(iterator->pids);
    std::free(iterator);
    return VORN_OK;
}
