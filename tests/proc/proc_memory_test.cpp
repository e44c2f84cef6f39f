#include "proc/proc_fixture.h"

#include <vector>

using namespace vorn_test;

namespace {

class ProcMemory : public ProcTest {
protected:
    ~ProcMemory() override { RevertToSelf(); }

    VornPPid* self = VornProcGetCurrentPPid();
};

DWORD rightsAtOpen = 0;
DebugState stateAtOpen = DebugState::kAbsent;
HANDLE WINAPI NoteStateAtOpen(DWORD rights, BOOL inherit, DWORD id)
{
    rightsAtOpen = rights;
    stateAtOpen = ReadDebugState();
    return OpenProcess(rights, inherit, id);
}

// A transfer that meets the end of what is mapped after half of the range.
BOOL WINAPI TransferHalf(HANDLE, void*, void*, SIZE_T size, SIZE_T* count)
{
    *count = size / 2;
    SetLastError(ERROR_PARTIAL_COPY);
    return FALSE;
}

// Where two processes tell each other the address of their memory.
struct Meeting {
    uint64_t address[2];
};

constexpr uint32_t kExchanged = 100000;

uint8_t PatternAt(uint32_t index, uint32_t process)
{
    return static_cast<uint8_t>(index * 7 + process * 13 + index / 251);
}

}  // namespace

VORN_CHILD_RUNS_UNTIL_TOLD

VORN_CHILD(ReturnsItsArgument)
{
    return static_cast<int>(std::stoul(arguments[0]));
}

// Fills its memory with a pattern, reads the parent's, writes its own over the parent's second half.
VORN_CHILD(ExchangesMemory)
{
    if (VornInitialize() != VORN_OK) return 1;
    const std::wstring& name = arguments[0];
    HANDLE mapping = OpenFileMappingW(FILE_MAP_WRITE, FALSE, name.c_str());
    auto* meeting = static_cast<Meeting*>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, sizeof(Meeting)));
    if (meeting == nullptr) return 2;
    Event ready((name + L"-ready").c_str());
    Event done((name + L"-done").c_str());
    std::vector<uint8_t> own(2 * kExchanged);
    for (uint32_t i = 0; i < kExchanged; ++i) own[i] = PatternAt(i, 1);
    meeting->address[1] = reinterpret_cast<uint64_t>(own.data());
    VornPPid* parent = VornProcNative2PPid(static_cast<uint32_t>(std::stoul(arguments[1])));
    if (parent == nullptr) return 3;
    std::vector<uint8_t> read(kExchanged);
    uint32_t count = 0;
    const auto* theirs = reinterpret_cast<const uint8_t*>(meeting->address[0]);
    if (VornProcMemRead(parent, theirs, read.data(), kExchanged, &count) != VORN_OK) return 4;
    if (count != kExchanged) return 5;
    for (uint32_t i = 0; i < kExchanged; ++i) {
        if (read[i] != PatternAt(i, 0)) return 6;
    }
    if (VornProcMemWrite(parent, const_cast<uint8_t*>(theirs) + kExchanged, own.data(), kExchanged, &count) !=
            VORN_OK ||
        count != kExchanged)
    {
        return 7;
    }
    ready.Set();
    if (!done.Wait()) return 8;
    for (uint32_t i = 0; i < kExchanged; ++i) {
        if (own[kExchanged + i] != PatternAt(i, 0)) return 9;
    }
    return 0;
}

TEST_F(ProcMemory, TwoProcessesReadAndWriteEachOther)
{
    const std::wstring name = UniqueName(L"vorn-memory");
    HANDLE mapping =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Meeting), name.c_str());
    auto* meeting = static_cast<Meeting*>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, sizeof(Meeting)));
    Event ready((name + L"-ready").c_str());
    Event done((name + L"-done").c_str());
    std::vector<uint8_t> own(2 * kExchanged);
    for (uint32_t i = 0; i < kExchanged; ++i) own[i] = PatternAt(i, 0);
    meeting->address[0] = reinterpret_cast<uint64_t>(own.data());
    VornPPid* child = StartChild(L"ExchangesMemory", name + L" " + std::to_wstring(GetCurrentProcessId()));
    ASSERT_NE(child, nullptr);
    VornPPid* childById = VornProcNative2PPid(VornProcPPid2Native(child));
    ASSERT_TRUE(ready.Wait());
    for (uint32_t i = 0; i < kExchanged; ++i) ASSERT_EQ(own[kExchanged + i], PatternAt(i, 1)) << i;
    // Through the handle that the record keeps, and through one opened by id.
    auto* theirs = reinterpret_cast<uint8_t*>(meeting->address[1]);
    for (VornPPid* ppid : {child, childById}) {
        std::vector<uint8_t> read(kExchanged);
        uint32_t count = 0;
        EXPECT_EQ(VornProcMemRead(ppid, theirs, read.data(), kExchanged, &count), VORN_OK);
        EXPECT_EQ(count, kExchanged);
        for (uint32_t i = 0; i < kExchanged; ++i) ASSERT_EQ(read[i], PatternAt(i, 1)) << i;
    }
    EXPECT_EQ(VornProcMemWrite(child, theirs + kExchanged, own.data(), kExchanged / 2, nullptr), VORN_OK);
    EXPECT_EQ(VornProcMemWrite(childById, theirs + kExchanged + kExchanged / 2, own.data() + kExchanged / 2,
                               kExchanged / 2, nullptr),
              VORN_OK);
    done.Set();
    EXPECT_EQ(VornProcWaitForTerm(child, kLongWait), VORN_OK);
    uint32_t code = 99;
    EXPECT_EQ(VornProcGetExitCode(child, &code), VORN_OK);
    EXPECT_EQ(code, 0u);
    VornProcFreePPid(child);
    VornProcFreePPid(childById);
    UnmapViewOfFile(meeting);
    CloseHandle(mapping);
}

TEST_F(ProcMemory, RefusesBadArguments)
{
    int source = 5;
    int target = 6;
    uint32_t count = 77;
    auto* unknown = reinterpret_cast<VornPPid*>(&source);
    for (VornPPid* ppid : {static_cast<VornPPid*>(nullptr), unknown}) {
        EXPECT_EQ(VornProcMemRead(ppid, &source, &target, sizeof(int), &count), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornProcMemWrite(ppid, &target, &source, sizeof(int), &count), VORN_E_INVALID_ARG);
    }
    EXPECT_EQ(VornProcMemRead(self, &source, nullptr, sizeof(int), &count), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcMemWrite(self, &target, nullptr, sizeof(int), &count), VORN_E_INVALID_ARG);
    EXPECT_EQ(count, 77u);
    EXPECT_EQ(target, 6);
}

TEST_F(ProcMemory, DoesNotTouchTheProcessForASizeOfZero)
{
    const FailingCall open(kOpenProcess, 0);
    const FailingCall token(kOpenThreadToken, 0);
    int value = 5;
    EXPECT_EQ(VornProcMemRead(self, &value, &value, 0, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcMemWrite(self, &value, &value, 0, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(open.Calls(), 0);
    EXPECT_EQ(token.Calls(), 0);
}

TEST_F(ProcMemory, AsksForTheRightsItNeeds)
{
    const ImportRedirect open("OpenProcess", &NoteStateAtOpen);
    int source = 5;
    int target = 6;
    EXPECT_EQ(VornProcMemRead(self, &source, &target, sizeof(int), nullptr), VORN_OK);
    EXPECT_EQ(target, 5);
    EXPECT_EQ(rightsAtOpen, PROCESS_VM_READ);
    source = 9;
    EXPECT_EQ(VornProcMemWrite(self, &target, &source, sizeof(int), nullptr), VORN_OK);
    EXPECT_EQ(target, 9);
    EXPECT_EQ(rightsAtOpen, PROCESS_VM_WRITE | PROCESS_VM_OPERATION);
}

TEST_F(ProcMemory, UsesTheHandleThatTheRecordKeeps)
{
    RunningChild child;
    uint8_t byte = 0;
    const FailingCall open(kOpenProcess, 1, true);
    EXPECT_EQ(VornProcMemRead(child.ppid, GetModuleHandleW(nullptr), &byte, 1, nullptr), VORN_OK);
    EXPECT_EQ(byte, 'M');  // of the executable's own header
    EXPECT_EQ(open.Calls(), 0);
}

TEST_F(ProcMemory, ReportsUnmappedMemoryAndLeavesTheCount)
{
    uint8_t byte = 1;
    uint32_t count = 77;
    auto* const nowhere = reinterpret_cast<uint8_t*>(0x10);
    EXPECT_EQ(VornProcMemRead(self, nowhere, &byte, 1, &count), VORN_E_READ);
    EXPECT_EQ(VornProcMemWrite(self, nowhere, &byte, 1, &count), VORN_E_WRITE);
    RunningChild child;
    EXPECT_EQ(VornProcMemRead(child.ppid, nowhere, &byte, 1, &count), VORN_E_READ);
    EXPECT_EQ(VornProcMemWrite(child.ppid, nowhere, &byte, 1, &count), VORN_E_WRITE);
    EXPECT_EQ(count, 77u);
}

TEST_F(ProcMemory, ReportsATransferThatEndsHalfway)
{
    const ImportRedirect read("ReadProcessMemory", &TransferHalf);
    const ImportRedirect write("WriteProcessMemory", &TransferHalf);
    uint8_t buffer[8];
    uint32_t count = 77;
    EXPECT_EQ(VornProcMemRead(self, buffer, buffer, 8, &count), VORN_E_READ);
    EXPECT_EQ(VornProcMemWrite(self, buffer, buffer, 8, &count), VORN_E_WRITE);
    EXPECT_EQ(count, 77u);
}

TEST_F(ProcMemory, ReportsMemoryThatIsNotWritable)
{
    void* page = VirtualAlloc(nullptr, 4096, MEM_COMMIT, PAGE_READONLY);
    uint8_t byte = 1;
    uint32_t count = 77;
    EXPECT_EQ(VornProcMemRead(self, page, &byte, 1, &count), VORN_OK);
    EXPECT_EQ(count, 1u);
    const FailingCall fail({"WriteProcessMemory", 0, ERROR_NOACCESS});
    EXPECT_EQ(VornProcMemWrite(self, page, &byte, 1, &count), VORN_E_WRITE);
    EXPECT_EQ(count, 1u);
    VirtualFree(page, 0, MEM_RELEASE);
}

TEST_F(ProcMemory, WorksUnderTheDebugPrivilegeAndPutsItBack)
{
    const ImportRedirect open("OpenProcess", &NoteStateAtOpen);
    int source = 5;
    int target = 6;
    auto* const nowhere = reinterpret_cast<uint8_t*>(0x10);
    for (const bool before : {false, true}) {
        const DebugState expected = before ? DebugState::kOn : DebugState::kOff;
        SetDebugState(before);
        stateAtOpen = DebugState::kAbsent;
        EXPECT_EQ(VornProcMemRead(self, &source, &target, sizeof(int), nullptr), VORN_OK);
        EXPECT_EQ(stateAtOpen, DebugState::kOn);
        EXPECT_EQ(ReadDebugState(), expected);
        EXPECT_EQ(VornProcMemWrite(self, &target, &source, sizeof(int), nullptr), VORN_OK);
        EXPECT_EQ(ReadDebugState(), expected);
        EXPECT_EQ(VornProcMemRead(self, nowhere, &target, sizeof(int), nullptr), VORN_E_READ);
        EXPECT_EQ(ReadDebugState(), expected);
        EXPECT_EQ(VornProcMemWrite(self, nowhere, &target, sizeof(int), nullptr), VORN_E_WRITE);
        EXPECT_EQ(ReadDebugState(), expected);
    }
}

TEST_F(ProcMemory, LeavesThePrivilegeOnWhenTheProcessCannotBeOpened)
{
    int value = 5;
    uint32_t count = 77;
    SetDebugState(false);
    {
        const FailingCall fail(kOpenProcess);
        EXPECT_EQ(VornProcMemRead(self, &value, &value, sizeof(int), &count), VORN_E_NOT_PERMITTED);
    }
    EXPECT_EQ(ReadDebugState(), DebugState::kOn);
    SetDebugState(false);
    {
        const FailingCall fail({"OpenProcess", 0, ERROR_INVALID_PARAMETER});
        EXPECT_EQ(VornProcMemWrite(self, &value, &value, sizeof(int), &count), VORN_E_NOT_PERMITTED);
    }
    EXPECT_EQ(ReadDebugState(), DebugState::kOn);
    EXPECT_EQ(count, 77u);
}

TEST_F(ProcMemory, GoesOnWithoutThePrivilegeWhenItCannotBeHad)
{
    const LeakWatch watch;
    int source = 5;
    long failures = 0;
    for (const bool hasToken : {false, true}) {
        failures += FailEachCallInTurn(kPrivilegeCalls, [&] {
            if (hasToken) {
                SetDebugState(false);
            } else {
                RevertToSelf();
            }
            int target = 6;
            EXPECT_EQ(VornProcMemRead(self, &source, &target, sizeof(int), nullptr), VORN_OK);
            EXPECT_EQ(target, 5);
        });
    }
    EXPECT_GE(failures, 14);
    RevertToSelf();
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(ProcMemory, OpensAnEndedProcessAgainOnlyByItsId)
{
    // A waiting create leaves the record without a handle; what it names is opened like any other process.
    VornPPid* ended = StartChild(L"ReturnsItsArgument", L"0", 1);
    ASSERT_NE(ended, nullptr);
    FailingCall open(kOpenProcess);
    uint8_t byte = 0;
    EXPECT_EQ(VornProcMemRead(ended, GetModuleHandleW(nullptr), &byte, 1, nullptr), VORN_E_NOT_PERMITTED);
    EXPECT_EQ(open.Failures(), 1);
    VornProcFreePPid(ended);
}
