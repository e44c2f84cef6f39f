#include "thread/condition_gate.h"

#include "thread/cancellable_wait.h"
#include "thread/cleanup.h"

namespace vorn::detail {

namespace {

// Gate word:  kOpen 0;  kClosed 1, no sleeper known;  kClosedSleepers -1, a thread may sleep at the gate.
// A thread that has slept closes the gate as kClosedSleepers: it cannot know that it slept alone.
constexpr int32_t kOpen = 0;
constexpr int32_t kClosed = 1;
constexpr int32_t kClosedSleepers = -1;

// The gate is mostly closed for a few instructions only.
constexpr int kSpins = 60;

bool TryCloseGate(VornCondition* condition) noexcept
{
    int32_t expected = kOpen;
    return condition->gateWord.compare_exchange_strong(expected, kClosed);
}

[[gnu::noinline]] VornStatus SleepAtGate(VornCondition* condition, void (*undo)(void*))
{
    for (int spins = kSpins; spins > 0; --spins) {
        YieldProcessor();
        if (condition->gateWord.load(std::memory_order_relaxed) == kOpen && TryCloseGate(condition)) {
            return VORN_OK;
        }
    }
    GateContext* context = nullptr;
    if (undo != nullptr) context = static_cast<GateContext*>(PushCleanup(undo, sizeof(GateContext)));
    if (context != nullptr) context->condition = condition;
    HANDLE const gate = condition->gate->native;
    VornStatus status = VORN_OK;
    while (status == VORN_OK && condition->gateWord.exchange(kClosedSleepers) != kOpen) {
        status = context != nullptr ? WaitCancellable(gate, INFINITE) : WaitPlain(gate, INFINITE);
    }
    if (context != nullptr) RemoveCleanup(context, false);
    return status;
}

}  // namespace

VornStatus WaitPlain(HANDLE object, DWORD timeoutMs) noexcept
{
    switch (WaitForSingleObject(object, timeoutMs)) {
        case WAIT_OBJECT_0:
            return VORN_OK;
        case WAIT_TIMEOUT:
            return VORN_E_TIMEOUT;
        default:
            return VORN_E_SYSTEM;
    }
}

VornStatus CloseGate(VornCondition* condition, void (*undo)(void*))
{
    return TryCloseGate(condition) ? VORN_OK : SleepAtGate(condition, undo);
}

VornStatus OpenGate(VornCondition* condition) noexcept
{
    return condition->gateWord.exchange(kOpen) == kClosedSleepers ? PostSemaphore(condition->gate, 1)
                                                                  : VORN_OK;
}

}  // namespace vorn::detail
