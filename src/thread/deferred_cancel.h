// deferred_cancel.h - keeps an asynchronous cancellation out of a stretch of code that must be left in order.
#ifndef VORN_THREAD_DEFERRED_CANCEL_H
#define VORN_THREAD_DEFERRED_CANCEL_H

#include <vorn/thread.h>

#include "thread/thread_record.h"

namespace vorn::detail {

// From construction to End a thread with the asynchronous type has the deferred one: a request then breaks
// off a cancellable wait in it, and nothing else. A wait that is interrupted anywhere would leave the
// question open whether it had taken its wake-up.
class DeferredCancel {
public:
    DeferredCancel()
    {
        const VornThread* const thread = CurrentThread();
        if (thread == nullptr ||
            thread->cancelType.load(std::memory_order_relaxed) != VORN_CANCEL_ASYNCHRONOUS) {
            return;
        }
        deferred_ = VornThreadSetCancelType(VORN_CANCEL_DEFERRED, nullptr) == VORN_OK;
    }
    DeferredCancel(const DeferredCancel&) = delete;
    DeferredCancel& operator=(const DeferredCancel&) = delete;

    // Gives the thread its type back. A request that came meanwhile is acted on here, and does not return.
    void End()
    {
        if (deferred_) VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
    }

private:
    bool deferred_ = false;
};

// Runs a call of the library that way which holds a lock or a record: a thread that was ended inside it would
// keep them.
template <class Body>
VornStatus RunDeferred(Body body)
{
    DeferredCancel deferral;
    const VornStatus status = body();
    deferral.End();
    return status;
}

}  // namespace vorn::detail

#endif
