#include "thread/cancellable_wait.h"

#include "thread/cancel.h"
#include "thread/thread_record.h"

namespace vorn::detail {

VornStatus WaitCancellable(HANDLE object, DWORD timeoutMs)
{
    VornThread* const thread = CurrentThread();
    const bool cancellable = thread != nullptr && CancellationEnabled(thread);
    // The object comes first: a thread whose wait has ended takes its result rather than the request.
    const HANDLE objects[] = {object, cancellable ? thread->cancelEvent : nullptr};
    switch (WaitForMultipleObjects(cancellable ? 2 : 1, objects, FALSE, timeoutMs)) {
        case WAIT_OBJECT_0:
            return VORN_OK;
        case WAIT_OBJECT_0 + 1:
            return CancelAfterEvent(thread);
        case WAIT_TIMEOUT:
            return VORN_E_TIMEOUT;
        default:
            return VORN_E_SYSTEM;
    }
}

}  // namespace vorn::detail
