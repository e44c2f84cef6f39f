#include "core/win32.h"

#include "core/record.h"
#include "thread/semaphore.h"

#include <atomic>
#include <cstddef>
#include <utility>

// `height` threads share a barrier. A phase ends when each of them has arrived: the last one sets up the next
// phase, then lets the others go. Nobody returns before the phase field has been turned, so a thread that
// comes again always meets the next phase, and sleeps on the other semaphore.
struct VornBarrier {
    uint32_t height;
    std::atomic<int32_t> remaining;  // arrivals still missing in this phase
    std::atomic<uint32_t> phase;     // 0 or 1: the semaphore that this phase sleeps on
    VornSemaphore* semaphores[2];
};
static_assert(offsetof(VornBarrier, remaining) == 4 && offsetof(VornBarrier, phase) == 8 &&
              offsetof(VornBarrier, semaphores) == 16);

using namespace vorn::detail;

extern "C" VornStatus VornBarrierCreate(VornBarrier** out, uint32_t count, uint32_t shared)
{
    if (shared == 1) return VORN_E_NOT_SUPPORTED;
    if (out == nullptr || count == 0 || shared != 0) return VORN_E_INVALID_ARG;
    Record<VornBarrier> barrier;
    if (!barrier) return VORN_E_NO_MEMORY;
    barrier->height = count;
    barrier->remaining = static_cast<int32_t>(count);
    VornStatus status = VornSemaphoreCreate(&barrier->semaphores[0], 0, 0);
    if (status != VORN_OK) return status;
    status = VornSemaphoreCreate(&barrier->semaphores[1], 0, 0);
    if (status != VORN_OK) {
        VornSemaphoreClose(&barrier->semaphores[0]);
        return status;
    }
    *out = barrier.Release();
    return VORN_OK;
}

extern "C" VornStatus VornBarrierDestroy(VornBarrier** barrier)
{
    if (barrier == nullptr || *barrier == nullptr) return VORN_E_INVALID_ARG;
    Record<VornBarrier> record(std::exchange(*barrier, nullptr));
    const VornStatus first = VornSemaphoreClose(&record->semaphores[0]);
    const VornStatus second = VornSemaphoreClose(&record->semaphores[1]);
    return first != VORN_OK || second != VORN_OK ? VORN_E_SYSTEM : VORN_OK;
}

extern "C" VornStatus VornBarrierWait(VornBarrier** handle)
{
    if (handle == nullptr || *handle == nullptr) return VORN_E_INVALID_ARG;
    VornBarrier* const barrier = *handle;
    uint32_t phase = barrier->phase.load();
    HANDLE const semaphore = barrier->semaphores[phase]->native;
    if (barrier->remaining.fetch_sub(1) == 1) {
        // Before anybody is let go: whoever is may arrive for the next phase at once.
        barrier->remaining.store(static_cast<int32_t>(barrier->height));
        if (barrier->height > 1 &&
            !ReleaseSemaphore(semaphore, static_cast<LONG>(barrier->height - 1), nullptr)) {
            return VORN_E_SYSTEM;
        }
    } else if (WaitForSingleObject(semaphore, INFINITE) != WAIT_OBJECT_0) {
        return VORN_E_SYSTEM;
    }
    // Deliberate: the serial thread is the first to leave, which need not be the last that arrived.
    return barrier->phase.compare_exchange_strong(phase, 1 - phase) ? VORN_BARRIER_SERIAL_THREAD : VORN_OK;
}
