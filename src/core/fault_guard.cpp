#include "core/fault_guard.h"

#include "core/win32.h"

// VornGuardedCall: an ordinary call inside a frame of its own, whose unwind data names a handler. A fault
// further in makes the system ask the handler; for a machine fault the handler unwinds the stack to this
// frame and continues behind the call, with kGuardedCallFaulted in rax.
asm(R"(
    .text
    .p2align 6
    .globl VornGuardedCall
    .def VornGuardedCall; .scl 2; .type 32; .endef
    .seh_proc VornGuardedCall
VornGuardedCall:
    subq $56, %rsp
    .seh_stackalloc 56
    .seh_endprologue
    .seh_handler VornGuardedCallHandler, @except
    movq %rcx, %rax
    movq %rdx, %rcx
    movq %r8, %rdx
    movq %r9, %r8
    movq 96(%rsp), %r9
    movq 104(%rsp), %r10
    movq %r10, 32(%rsp)
    call *%rax
    movl %eax, %eax
    .globl VornGuardedCallResume
VornGuardedCallResume:
    addq $56, %rsp
    ret
    .seh_endproc
)");

extern "C" char VornGuardedCallResume;

namespace {

// What the processor or the kernel raises has the severity warning or error and, unlike what programs
// raise, a clear customer bit.
bool IsMachineFault(DWORD code)
{
    constexpr DWORD kSeverityWarning = 0x80000000;
    constexpr DWORD kCustomer = 0x20000000;
    switch (code) {
        case EXCEPTION_BREAKPOINT:   // the debugger's
        case EXCEPTION_SINGLE_STEP:  // the debugger's
        case EXCEPTION_STACK_OVERFLOW:
            return false;
        default:
            return (code & kSeverityWarning) != 0 && (code & kCustomer) == 0;
    }
}

}  // namespace

extern "C" __attribute__((used)) EXCEPTION_DISPOSITION VornGuardedCallHandler(EXCEPTION_RECORD* record,
                                                                              void* frame, CONTEXT*,
                                                                              DISPATCHER_CONTEXT* dispatcher)
{
    if (!IsMachineFault(record->ExceptionCode)) return ExceptionContinueSearch;
    RtlUnwindEx(frame, &VornGuardedCallResume, record,
                reinterpret_cast<void*>(vorn::detail::kGuardedCallFaulted), dispatcher->ContextRecord,
                dispatcher->HistoryTable);
    return ExceptionContinueSearch;  // not reached: the unwinding continues at the resume point
}
