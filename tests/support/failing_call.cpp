#include "support/failing_call.h"

#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <set>
#include <string>

namespace vorn_test {

namespace {

std::mutex summaryMutex;
std::set<std::string> failedImports;  // guarded by summaryMutex
long failuresDelivered = 0;           // guarded by summaryMutex

[[noreturn]] void ThrowBadAlloc()
{
    throw std::bad_alloc();
}

// Machine code for: if (Decide(self)) fail; else continue in the original with all arguments as they were.
// The stub leaves no frame behind when it continues, so exceptions pass it as if it were not there.
class StubWriter {
public:
    explicit StubWriter(uint8_t* code) : code_(code) {}
    void Bytes(std::initializer_list<uint8_t> bytes)
    {
        for (uint8_t byte : bytes) code_[size_++] = byte;
    }
    void Address(const void* address)
    {
        std::memcpy(code_ + size_, &address, sizeof(address));
        size_ += sizeof(address);
    }

private:
    uint8_t* code_;
    size_t size_ = 0;
};

}  // namespace

FailingCall::FailingCall(const FaultPoint& point, long nth, bool andAllAfter, HMODULE module)
    : point_(point), nth_(nth), andAllAfter_(andAllAfter)
{
    void** slot = FindImport(module, point.import);
    if (slot == nullptr) return;
    stub_ = static_cast<uint8_t*>(VirtualAlloc(nullptr, 4096, MEM_COMMIT, PAGE_EXECUTE_READWRITE));
    if (stub_ == nullptr) return;
    bool (*decide)(FailingCall*) noexcept = &FailingCall::Decide;
    uint64_t (*giveResult)(FailingCall*) noexcept = &FailingCall::Return;
    StubWriter code(stub_);
    code.Bytes({0x51, 0x52, 0x41, 0x50, 0x41, 0x51});  // push rcx, rdx, r8, r9
    code.Bytes({0x48, 0x83, 0xEC, 0x28});              // sub rsp, 40
    code.Bytes({0x48, 0xB9});                          // mov rcx, self
    code.Address(this);
    code.Bytes({0x48, 0xB8});  // mov rax, Decide
    code.Address(reinterpret_cast<void*>(decide));
    code.Bytes({0xFF, 0xD0});                          // call rax
    code.Bytes({0x48, 0x83, 0xC4, 0x28});              // add rsp, 40
    code.Bytes({0x41, 0x59, 0x41, 0x58, 0x5A, 0x59});  // pop r9, r8, rdx, rcx
    code.Bytes({0x84, 0xC0, 0x75, 0x0C});              // test al, al; jnz over the jump
    code.Bytes({0x48, 0xB8});                          // mov rax, original
    code.Address(*slot);
    code.Bytes({0xFF, 0xE0});  // jmp rax
    if (point.throws) {
        code.Bytes({0x48, 0xB8});  // mov rax, ThrowBadAlloc
        code.Address(reinterpret_cast<void*>(&ThrowBadAlloc));
    } else {
        code.Bytes({0x48, 0xB9});  // mov rcx, self
        code.Address(this);
        code.Bytes({0x48, 0xB8});  // mov rax, Return
        code.Address(reinterpret_cast<void*>(giveResult));
    }
    code.Bytes({0xFF, 0xE0});  // jmp rax: its return is the call's return
    FlushInstructionCache(GetCurrentProcess(), stub_, 4096);
    redirect_ = new ImportRedirect(point.import, static_cast<void*>(stub_), module);
}

FailingCall::~FailingCall()
{
    delete redirect_;
    if (stub_ != nullptr) VirtualFree(stub_, 0, MEM_RELEASE);
    if (failures_ == 0) return;
    std::lock_guard<std::mutex> lock(summaryMutex);
    failedImports.insert(point_.import);
    failuresDelivered += failures_;
}

bool FailingCall::Decide(FailingCall* self) noexcept
{
    const DWORD error = GetLastError();
    const long call = self->calls_.fetch_add(1) + 1;
    const bool fails = self->nth_ != 0 && (call == self->nth_ || (self->andAllAfter_ && call > self->nth_));
    if (fails) self->failures_.fetch_add(1);
    SetLastError(error);
    return fails;
}

uint64_t FailingCall::Return(FailingCall* self) noexcept
{
    SetLastError(self->point_.error);
    return self->point_.result;
}

void PrintFaultSummary()
{
    std::lock_guard<std::mutex> lock(summaryMutex);
    if (failuresDelivered == 0) return;
    std::printf("fault injection: %ld failures delivered at %zu different imports\n", failuresDelivered,
                failedImports.size());
    std::fflush(stdout);
}

}  // namespace vorn_test
