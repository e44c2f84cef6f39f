#include "core/win32.h"

#include "core/record.h"
#include "thread/mutex_record.h"
#include "thread/static_init_lock.h"
#include "thread/thread_lifecycle.h"
#include "thread/thread_record.h"

using namespace vorn::detail;

namespace {

constexpr VornMutexAttr kDefaultAttr = {VORN_MUTEX_NORMAL, 0};
constexpr VornMutexAttr kRecursiveAttr = {VORN_MUTEX_RECURSIVE, 0};
constexpr VornMutexAttr kErrorCheckAttr = {VORN_MUTEX_ERRORCHECK, 0};

// How often a contender looks at the word before it sleeps: a short section ends sooner than a kernel wait
// begins. On a single processor the holder cannot run meanwhile.
int SpinLimit() noexcept
{
    constexpr int kSpins = 120;
    static std::atomic<int> limit{-1};
    int spins = limit.load(std::memory_order_relaxed);
    if (spins < 0) {
        SYSTEM_INFO info;
        GetSystemInfo(&info);
        spins = info.dwNumberOfProcessors > 1 ? kSpins : 0;
        limit.store(spins, std::memory_order_relaxed);
    }
    return spins;
}

// How often it then offers its processor to others, which helps where the holder is waiting for one.
constexpr int kYields = 8;

VornStatus MakeMutex(VornMutex** out, const VornMutexAttr& attr) noexcept
{
    *out = nullptr;
    Record<VornMutex> mutex;
    if (!mutex) return VORN_E_NO_MEMORY;
    mutex->kind = attr.kind;
    mutex->shared = attr.shared;
    mutex->wakeEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (mutex->wakeEvent == nullptr) return VORN_E_SYSTEM;
    *out = mutex.Release();
    return VORN_OK;
}

// Creates the mutex that an initialiser in `*variable` stands for, unless another thread has done so.
// The variable keeps the initialiser until the record is complete, because a thread that sees any other
// value uses it at once. A failure leaves 0.
[[gnu::noinline]] VornStatus CreateOnFirstUse(VornMutex** variable) noexcept
{
    StaticInitLock guard;
    VornMutex* const handle = LoadHandle(variable);
    if (handle == nullptr) return VORN_E_INVALID_ARG;
    if (!IsInitializer(handle)) return VORN_OK;
    const VornMutexAttr& attr = handle == VORN_MUTEX_INITIALIZER             ? kDefaultAttr
                                : handle == VORN_RECURSIVE_MUTEX_INITIALIZER ? kRecursiveAttr
                                                                             : kErrorCheckAttr;
    VornMutex* created;
    const VornStatus status = MakeMutex(&created, attr);
    StoreHandle(variable, created);
    return status;
}

// Takes the lock word after an attempt that found it `found`, not free. Returns with the word taken, or
// VORN_E_SYSTEM when the wait fails.
[[gnu::noinline]] VornStatus LockContended(VornMutex* mutex, int32_t found) noexcept
{
    std::atomic<int32_t>& word = mutex->lockWord;
    // The attempt may have replaced the mark of sleepers: put it back before anything else, and from then on
    // take the word only as contended.
    const bool marked = found == kContended;
    if (marked && word.exchange(kContended) == kFree) return VORN_OK;
    const int spins = SpinLimit();
    for (int round = 0; round < spins + kYields; ++round) {
        if (round < spins) {
            YieldProcessor();
        } else {
            SwitchToThread();
        }
        if (word.load(std::memory_order_relaxed) != kFree) continue;
        int32_t expected = kFree;
        if (marked ? word.exchange(kContended) == kFree : word.compare_exchange_strong(expected, kHeld)) {
            return VORN_OK;
        }
    }
    while (word.exchange(kContended) != kFree) {
        // The system ends all other threads before it tells the module: the holder will not come back.
        if (ProcessIsEnding()) return VORN_E_SYSTEM;
        if (WaitForSingleObject(mutex->wakeEvent, INFINITE) != WAIT_OBJECT_0) return VORN_E_SYSTEM;
    }
    return VORN_OK;
}

bool TakeFree(VornMutex* mutex, int32_t* found) noexcept
{
    *found = kFree;
    return mutex->lockWord.compare_exchange_strong(*found, kHeld);
}

[[gnu::noinline]] VornStatus WakeSleeper(VornMutex* mutex) noexcept
{
    return SetEvent(mutex->wakeEvent) ? VORN_OK : VORN_E_SYSTEM;
}

inline VornStatus ReleaseWord(VornMutex* mutex) noexcept
{
    const int32_t before = mutex->lockWord.exchange(kFree);
    return __builtin_expect(before >= 0, true) ? VORN_OK : WakeSleeper(mutex);
}

// Writes down who has taken the word. The caller has.
inline void NoteHolder(VornMutex* mutex, VornThread* self) noexcept
{
    if (mutex->kind == VORN_MUTEX_RECURSIVE) {
        mutex->recursionCount = 1;
    } else {
        mutex->holder.store(self, std::memory_order_relaxed);
    }
    mutex->owner.store(self, std::memory_order_relaxed);
}

// Locks a recursive or error-checking mutex whose word is not free.
[[gnu::noinline]] VornStatus LockOwnedContended(VornMutex* mutex, VornThread* self) noexcept
{
    if (mutex->kind == VORN_MUTEX_RECURSIVE) {
        if (mutex->owner.load(std::memory_order_relaxed) == self) {
            ++mutex->recursionCount;
            return VORN_OK;
        }
    } else if (mutex->holder.load(std::memory_order_relaxed) == self) {
        return VORN_E_DEADLOCK;
    }
    const VornStatus status = LockContended(mutex, kHeld);
    if (status == VORN_OK) NoteHolder(mutex, self);
    return status;
}

VornStatus LockOwnedBy(VornMutex* mutex, VornThread* self) noexcept
{
    // The word is compared, not just exchanged, so that a second lock by the holder leaves the sleepers'
    // mark in place.
    int32_t found;
    if (__builtin_expect(!TakeFree(mutex, &found), false)) return LockOwnedContended(mutex, self);
    NoteHolder(mutex, self);
    return VORN_OK;
}

// Locks on behalf of a thread that has no record yet.
[[gnu::noinline]] VornStatus AdoptAndLockOwned(VornMutex* mutex) noexcept
{
    VornThread* const self = VornThreadSelf();
    // Null is nobody's identity: two threads with it could not be told apart.
    return self == nullptr ? VORN_E_NO_MEMORY : LockOwnedBy(mutex, self);
}

[[gnu::noinline]] VornStatus LockOwned(VornMutex* mutex) noexcept
{
    VornThread* const self = CurrentThread();
    return __builtin_expect(self != nullptr, true) ? LockOwnedBy(mutex, self) : AdoptAndLockOwned(mutex);
}

VornStatus TryLockCreated(VornMutex* mutex) noexcept
{
    VornThread* self = nullptr;
    if (mutex->kind != VORN_MUTEX_NORMAL) {
        self = VornThreadSelf();
        if (self == nullptr) return VORN_E_NO_MEMORY;
    }
    int32_t found;
    if (!TakeFree(mutex, &found)) {
        if (mutex->kind != VORN_MUTEX_RECURSIVE || mutex->owner.load(std::memory_order_relaxed) != self) {
            return VORN_E_BUSY;
        }
        ++mutex->recursionCount;
        return VORN_OK;
    }
    if (self != nullptr) NoteHolder(mutex, self);
    return VORN_OK;
}

[[gnu::noinline]] VornStatus UnlockOwned(VornMutex* mutex) noexcept
{
    VornThread* const self = CurrentThread();
    if (mutex->kind == VORN_MUTEX_RECURSIVE) {
        if (self == nullptr || mutex->owner.load(std::memory_order_relaxed) != self)
            return VORN_E_NOT_PERMITTED;
        if (--mutex->recursionCount != 0) return VORN_OK;
        mutex->owner.store(nullptr, std::memory_order_relaxed);
    } else {
        if (self == nullptr || mutex->holder.load(std::memory_order_relaxed) != self)
            return VORN_E_NOT_PERMITTED;
        // Deliberate: an error-checking mutex keeps its last owner in `owner`.
        mutex->holder.store(nullptr, std::memory_order_relaxed);
    }
    return ReleaseWord(mutex);
}

// Another thread may have destroyed the mutex again after its creation, so everything is looked at anew.
[[gnu::noinline]] VornStatus CreateAndLock(VornMutex** mutex) noexcept
{
    const VornStatus status = CreateOnFirstUse(mutex);
    return status == VORN_OK ? VornMutexLock(mutex) : status;
}

[[gnu::noinline]] VornStatus CreateAndTryLock(VornMutex** mutex) noexcept
{
    const VornStatus status = CreateOnFirstUse(mutex);
    return status == VORN_OK ? VornMutexTryLock(mutex) : status;
}

VornStatus DestroyInitializer(VornMutex** mutex) noexcept
{
    StaticInitLock guard;
    if (!IsInitializer(LoadHandle(mutex))) return VORN_E_BUSY;
    StoreHandle<VornMutex>(mutex, nullptr);
    return VORN_OK;
}

}  // namespace

extern "C" VornStatus VornMutexCreate(VornMutex** mutex, const VornMutexAttr* attr)
{
    if (mutex == nullptr) return VORN_E_INVALID_ARG;
    if (attr == nullptr) attr = &kDefaultAttr;
    if (attr->kind > VORN_MUTEX_ERRORCHECK || attr->shared > 1) return VORN_E_INVALID_ARG;
    if (attr->shared == 1) return VORN_E_NOT_SUPPORTED;
    VornMutex* created;
    const VornStatus status = MakeMutex(&created, *attr);
    StoreHandle(mutex, created);
    return status;
}

// The way of a lock that needs no creation, no owner and no waiting is straight and saves no register: stores
// before the exchange would have to be finished first. Everything else is called from its end.
extern "C" VornStatus VornMutexLock(VornMutex** mutex)
{
    if (mutex == nullptr) return VORN_E_INVALID_ARG;
    VornMutex* const created = LoadHandle(mutex);
    if (__builtin_expect(IsInitializerOrNull(created), false)) return CreateAndLock(mutex);
    if (__builtin_expect(created->kind != VORN_MUTEX_NORMAL, false)) return LockOwned(created);
    const int32_t found = created->lockWord.exchange(kHeld);
    return __builtin_expect(found == kFree, true) ? VORN_OK : LockContended(created, found);
}

extern "C" VornStatus VornMutexTryLock(VornMutex** mutex)
{
    if (mutex == nullptr) return VORN_E_INVALID_ARG;
    VornMutex* const created = LoadHandle(mutex);
    return IsInitializerOrNull(created) ? CreateAndTryLock(mutex) : TryLockCreated(created);
}

extern "C" VornStatus VornMutexUnlock(VornMutex** mutex)
{
    if (mutex == nullptr) return VORN_E_INVALID_ARG;
    VornMutex* const created = LoadHandle(mutex);
    if (__builtin_expect(IsInitializerOrNull(created), false)) return VORN_E_INVALID_ARG;
    if (__builtin_expect(created->kind != VORN_MUTEX_NORMAL, false)) return UnlockOwned(created);
    return ReleaseWord(created);
}

extern "C" VornStatus VornMutexDestroy(VornMutex** mutex)
{
    if (mutex == nullptr) return VORN_E_INVALID_ARG;
    VornMutex* handle = LoadHandle(mutex);
    if (handle == nullptr) return VORN_E_INVALID_ARG;
    if (IsInitializer(handle)) return DestroyInitializer(mutex);

    VornStatus status = TryLockCreated(handle);
    if (status != VORN_OK) return status;
    if (handle->kind == VORN_MUTEX_RECURSIVE && handle->recursionCount != 1) {
        --handle->recursionCount;
        return VORN_E_BUSY;
    }
    StoreHandle<VornMutex>(mutex, nullptr);
    status = VornMutexUnlock(&handle);
    if (status != VORN_OK) {
        StoreHandle(mutex, handle);
        return status;
    }
    CloseHandle(handle->wakeEvent);
    std::free(handle);
    return VORN_OK;
}
