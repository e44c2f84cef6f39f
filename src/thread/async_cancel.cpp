#include "thread/async_cancel.h"

#include "thread/cancel.h"
#include "thread/handler_table.h"
#include "thread/mutex_record.h"
#include "thread/thread_exception.h"
#include "thread/thread_record.h"

#include <cxxabi.h>
#include <exception>
#include <type_traits>

namespace vorn::detail {

namespace {

constexpr DWORD64 kDirectionFlag = 0x400;
constexpr DWORD64 kStackAlignment = 16;
// Between the interrupted stack pointer and the trampoline's frames: room for the return address by which
// the unwinding is later entered from the interrupted frame.
constexpr DWORD64 kGap = 256;

// "GNUCC++" and 1 for a dependent exception.
constexpr _Unwind_Exception_Class kDependentException = 0x474E5543432B2B01;

// Lives as long as the module: a handler may keep a reference to it.
const std::exception_ptr cancelException = std::make_exception_ptr(ThreadExceptionCancel());

// The exception object that it refers to: its only field.
void* ObjectOf(const std::exception_ptr& exception) noexcept
{
    static_assert(sizeof(std::exception_ptr) == sizeof(void*) &&
                  std::is_standard_layout_v<std::exception_ptr>);
    return *reinterpret_cast<void* const*>(&exception);
}

// Jumps to the start routine, where nothing is in flight and nothing is being handled.
[[noreturn]] void Escape(CancelUnwind* unwind) noexcept
{
    *unwind->runtime = {};
    longjmp(unwind->escape, 1);
}

struct Frame {
    uintptr_t region;  // where the frame's function starts; 0 for a leaf without unwind data
    uintptr_t place;   // the instruction in it: interrupted, or to be returned to
    FrameAction action;
};

// Describes the frame that `context` is in and takes `context` to the frame's caller. False when the stack
// cannot be followed further. `innermost` is set for the interrupted frame, the only one that may be a leaf.
bool StepOut(const CancelUnwind* unwind, CONTEXT* context, bool innermost, Frame* frame) noexcept
{
    const DWORD64 stack = context->Rsp;
    const auto top = reinterpret_cast<DWORD64>(unwind);
    frame->place = context->Rip;
    DWORD64 base = 0;
    PRUNTIME_FUNCTION const function = RtlLookupFunctionEntry(context->Rip, &base, nullptr);
    if (function == nullptr) {
        if (!innermost || stack % sizeof(DWORD64) != 0 || stack >= top) return false;
        frame->region = 0;
        frame->action = FrameAction::kNone;
        context->Rip = *reinterpret_cast<const DWORD64*>(stack);
        context->Rsp += sizeof(DWORD64);
        return true;
    }
    frame->region = base + function->BeginAddress;
    void* table = nullptr;
    DWORD64 establisher = 0;
    const bool hasHandler = RtlVirtualUnwind(UNW_FLAG_EHANDLER | UNW_FLAG_UHANDLER, base, context->Rip,
                                             function, context, &table, &establisher, nullptr) != nullptr;
    frame->action = FrameAction::kNone;
    if (hasHandler) {
        // The unwinder looks up the byte before the place, which belongs to the call for a place that is
        // returned to.
        frame->action =
            LookUpFrameAction(static_cast<const uint8_t*>(table), frame->place - 1 - frame->region);
    }
    return context->Rip != 0 && context->Rsp > stack && context->Rsp <= top;
}

// Finds the next barrier from `unwind->from` on, or the start routine. Answers whether any frame before it
// has something to run. Does not return when the stack cannot be followed: the thread escapes.
bool FindBarrier(CancelUnwind* unwind, bool* reachesStart) noexcept
{
    CONTEXT* const context = &unwind->afterBarrier;
    *context = unwind->from;
    bool anythingToRun = false;
    for (bool innermost = true;; innermost = false) {
        // Unwinding enters at the first frame that has something to run, and so never at one that is
        // interrupted in its prologue or epilogue, where its frame cannot be told apart from its caller's.
        if (!anythingToRun) unwind->from = *context;
        Frame frame = {};
        // The start routine's own frame may fail the bounds of the step out of it; what counts is its region.
        const bool followed = StepOut(unwind, context, innermost, &frame);
        if (frame.region == unwind->startRegion) {
            *reachesStart = true;
            unwind->barrier = 0;
            return anythingToRun;
        }
        if (!followed) Escape(unwind);
        if (frame.action == FrameAction::kTerminate) {
            *reachesStart = false;
            unwind->barrier = frame.place;
            return anythingToRun;
        }
        // A handler of an unknown kind may have something to run.
        if (frame.action != FrameAction::kNone) anythingToRun = true;
    }
}

[[noreturn]] void UnwindOn(CancelUnwind* unwind) noexcept;

// Called by the forced unwind for each frame before its destructors run.
_Unwind_Reason_Code StopBeforeBarrier(int, _Unwind_Action actions, _Unwind_Exception_Class,
                                      _Unwind_Exception*, _Unwind_Context* context, void* parameter)
{
    auto* const unwind = static_cast<CancelUnwind*>(parameter);
    if ((actions & _UA_END_OF_STACK) != 0) Escape(unwind);
    if (_Unwind_GetRegionStart(context) == unwind->startRegion) Escape(unwind);
    if (unwind->barrier != 0 && _Unwind_GetIP(context) == unwind->barrier) {
        unwind->from = unwind->afterBarrier;
        UnwindOn(unwind);
    }
    return _URC_NO_REASON;
}

void ResumeSwallowed(_Unwind_Reason_Code, _Unwind_Exception*);

// Makes the cancellation one that is in flight, as after a throw.
void PutInFlight(CancelUnwind* unwind) noexcept
{
    unwind->exception = {};
    unwind->exception.primary = ObjectOf(cancelException);
    unwind->exception.header.exception_class = kDependentException;
    unwind->exception.header.exception_cleanup = &ResumeSwallowed;
    ++unwind->runtime->uncaughtExceptions;
}

// Called when a handler that catches everything ends without passing the cancellation on: it goes on from
// here.
void ResumeSwallowed(_Unwind_Reason_Code, _Unwind_Exception*)
{
    CancelUnwind* const unwind = CurrentThread()->unwind;
    PutInFlight(unwind);
    RtlCaptureContext(&unwind->from);
    UnwindOn(unwind);
}

}  // namespace

// Runs as if the frame at `from` had called it.
extern "C" [[noreturn]] void VornCancelForcedUnwind()
{
    CancelUnwind* const unwind = CurrentThread()->unwind;
    _Unwind_ForcedUnwind(&unwind->exception.header, &StopBeforeBarrier, unwind);
    Escape(unwind);  // the unwinder refused
}

// The stack may have any alignment where the thread was interrupted, so the entry aligns it itself, and keeps
// it describable to the unwinder through the frame pointer.
extern "C" void VornCancelEntry();
asm(R"(
    .text
    .seh_proc VornCancelEntry
VornCancelEntry:
    pushq   %rbp
    .seh_pushreg %rbp
    movq    %rsp, %rbp
    .seh_setframe %rbp, 0
    .seh_endprologue
    andq    $-16, %rsp
    subq    $32, %rsp
    call    VornCancelForcedUnwind
    int3
    .seh_endproc
)");

namespace {

[[noreturn]] void UnwindOn(CancelUnwind* unwind) noexcept
{
    for (;;) {
        bool reachesStart;
        const bool anythingToRun = FindBarrier(unwind, &reachesStart);
        if (anythingToRun) break;
        if (reachesStart) Escape(unwind);
        unwind->from = unwind->afterBarrier;
    }
    // The frame at `from` calls the entry. This function runs further down the same stack, so what it writes
    // there overwrites nothing that is needed.
    CONTEXT* const entry = &unwind->from;
    entry->Rsp -= sizeof(DWORD64);
    *reinterpret_cast<DWORD64*>(entry->Rsp) = entry->Rip;
    entry->Rip = reinterpret_cast<DWORD64>(&VornCancelEntry);
    RtlRestoreContext(entry, nullptr);
    Escape(unwind);
}

// Where a diverted thread goes on. It was entered without a call: there is nothing to return to.
[[noreturn]] void CancelTrampoline()
{
    VornThread* const thread = CurrentThread();
    if (thread == nullptr) ExitThread(0xFFFFFFFF);
    ResetEvent(thread->cancelEvent);
    // The thread may have been on its way into its own state lock or out of it: then it has taken the signal
    // that was meant for the next sleeper, or still owes it. One signal too many wakes a sleeper in vain.
    SetEvent(thread->stateLock->wakeEvent);
    if (thread->adopted != 0 || thread->unwind == nullptr) ExitThread(0xFFFFFFFF);
    PutInFlight(thread->unwind);
    UnwindOn(thread->unwind);
}

// Points the suspended thread, which stands at `place`, at the trampoline.
bool Redirect(VornThread* thread, CONTEXT* place) noexcept
{
    if (thread->unwind != nullptr) thread->unwind->from = *place;
    place->ContextFlags = CONTEXT_CONTROL;
    place->Rip = reinterpret_cast<DWORD64>(&CancelTrampoline);
    // As after a call: a return address is on the stack that was aligned before.
    place->Rsp = ((place->Rsp - kGap) & ~(kStackAlignment - 1)) - sizeof(DWORD64);
    place->EFlags &= ~static_cast<DWORD>(kDirectionFlag);
    return SetThreadContext(thread->handle, place);
}

}  // namespace

void PrepareCancelUnwind(CancelUnwind* unwind, const void* address) noexcept
{
    const auto place = reinterpret_cast<DWORD64>(address);
    DWORD64 base = 0;
    PRUNTIME_FUNCTION const function = RtlLookupFunctionEntry(place, &base, nullptr);
    unwind->startRegion = function == nullptr ? place : base + function->BeginAddress;
    unwind->runtime = nullptr;
}

void PrepareToBeDiverted(VornThread* thread) noexcept
{
    if (thread == nullptr || thread->unwind == nullptr || thread->unwind->runtime != nullptr) return;
    thread->unwind->runtime = reinterpret_cast<RuntimeState*>(abi::__cxa_get_globals());
}

// Between suspending and resuming nothing is called that could need a lock: the thread may hold any.
VornStatus DivertToCancellation(VornThread* thread) noexcept
{
    if (!HandleNamesThread(thread)) return VORN_E_SYSTEM;
    if (SuspendThread(thread->handle) == static_cast<DWORD>(-1)) return VORN_E_SYSTEM;
    VornStatus status = VORN_E_SYSTEM;
    CONTEXT place;
    place.ContextFlags = CONTEXT_FULL;
    // The system stops the thread in its own time. Only once its context has been read does it stand still,
    // and only then does what it says of itself hold.
    if (GetThreadContext(thread->handle, &place)) {
        if (thread->uncancellable.load()) {
            status = VORN_E_BUSY;
        } else if (Redirect(thread, &place)) {
            BeginCancellationLocked(thread);
            status = VORN_OK;
        }
    }
    ResumeThread(thread->handle);
    // A thread inside a cancellable wait comes out of it now instead of when its wait ends.
    if (status == VORN_OK) SetEvent(thread->cancelEvent);
    return status;
}

}  // namespace vorn::detail
