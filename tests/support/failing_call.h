// failing_call.h - makes chosen calls that the module makes fail, whatever the called function's signature.
//
//     FailingCall fail(kMalloc, 2);             // the second malloc from here on gives null
//     FailEachCallInTurn(kCreateEvent, [&] {    // first run: call 1 fails; second run: call 2 fails; ...
//         ...                                   // until a run makes fewer calls
//     });
//
// The test program prints at its end how many failures were delivered, over how many different imports.
#ifndef VORN_TESTS_SUPPORT_FAILING_CALL_H
#define VORN_TESTS_SUPPORT_FAILING_CALL_H

#include "support/import_redirect.h"

#include <atomic>
#include <initializer_list>

namespace vorn_test {

// One imported function and how it fails.
struct FaultPoint {
    const char* import;
    uint64_t result;      // what the failing call returns
    DWORD error;          // what GetLastError says then
    bool throws = false;  // std::bad_alloc is thrown instead
};

constexpr DWORD kNotEnoughMemory = 8;
constexpr DWORD kGenericFailure = 31;
constexpr uint64_t kInvalidHandle = ~uint64_t{0};
constexpr uint64_t kWaitFailed = 0xFFFFFFFF;

constexpr FaultPoint kMalloc = {"malloc", 0, kNotEnoughMemory};
constexpr FaultPoint kCalloc = {"calloc", 0, kNotEnoughMemory};
constexpr FaultPoint kRealloc = {"realloc", 0, kNotEnoughMemory};
constexpr FaultPoint kNew = {"_Znwy", 0, kNotEnoughMemory, true};
constexpr FaultPoint kNewArray = {"_Znay", 0, kNotEnoughMemory, true};
constexpr FaultPoint kNewNothrow = {"_ZnwyRKSt9nothrow_t", 0, kNotEnoughMemory};
constexpr FaultPoint kNewArrayNothrow = {"_ZnayRKSt9nothrow_t", 0, kNotEnoughMemory};

// Every way in which the module allocates.
constexpr std::initializer_list<FaultPoint> kAllocations = {kMalloc,   kCalloc,     kRealloc,        kNew,
                                                            kNewArray, kNewNothrow, kNewArrayNothrow};

constexpr FaultPoint kCreateEvent = {"CreateEventW", 0, kGenericFailure};
constexpr FaultPoint kSetEvent = {"SetEvent", 0, kGenericFailure};
constexpr FaultPoint kResetEvent = {"ResetEvent", 0, kGenericFailure};
constexpr FaultPoint kCreateSemaphore = {"CreateSemaphoreW", 0, kGenericFailure};
constexpr FaultPoint kReleaseSemaphore = {"ReleaseSemaphore", 0, kGenericFailure};
constexpr FaultPoint kWaitForSingleObject = {"WaitForSingleObject", kWaitFailed, kGenericFailure};
constexpr FaultPoint kWaitForMultipleObjects = {"WaitForMultipleObjects", kWaitFailed, kGenericFailure};
constexpr FaultPoint kCloseHandle = {"CloseHandle", 0, kGenericFailure};
constexpr FaultPoint kCreateThread = {"CreateThread", 0, kGenericFailure};
constexpr FaultPoint kTlsAlloc = {"TlsAlloc", 0xFFFFFFFF, kGenericFailure};
constexpr FaultPoint kTlsSetValue = {"TlsSetValue", 0, kGenericFailure};

// While it lives, the `nth` call (counted from 1) of the import fails; with `andAllAfter` the later ones too.
// nth 0 lets every call through and only counts. May be used while several threads call the import.
class FailingCall {
public:
    explicit FailingCall(const FaultPoint& point, long nth = 1, bool andAllAfter = false,
                         HMODULE module = VornModule());
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;
    ~FailingCall();

    bool Found() const { return redirect_ != nullptr && redirect_->Found(); }
    long Calls() const { return calls_.load(); }
    long Failures() const { return failures_.load(); }

private:
    static bool Decide(FailingCall* self) noexcept;
    static uint64_t Return(FailingCall* self) noexcept;

    FaultPoint point_;
    long nth_;
    bool andAllAfter_;
    std::atomic<long> calls_{0};
    std::atomic<long> failures_{0};
    uint8_t* stub_ = nullptr;
    ImportRedirect* redirect_ = nullptr;
};

// Runs `body` again and again, each time with the next call of the import failing, until a run makes no
// failing call any more. Returns the number of failures delivered; 0 when the module never makes the call.
template <class Body>
long FailEachCallInTurn(const FaultPoint& point, Body&& body, HMODULE module = VornModule())
{
    for (long nth = 1;; ++nth) {
        FailingCall fail(point, nth, false, module);
        body();
        if (fail.Failures() == 0) return nth - 1;
    }
}

// The same for each of several imports.
template <class Body>
long FailEachCallInTurn(std::initializer_list<FaultPoint> points, Body&& body, HMODULE module = VornModule())
{
    long delivered = 0;
    for (const FaultPoint& point : points) delivered += FailEachCallInTurn(point, body, module);
    return delivered;
}

// Printed by the test program's main.
void PrintFaultSummary();

}  // namespace vorn_test

#endif
