#include "core/win32.h"

#include "core/record.h"
#include "thread/deferred_cancel.h"
#include "thread/thread_data.h"
#include "thread/thread_lifecycle.h"
#include "thread/thread_record.h"
#include "thread/thread_registry.h"

namespace vorn::detail {

// A thread has stored a value under a key with a destructor. Each entry is on two lists: its thread's,
// guarded by the thread's list lock, and its key's, guarded by the key's lock. Lock order: the key's lock
// comes before the thread's list lock. The destructor passes need them the other way round, and therefore
// only try the key's.
struct DataEntry {
    VornThread* thread;
    VornThreadKey* key;
    DataEntry* nextOfThread;
    DataEntry* nextOfKey;
    DataEntry* previousOfThread;
    DataEntry* previousOfKey;
};

namespace {

// Destructors are called in at most this many passes; the pass after them only removes.
constexpr unsigned kCallingPasses = 4;

// Holds one of the locks for a scope, or not, when the lock cannot be had.
class DataLock {
public:
    explicit DataLock(VornMutex** mutex) noexcept : mutex_(VornMutexLock(mutex) == VORN_OK ? mutex : nullptr)
    {}
    DataLock(const DataLock&) = delete;
    DataLock& operator=(const DataLock&) = delete;
    ~DataLock()
    {
        if (mutex_ != nullptr) VornMutexUnlock(mutex_);
    }
    explicit operator bool() const noexcept { return mutex_ != nullptr; }

private:
    VornMutex** mutex_;
};

// An ending thread's hold on a key: keeps it from being freed until the lock has been given back.
class KeyUse {
public:
    explicit KeyUse(VornThreadKey* key) noexcept : key_(key) { key_->users.fetch_add(1); }
    KeyUse(const KeyUse&) = delete;
    KeyUse& operator=(const KeyUse&) = delete;
    ~KeyUse()
    {
        if (locked_) VornMutexUnlock(&key_->lock);
        key_->users.fetch_sub(1);
    }
    // VORN_OK, VORN_E_BUSY, or the status of a lock that could not be created.
    VornStatus TryLock() noexcept
    {
        const VornStatus status = VornMutexTryLock(&key_->lock);
        locked_ = status == VORN_OK;
        return status;
    }

private:
    VornThreadKey* key_;
    bool locked_ = false;
};

void UnlinkFromThreadLocked(DataEntry* entry) noexcept
{
    VornThread* const thread = entry->thread;
    if (thread->dataCursor == entry) thread->dataCursor = entry->nextOfThread;
    if (entry->previousOfThread != nullptr) {
        entry->previousOfThread->nextOfThread = entry->nextOfThread;
    } else {
        thread->dataList = entry->nextOfThread;
    }
    if (entry->nextOfThread != nullptr) entry->nextOfThread->previousOfThread = entry->previousOfThread;
}

void UnlinkFromKeyLocked(DataEntry* entry) noexcept
{
    if (entry->previousOfKey != nullptr) {
        entry->previousOfKey->nextOfKey = entry->nextOfKey;
    } else {
        entry->key->entries = entry->nextOfKey;
    }
    if (entry->nextOfKey != nullptr) entry->nextOfKey->previousOfKey = entry->previousOfKey;
}

DataEntry* FindLocked(const VornThread* thread, const VornThreadKey* key) noexcept
{
    DataEntry* entry = thread->dataList;
    while (entry != nullptr && entry->key != key) entry = entry->nextOfThread;
    return entry;
}

bool LinkLocked(VornThread* thread, VornThreadKey* key) noexcept
{
    Record<DataEntry> entry;
    if (!entry) return false;
    entry->thread = thread;
    entry->key = key;
    entry->nextOfThread = thread->dataList;
    entry->nextOfKey = key->entries;
    if (thread->dataList != nullptr) thread->dataList->previousOfThread = entry.Get();
    if (key->entries != nullptr) key->entries->previousOfKey = entry.Get();
    thread->dataList = key->entries = entry.Release();
    return true;
}

// Sees to it that the key's destructor runs for the thread.
VornStatus RememberValue(VornThread* thread, VornThreadKey* key) noexcept
{
    const DataLock keyLock(&key->lock);
    if (!keyLock) return VORN_OK;
    const DataLock listLock(&thread->listLock);
    if (!listLock) return VORN_OK;
    if (FindLocked(thread, key) != nullptr || LinkLocked(thread, key)) return VORN_OK;
    return VORN_E_NO_MEMORY;
}

void RemoveEntriesOf(VornThreadKey* key) noexcept
{
    // The lock is taken even when there are no entries: an ending thread that has just removed the last one
    // may still hold it.
    const DataLock keyLock(&key->lock);
    if (!keyLock) return;
    while (DataEntry* const entry = key->entries) {
        // The thread cannot end before its entry is off the key's list. Its list lock must outlive the unlock
        // here, which is after that.
        // The analyser does not know that the head of a list has no predecessor, and so never is what was
        // freed.
        const ThreadUse use(entry->thread);  // NOLINT(clang-analyzer-unix.Malloc)
        const DataLock listLock(&entry->thread->listLock);
        UnlinkFromThreadLocked(entry);
        UnlinkFromKeyLocked(entry);
        std::free(entry);
    }
}

enum class Step { kCalled, kRemoved, kBusy, kEnd };

// Serves the entry at the thread's cursor. No lock is held while the destructor runs.
Step ServeNextEntry(VornThread* thread, bool mayCall) noexcept
{
    void* value;
    void (*destructor)(void*);
    {
        const DataLock listLock(&thread->listLock);
        // The system has ended the thread that holds the lock, perhaps with the list half changed.
        if (!listLock && ProcessIsEnding()) return Step::kEnd;
        DataEntry* const entry = thread->dataCursor;
        if (entry == nullptr) return Step::kEnd;
        VornThreadKey* const key = entry->key;
        KeyUse use(key);
        const bool keyIsBusy = use.TryLock() == VORN_E_BUSY;
        if (keyIsBusy && !ProcessIsEnding()) return Step::kBusy;
        thread->dataCursor = entry->nextOfThread;
        value = ReadTlsSlot(key->slot);
        TlsSetValue(key->slot, nullptr);
        destructor = key->destructor;
        if (value == nullptr || !mayCall) {
            UnlinkFromThreadLocked(entry);
            // At process end nobody will give a busy key's lock back, and its list may be half changed.
            if (keyIsBusy) return Step::kRemoved;
            UnlinkFromKeyLocked(entry);
            std::free(entry);
            return Step::kRemoved;
        }
    }
    destructor(value);
    return Step::kCalled;
}

// Returns how many destructors the pass called.
unsigned RunPass(VornThread* thread, unsigned pass) noexcept
{
    {
        const DataLock listLock(&thread->listLock);
        if (!listLock && ProcessIsEnding()) return 0;
        thread->dataCursor = thread->dataList;
    }
    unsigned calls = 0;
    for (;;) {
        switch (ServeNextEntry(thread, pass <= kCallingPasses)) {
            case Step::kCalled:
                ++calls;
                break;
            case Step::kRemoved:
                break;
            case Step::kBusy:
                Sleep(1);
                break;
            case Step::kEnd:
                return calls;
        }
    }
}

VornStatus CreateKey(VornThreadKey** out, void (*destructor)(void*)) noexcept
{
    if (out == nullptr) return VORN_E_INVALID_ARG;
    Record<VornThreadKey> key;
    if (!key) return VORN_E_NO_MEMORY;
    key->slot = TlsAlloc();
    if (key->slot == TLS_OUT_OF_INDEXES) return VORN_E_NO_RESOURCES;
    if (destructor != nullptr) {
        key->destructor = destructor;
        key->lock = VORN_MUTEX_INITIALIZER;
    }
    *out = key.Release();
    return VORN_OK;
}

VornStatus DeleteKey(VornThreadKey* key) noexcept
{
    if (key == nullptr) return VORN_OK;
    if (key->destructor != nullptr) {
        RemoveEntriesOf(key);
        while (key->users.load() != 0 && !ProcessIsEnding()) Sleep(0);
    }
    TlsFree(key->slot);
    if (key->destructor != nullptr) VornMutexDestroy(&key->lock);
    std::free(key);
    return VORN_OK;
}

VornStatus SetValue(VornThreadKey* key, const void* value) noexcept
{
    VornThread* const thread = VornThreadSelf();
    if (thread == nullptr) return VORN_E_NO_MEMORY;
    if (key == nullptr) return VORN_OK;
    // After the thread's clean-up, in a destructor that the system runs later, nobody would call it any more.
    const bool mayCall = thread->state.load() != kStateFinished;
    if (key->destructor != nullptr && value != nullptr && mayCall) {
        const VornStatus status = RememberValue(thread, key);
        if (status != VORN_OK) return status;
    }
    return TlsSetValue(key->slot, const_cast<void*>(value)) ? VORN_OK : VORN_E_SYSTEM;
}

}  // namespace

void RunDataDestructors(VornThread* thread) noexcept
{
    // Only the thread itself adds entries: a list that it finds empty stays so, and needs no lock.
    if (__atomic_load_n(&thread->dataList, __ATOMIC_ACQUIRE) == nullptr) return;
    unsigned pass = 1;
    while (RunPass(thread, pass) != 0) ++pass;
}

void DropThreadData(VornThread* thread) noexcept
{
    while (DataEntry* const entry = thread->dataList) {
        UnlinkFromThreadLocked(entry);  // NOLINT(clang-analyzer-unix.Malloc): the head has no predecessor
        UnlinkFromKeyLocked(entry);
        std::free(entry);
    }
}

}  // namespace vorn::detail

using namespace vorn::detail;

extern "C" VornStatus VornThreadKeyCreate(VornThreadKey** out, void (*destructor)(void*))
{
    return RunDeferred([=] { return CreateKey(out, destructor); });
}

extern "C" VornStatus VornThreadKeyDelete(VornThreadKey* key)
{
    return RunDeferred([=] { return DeleteKey(key); });
}

extern "C" VornStatus VornThreadSetSpecific(VornThreadKey* key, const void* value)
{
    return RunDeferred([=] { return SetValue(key, value); });
}

extern "C" void* VornThreadGetSpecific(VornThreadKey* key)
{
    return key == nullptr ? nullptr : ReadTlsSlot(key->slot);
}
