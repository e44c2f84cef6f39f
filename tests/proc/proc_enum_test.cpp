#include "proc/proc_fixture.h"
#include "support/guard_buffer.h"

#include <algorithm>
#include <cstring>
#include <tlhelp32.h>
#include <vector>

using namespace vorn_test;

namespace {

constexpr FaultPoint kSnapshot = {"CreateToolhelp32Snapshot", kInvalidHandle, kGenericFailure};
constexpr FaultPoint kProcessFirst = {"Process32FirstW", 0, ERROR_NO_MORE_FILES};
constexpr FaultPoint kListModules = {"K32EnumProcessModules", 0, kGenericFailure};

// Processes that a scripted snapshot holds.
std::vector<DWORD> scriptedPids;
size_t scriptedNext = 0;
DebugState stateDuringWork = DebugState::kAbsent;

BOOL GiveScripted(PROCESSENTRY32W* entry)
{
    if (scriptedNext == scriptedPids.size()) return FALSE;
    entry->th32ProcessID = scriptedPids[scriptedNext++];
    return TRUE;
}
BOOL WINAPI ScriptedFirst(HANDLE, PROCESSENTRY32W* entry)
{
    stateDuringWork = ReadDebugState();
    scriptedNext = 0;
    return GiveScripted(entry);
}
BOOL WINAPI ScriptedNext(HANDLE, PROCESSENTRY32W* entry)
{
    return GiveScripted(entry);
}

// A snapshot with these processes.
class ScriptedSnapshot {
public:
    explicit ScriptedSnapshot(std::vector<DWORD> pids)
        : first_("Process32FirstW", &ScriptedFirst), next_("Process32NextW", &ScriptedNext)
    {
        scriptedPids = std::move(pids);
    }

private:
    ImportRedirect first_;
    ImportRedirect next_;
};

class ProcEnumeration : public ProcTest {
protected:
    ~ProcEnumeration() override { RevertToSelf(); }

    static std::vector<uint32_t> AllIds(VornStatus* last = nullptr)
    {
        std::vector<uint32_t> ids;
        VornPPid* ppid = nullptr;
        VornProcIterator* iterator = VornProcGetFirst(&ppid);
        if (iterator == nullptr) return ids;
        VornStatus status;
        do {
            ids.push_back(VornProcPPid2Native(ppid));
            status = VornProcGetNext(iterator, &ppid);
        } while (status == VORN_OK);
        if (last != nullptr) *last = status;
        VornProcGetClose(iterator);
        return ids;
    }
};

class ModuleEnumeration : public ProcEnumeration {
protected:
    static std::wstring NameOf(VornProcModule* module, VornPPid* ppid)
    {
        wchar_t name[4096];
        uint32_t size = 4096;
        const VornStatus status = VornProcGetModuleName(module, ppid, name, &size);
        if (status != VORN_OK) return L"<status " + std::to_wstring(status) + L">";
        EXPECT_EQ(size, wcslen(name));
        return name;
    }

    static std::vector<std::wstring> AllNames(VornPPid* ppid)
    {
        std::vector<std::wstring> names;
        VornProcModule* module = nullptr;
        VornProcModuleIterator* iterator = VornProcGetFirstModule(&module, ppid);
        if (iterator == nullptr) return names;
        do {
            names.push_back(NameOf(module, ppid));
        } while (VornProcGetNextModule(iterator, &module) == VORN_OK);
        VornProcGetModuleClose(iterator);
        return names;
    }
};

// An answer of EnumProcessModules that grows with every call.
DWORD modulesToReport = 0;
DWORD modulesMore = 0;
std::vector<DWORD> moduleBufferSizes;
BOOL WINAPI GrowingModuleList(HANDLE, HMODULE* modules, DWORD size, DWORD* needed)
{
    moduleBufferSizes.push_back(size);
    for (DWORD i = 0; i < std::min<DWORD>(size / sizeof(HMODULE), modulesToReport); ++i) {
        modules[i] = reinterpret_cast<HMODULE>(uintptr_t{0x10000} * (i + 1));
    }
    *needed = modulesToReport * sizeof(HMODULE);
    if (modulesMore != 0) {
        --modulesMore;
        ++modulesToReport;
    }
    return TRUE;
}

DebugState stateAtOpen = DebugState::kAbsent;
DWORD rightsAtOpen = 0;
HANDLE WINAPI NoteStateAtOpen(DWORD rights, BOOL inherit, DWORD id)
{
    stateAtOpen = ReadDebugState();
    rightsAtOpen = rights;
    return OpenProcess(rights, inherit, id);
}

BOOL WINAPI AnswerOldVersion(OSVERSIONINFOW* version)
{
    version->dwMajorVersion = 5;
    version->dwMinorVersion = 2;
    version->dwPlatformId = VER_PLATFORM_WIN32_NT;
    return TRUE;
}

}  // namespace

VORN_CHILD_RUNS_UNTIL_TOLD

VORN_CHILD(ReturnsItsArgument)
{
    return static_cast<int>(std::stoul(arguments[0]));
}

TEST_F(ProcEnumeration, ListsRunningProcesses)
{
    RunningChild child;
    VornStatus last = VORN_OK;
    const std::vector<uint32_t> ids = AllIds(&last);
    EXPECT_EQ(last, VORN_E_NO_MORE);
    EXPECT_EQ(std::count(ids.begin(), ids.end(), GetCurrentProcessId()), 1);
    EXPECT_EQ(std::count(ids.begin(), ids.end(), child.id), 1);
}

TEST_F(ProcEnumeration, ListsASnapshotInItsOrder)
{
    // More than one growth of the list, and an id of 0 in front as the system has it.
    std::vector<DWORD> pids = {0};
    for (DWORD i = 1; i < 700; ++i) pids.push_back(i * 4);
    const ScriptedSnapshot snapshot(pids);
    const std::vector<uint32_t> ids = AllIds();
    EXPECT_EQ(ids, std::vector<uint32_t>(pids.begin(), pids.end()));
}

TEST_F(ProcEnumeration, EndsOnceAndIsPastTheEndAfterwards)
{
    const ScriptedSnapshot snapshot({4, 8});
    VornPPid* ppid = nullptr;
    VornSetLastError(VORN_E_BUSY);
    VornProcIterator* iterator = VornProcGetFirst(&ppid);
    ASSERT_NE(iterator, nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornProcPPid2Native(ppid), 4u);
    VornPPid* const first = ppid;
    EXPECT_EQ(VornProcGetNext(iterator, &ppid), VORN_OK);
    EXPECT_EQ(ppid, first);  // the iterator's own record, at another process
    EXPECT_EQ(VornProcPPid2Native(ppid), 8u);
    EXPECT_EQ(VornProcGetNext(iterator, &ppid), VORN_E_NO_MORE);
    EXPECT_EQ(ppid, nullptr);
    for (int i = 0; i < 3; ++i) {
        ppid = first;
        EXPECT_EQ(VornProcGetNext(iterator, &ppid), VORN_E_INVALID_ARG);
        EXPECT_EQ(ppid, first);
    }
    EXPECT_EQ(VornProcGetClose(iterator), VORN_OK);
    EXPECT_EQ(VornProcGetClose(iterator), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetNext(iterator, &ppid), VORN_E_INVALID_ARG);
}

TEST_F(ProcEnumeration, LendsAPPidUntilItIsClosed)
{
    const ScriptedSnapshot snapshot({GetCurrentProcessId()});
    VornPPid* ppid = nullptr;
    VornProcIterator* iterator = VornProcGetFirst(&ppid);
    ASSERT_NE(iterator, nullptr);
    uint32_t code = 0;
    EXPECT_EQ(VornProcGetExitCode(ppid, &code), VORN_E_BAD_STATE);
    EXPECT_EQ(VornProcWaitForTerm(ppid, 0), VORN_E_BAD_STATE);
    EXPECT_EQ(VornProcFreePPid(ppid), VORN_E_INVALID_ARG);  // it is the iterator's
    EXPECT_EQ(VornProcGetExitCode(ppid, &code), VORN_E_BAD_STATE);
    EXPECT_EQ(VornProcGetClose(iterator), VORN_OK);
    EXPECT_EQ(VornProcGetExitCode(ppid, &code), VORN_E_INVALID_ARG);
}

TEST_F(ProcEnumeration, RefusesNullAndUnknown)
{
    EXPECT_EQ(VornProcGetFirst(nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    VornPPid* ppid = VornProcGetCurrentPPid();
    EXPECT_EQ(VornProcGetNext(nullptr, &ppid), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetNext(reinterpret_cast<VornProcIterator*>(ppid), &ppid), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetClose(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetClose(reinterpret_cast<VornProcIterator*>(ppid)), VORN_E_INVALID_ARG);
    VornProcIterator* iterator = VornProcGetFirst(&ppid);
    EXPECT_EQ(VornProcGetNext(iterator, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetClose(iterator), VORN_OK);
}

TEST_F(ProcEnumeration, ForgetsTheExitCodeOfTheProcessBefore)
{
    uint32_t endedId = 0;
    VornPPid* ended = StartChild(L"ReturnsItsArgument", L"3");
    endedId = VornProcPPid2Native(ended);
    EXPECT_EQ(VornProcWaitForTerm(ended, kLongWait), VORN_OK);  // its id stays in use while it is open
    const ScriptedSnapshot snapshot({endedId, GetCurrentProcessId()});
    VornPPid* ppid = nullptr;
    VornProcIterator* iterator = VornProcGetFirst(&ppid);
    uint32_t code = 0;
    EXPECT_EQ(VornProcGetExitCode(ppid, &code), VORN_OK);
    EXPECT_EQ(code, 3u);
    EXPECT_EQ(VornProcGetNext(iterator, &ppid), VORN_OK);
    EXPECT_EQ(VornProcGetExitCode(ppid, &code), VORN_E_BAD_STATE);
    VornProcGetClose(iterator);
    VornProcFreePPid(ended);
}

TEST_F(ProcEnumeration, ReportsASnapshotThatCannotBeHadOrRead)
{
    for (const FaultPoint& point : {kSnapshot, kProcessFirst}) {
        const LeakWatch watch;
        const FailingCall fail(point);
        VornPPid* ppid = VornProcGetCurrentPPid();
        EXPECT_EQ(VornProcGetFirst(&ppid), nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_SYSTEM);
        EXPECT_EQ(ppid, nullptr);
        EXPECT_EQ(fail.Failures(), 1);
        EXPECT_EQ(watch.Leaks(), "");
    }
}

TEST_F(ProcEnumeration, LeavesNothingBehindAtAnyFailedAllocation)
{
    const ScriptedSnapshot snapshot(std::vector<DWORD>(700, 8));
    VornPPid* ppid = nullptr;
    VornProcGetClose(VornProcGetFirst(&ppid));
    const LeakWatch watch;
    const long failures = FailEachCallInTurn(kAllocations, [&] {
        VornProcIterator* iterator = VornProcGetFirst(&ppid);
        EXPECT_EQ(VornGetLastError(), iterator != nullptr ? VORN_OK : VORN_E_NO_MEMORY);
        EXPECT_EQ(ppid != nullptr, iterator != nullptr);
        if (iterator != nullptr) VornProcGetClose(iterator);
    });
    EXPECT_GE(failures, 4);  // the list three times, the iterator
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(ProcEnumeration, LeavesNothingBehindWhenARegistryCannotGrow)
{
    const ScriptedSnapshot snapshot({8});
    std::vector<VornProcIterator*> made;
    int refused = 0;
    // Once the iterator's own registry must grow, and once the one of the processes.
    for (int i = 0; i < 400 && refused < 2; ++i) {
        VornPPid* ppid = nullptr;
        const FailingCall fail(kCalloc, 2);
        VornProcIterator* iterator = VornProcGetFirst(&ppid);
        if (iterator != nullptr) {
            made.push_back(iterator);
            continue;
        }
        EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
        ++refused;
        // The next one may let the registry grow.
        const FailingCall none(kCalloc, 0);
        made.push_back(VornProcGetFirst(&ppid));
    }
    EXPECT_EQ(refused, 2);
    for (VornProcIterator* iterator : made) EXPECT_EQ(VornProcGetClose(iterator), VORN_OK);
}

VORN_CHILD(PassesOverEndedProcessesOnAnOldSystem)
{
    const ImportRedirect version("GetVersionExW", &AnswerOldVersion);
    if (VornInitialize() != VORN_OK) return 1;
    const DWORD self = GetCurrentProcessId();
    VornPPid* ended = StartChild(L"ReturnsItsArgument", L"0");
    const DWORD endedId = VornProcPPid2Native(ended);
    if (VornProcWaitForTerm(ended, kLongWait) != VORN_OK) return 2;
    constexpr DWORD kNobody = 0xFFFFFFF0;
    VornPPid* ppid = nullptr;
    {
        // The first is given as it is; the others only when they run.
        const ScriptedSnapshot snapshot({kNobody, endedId, self, kNobody, self, endedId, kNobody});
        VornProcIterator* iterator = VornProcGetFirst(&ppid);
        if (VornProcPPid2Native(ppid) != kNobody) return 3;
        for (int i = 0; i < 2; ++i) {
            if (VornProcGetNext(iterator, &ppid) != VORN_OK || VornProcPPid2Native(ppid) != self) return 4;
        }
        if (VornProcGetNext(iterator, &ppid) != VORN_E_NO_MORE || ppid != nullptr) return 5;
        if (VornProcGetNext(iterator, &ppid) != VORN_E_INVALID_ARG) return 6;
        VornProcGetClose(iterator);
    }
    {
        const ScriptedSnapshot snapshot({self, self});
        SetDebugState(false);
        VornProcIterator* iterator = VornProcGetFirst(&ppid);
        const ImportRedirect open("OpenProcess", &NoteStateAtOpen);
        if (VornProcGetNext(iterator, &ppid) != VORN_OK) return 7;
        if (stateAtOpen != DebugState::kOn || rightsAtOpen != SYNCHRONIZE) return 8;
        if (ReadDebugState() != DebugState::kOff) return 9;
        VornProcGetClose(iterator);
    }
    return 0;
}

TEST_F(ProcEnumeration, PassesOverEndedProcessesOnASystemBeforeVersion6)
{
    EXPECT_EQ(ChildProcess("PassesOverEndedProcessesOnAnOldSystem").Wait(), 0u);
}

TEST_F(ProcEnumeration, GivesEveryListedProcessFromVersion6On)
{
    const ScriptedSnapshot snapshot({4, 0xFFFFFFF0, 0xFFFFFFF4});
    EXPECT_EQ(AllIds(), (std::vector<uint32_t>{4, 0xFFFFFFF0, 0xFFFFFFF4}));
}

TEST_F(ProcEnumeration, NamesTheExecutableOfEveryKindOfProcess)
{
    wchar_t name[4096];
    uint32_t size = 4096;
    EXPECT_EQ(VornProcGetExecutableName(nullptr, name, &size), VORN_OK);
    EXPECT_EQ(std::wstring(name), OwnProgram());
    EXPECT_EQ(size, OwnProgram().size());
    RunningChild child;
    VornPPid* byId = VornProcNative2PPid(child.id);
    for (VornPPid* ppid : {child.ppid, byId, VornProcGetCurrentPPid()}) {
        size = 4096;
        name[0] = 0;
        EXPECT_EQ(VornProcGetExecutableName(ppid, name, &size), VORN_OK);
        EXPECT_EQ(_wcsicmp(name, OwnProgram().c_str()), 0);
        EXPECT_EQ(size, OwnProgram().size());
    }
    VornProcFreePPid(byId);
}

TEST_F(ProcEnumeration, CutsAnExecutablesNameOff)
{
    const std::wstring program = OwnProgram();
    VornPPid* self = VornProcGetCurrentPPid();
    for (VornPPid* ppid : {static_cast<VornPPid*>(nullptr), self}) {
        const uint32_t length = static_cast<uint32_t>(program.size());
        GuardBuffer exact((length + 1) * sizeof(wchar_t));
        uint32_t size = length + 1;
        EXPECT_EQ(VornProcGetExecutableName(ppid, exact.As<wchar_t>(), &size), VORN_OK);
        EXPECT_EQ(size, length);
        GuardBuffer small(length * sizeof(wchar_t));
        size = length;
        EXPECT_EQ(VornProcGetExecutableName(ppid, small.As<wchar_t>(), &size), VORN_E_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, length);
        size = 0;
        EXPECT_EQ(VornProcGetExecutableName(ppid, small.As<wchar_t>(), &size), VORN_E_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, 0u);
    }
}

TEST_F(ProcEnumeration, RefusesAnExecutablesNameForBadArguments)
{
    wchar_t name[64];
    uint32_t size = 64;
    EXPECT_EQ(VornProcGetExecutableName(nullptr, nullptr, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetExecutableName(nullptr, name, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetExecutableName(reinterpret_cast<VornPPid*>(name), name, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(size, 64u);
}

TEST_F(ProcEnumeration, ReportsAnExecutablesNameThatCannotBeRead)
{
    wchar_t name[64];
    uint32_t size = 64;
    {
        const FailingCall fail({"GetModuleFileNameW", 0, ERROR_ACCESS_DENIED});
        EXPECT_EQ(VornProcGetExecutableName(nullptr, name, &size), VORN_E_NOT_PERMITTED);
        EXPECT_EQ(size, 64u);
    }
    {
        const FailingCall fail({"K32GetModuleFileNameExW", 0, ERROR_ACCESS_DENIED});
        EXPECT_EQ(VornProcGetExecutableName(VornProcGetCurrentPPid(), name, &size), VORN_E_NOT_PERMITTED);
        EXPECT_EQ(size, 0u);
    }
    {
        size = 64;
        const FailingCall fail(kOpenProcess);
        EXPECT_EQ(VornProcGetExecutableName(VornProcGetCurrentPPid(), name, &size), VORN_E_SYSTEM);
        EXPECT_EQ(size, 64u);
    }
}

TEST_F(ProcEnumeration, CallsTheIdleProcessIdle)
{
    const ScriptedSnapshot snapshot({0, 4});
    VornPPid* ppid = nullptr;
    VornProcIterator* iterator = VornProcGetFirst(&ppid);
    GuardBuffer exact(5 * sizeof(wchar_t));
    uint32_t size = 5;
    const FailingCall open(kOpenProcess, 0);
    EXPECT_EQ(VornProcGetExecutableName(ppid, exact.As<wchar_t>(), &size), VORN_OK);
    EXPECT_EQ(size, 4u);
    EXPECT_STREQ(exact.As<wchar_t>(), L"Idle");
    GuardBuffer small(4 * sizeof(wchar_t));
    EXPECT_EQ(VornProcGetExecutableName(ppid, small.As<wchar_t>(), &size), VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 4u);
    size = 0;
    EXPECT_EQ(VornProcGetExecutableName(ppid, small.As<wchar_t>(), &size), VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(open.Calls(), 0);
    // It cannot be followed like other processes.
    uint32_t code = 0;
    EXPECT_EQ(VornProcGetExitCode(ppid, &code), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcWaitForTerm(ppid, 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcKill(ppid), VORN_E_NOT_PERMITTED);
    VornSetLastError(VORN_E_BUSY);
    EXPECT_EQ(VornProcPPid2Native(ppid), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    VornProcGetClose(iterator);
}

TEST_F(ModuleEnumeration, ListsTheModulesOfTheCallingProcessAndOfAnother)
{
    RunningChild child;
    for (VornPPid* ppid : {VornProcGetCurrentPPid(), child.ppid}) {
        const std::vector<std::wstring> names = AllNames(ppid);
        ASSERT_FALSE(names.empty());
        EXPECT_EQ(_wcsicmp(names[0].c_str(), OwnProgram().c_str()), 0);
        int library = 0;
        for (const std::wstring& name : names) {
            const size_t slash = name.find_last_of(L'\\');
            if (slash != std::wstring::npos && _wcsicmp(name.c_str() + slash + 1, L"vorn_1_0.dll") == 0) {
                ++library;
            }
        }
        EXPECT_EQ(library, 1);
    }
}

TEST_F(ModuleEnumeration, NamesAModuleOfTheCallingProcessWithoutAPPid)
{
    VornProcModule* module = nullptr;
    VornProcModuleIterator* iterator = VornProcGetFirstModule(&module, VornProcGetCurrentPPid());
    ASSERT_NE(iterator, nullptr);
    EXPECT_EQ(NameOf(module, nullptr), OwnProgram());
    const uint32_t length = static_cast<uint32_t>(OwnProgram().size());
    for (VornPPid* ppid : {static_cast<VornPPid*>(nullptr), VornProcGetCurrentPPid()}) {
        GuardBuffer small(length * sizeof(wchar_t));
        uint32_t size = length;
        EXPECT_EQ(VornProcGetModuleName(module, ppid, small.As<wchar_t>(), &size), VORN_E_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, length);
        size = 0;
        EXPECT_EQ(VornProcGetModuleName(module, ppid, nullptr, &size), VORN_E_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, 0u);
    }
    VornProcGetModuleClose(iterator);
}

TEST_F(ModuleEnumeration, EndsOnceAndIsPastTheEndAfterwards)
{
    const ImportRedirect list("K32EnumProcessModules", &GrowingModuleList);
    modulesToReport = 2;
    modulesMore = 0;
    VornProcModule* module = nullptr;
    VornSetLastError(VORN_E_BUSY);
    VornProcModuleIterator* iterator = VornProcGetFirstModule(&module, VornProcGetCurrentPPid());
    ASSERT_NE(iterator, nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    VornProcModule* const first = module;
    EXPECT_EQ(VornProcGetNextModule(iterator, &module), VORN_OK);
    EXPECT_EQ(module, first);
    EXPECT_EQ(VornProcGetNextModule(iterator, &module), VORN_E_NO_MORE);
    EXPECT_EQ(module, nullptr);
    EXPECT_EQ(VornProcGetNextModule(iterator, &module), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetNextModule(iterator, &module), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetModuleClose(iterator), VORN_OK);
    EXPECT_EQ(VornProcGetModuleClose(iterator), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetNextModule(iterator, &module), VORN_E_INVALID_ARG);
    wchar_t name[64];
    uint32_t size = 64;
    EXPECT_EQ(VornProcGetModuleName(first, nullptr, name, &size), VORN_E_INVALID_ARG);
}

TEST_F(ModuleEnumeration, AsksAgainWhenModulesWereLoadedMeanwhile)
{
    const ImportRedirect list("K32EnumProcessModules", &GrowingModuleList);
    modulesToReport = 3;
    modulesMore = 2;
    moduleBufferSizes.clear();
    VornProcModule* module = nullptr;
    VornProcModuleIterator* iterator = VornProcGetFirstModule(&module, VornProcGetCurrentPPid());
    ASSERT_NE(iterator, nullptr);
    int count = 1;
    while (VornProcGetNextModule(iterator, &module) == VORN_OK) ++count;
    EXPECT_EQ(count, 5);
    EXPECT_EQ(moduleBufferSizes, (std::vector<DWORD>{0, 24, 32, 40}));
    VornProcGetModuleClose(iterator);
}

TEST_F(ModuleEnumeration, ReportsAProcessWithoutModules)
{
    const LeakWatch watch;
    const ImportRedirect list("K32EnumProcessModules", &GrowingModuleList);
    modulesToReport = 0;
    modulesMore = 0;
    auto* module = reinterpret_cast<VornProcModule*>(1);
    EXPECT_EQ(VornProcGetFirstModule(&module, VornProcGetCurrentPPid()), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_NO_MORE);
    EXPECT_EQ(module, nullptr);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(ModuleEnumeration, RefusesNullAndUnknown)
{
    VornProcModule* module = nullptr;
    EXPECT_EQ(VornProcGetFirstModule(nullptr, VornProcGetCurrentPPid()), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetFirstModule(&module, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetNextModule(nullptr, &module), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetModuleClose(nullptr), VORN_E_INVALID_ARG);
    wchar_t name[64];
    uint32_t size = 64;
    EXPECT_EQ(VornProcGetModuleName(nullptr, nullptr, name, &size), VORN_E_INVALID_ARG);
    VornProcModuleIterator* iterator = VornProcGetFirstModule(&module, VornProcGetCurrentPPid());
    ASSERT_NE(iterator, nullptr);
    EXPECT_EQ(VornProcGetNextModule(iterator, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetModuleName(module, nullptr, name, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetModuleName(module, nullptr, nullptr, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetModuleName(module, reinterpret_cast<VornPPid*>(name), name, &size),
              VORN_E_INVALID_ARG);
    EXPECT_EQ(size, 64u);
    VornProcGetModuleClose(iterator);
}

TEST_F(ModuleEnumeration, ReportsEveryCallThatFails)
{
    VornPPid* self = VornProcGetCurrentPPid();
    VornProcModule* module = nullptr;
    VornProcGetModuleClose(VornProcGetFirstModule(&module, self));
    const LeakWatch watch;
    EXPECT_EQ(FailEachCallInTurn({kOpenProcess, kListModules},
                                 [&] {
                                     VornProcModuleIterator* iterator = VornProcGetFirstModule(&module, self);
                                     EXPECT_EQ(VornGetLastError(),
                                               iterator == nullptr ? VORN_E_SYSTEM : VORN_OK);
                                     EXPECT_EQ(module == nullptr, iterator == nullptr);
                                     if (iterator != nullptr) VornProcGetModuleClose(iterator);
                                 }),
              3);
    EXPECT_GE(FailEachCallInTurn(kAllocations,
                                 [&] {
                                     VornProcModuleIterator* iterator = VornProcGetFirstModule(&module, self);
                                     EXPECT_EQ(VornGetLastError(),
                                               iterator == nullptr ? VORN_E_NO_MEMORY : VORN_OK);
                                     if (iterator != nullptr) VornProcGetModuleClose(iterator);
                                 }),
              2);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(ModuleEnumeration, ReportsANameThatCannotBeRead)
{
    VornPPid* self = VornProcGetCurrentPPid();
    VornProcModule* module = nullptr;
    VornProcModuleIterator* iterator = VornProcGetFirstModule(&module, self);
    wchar_t name[64];
    uint32_t size = 64;
    {
        const FailingCall fail({"GetModuleFileNameW", 0, ERROR_INVALID_HANDLE});
        EXPECT_EQ(VornProcGetModuleName(module, nullptr, name, &size), VORN_E_UNKNOWN);
        EXPECT_EQ(size, 64u);
    }
    {
        const FailingCall fail(kOpenProcess);
        EXPECT_EQ(VornProcGetModuleName(module, self, name, &size), VORN_E_SYSTEM);
        EXPECT_EQ(size, 64u);
    }
    {
        const FailingCall fail({"K32GetModuleFileNameExW", 0, ERROR_INVALID_HANDLE});
        EXPECT_EQ(VornProcGetModuleName(module, self, name, &size), VORN_E_UNKNOWN);
        EXPECT_EQ(size, 0u);
    }
    VornProcGetModuleClose(iterator);
}

TEST_F(ModuleEnumeration, OpensProcessesToAskAndToRead)
{
    const ImportRedirect open("OpenProcess", &NoteStateAtOpen);
    EXPECT_FALSE(AllNames(VornProcGetCurrentPPid()).empty());
    EXPECT_EQ(rightsAtOpen, 0x410u);
}

TEST_F(ModuleEnumeration, WorksUnderTheDebugPrivilegeAndPutsItBack)
{
    VornPPid* self = VornProcGetCurrentPPid();
    const ScriptedSnapshot snapshot({GetCurrentProcessId()});
    for (const bool before : {false, true}) {
        SetDebugState(before);
        const DebugState expected = before ? DebugState::kOn : DebugState::kOff;
        VornPPid* ppid = nullptr;
        stateDuringWork = DebugState::kAbsent;
        VornProcGetClose(VornProcGetFirst(&ppid));
        EXPECT_EQ(stateDuringWork, DebugState::kOn);
        EXPECT_EQ(ReadDebugState(), expected);

        const ImportRedirect open("OpenProcess", &NoteStateAtOpen);
        wchar_t name[4096];
        uint32_t size = 4096;
        VornProcModule* module = nullptr;
        stateAtOpen = DebugState::kAbsent;
        VornProcModuleIterator* iterator = VornProcGetFirstModule(&module, self);
        EXPECT_EQ(stateAtOpen, DebugState::kOn);
        EXPECT_EQ(ReadDebugState(), expected);
        stateAtOpen = DebugState::kAbsent;
        EXPECT_EQ(VornProcGetModuleName(module, self, name, &size), VORN_OK);
        EXPECT_EQ(stateAtOpen, DebugState::kOn);
        EXPECT_EQ(ReadDebugState(), expected);
        stateAtOpen = DebugState::kAbsent;
        size = 4096;
        EXPECT_EQ(VornProcGetExecutableName(self, name, &size), VORN_OK);
        EXPECT_EQ(stateAtOpen, DebugState::kOn);
        EXPECT_EQ(ReadDebugState(), expected);
        VornProcGetModuleClose(iterator);
        {
            const FailingCall fail(kOpenProcess);
            EXPECT_EQ(VornProcGetFirstModule(&module, self), nullptr);
            EXPECT_EQ(ReadDebugState(), expected);
        }
        RevertToSelf();
    }
}

TEST_F(ModuleEnumeration, LeavesAThreadWithoutATokenWithOneOfItsProcess)
{
    RevertToSelf();
    ASSERT_FALSE(ThreadHasToken());
    const DebugState before = ReadDebugState();
    wchar_t name[4096];
    uint32_t size = 4096;
    EXPECT_EQ(VornProcGetExecutableName(VornProcGetCurrentPPid(), name, &size), VORN_OK);
    EXPECT_TRUE(ThreadHasToken());
    EXPECT_EQ(ReadDebugState(), before);
    RevertToSelf();
    EXPECT_EQ(ReadDebugState(), before);  // the process's own token is never touched
}

TEST_F(ModuleEnumeration, GoesOnWithoutThePrivilegeWhenItCannotBeHad)
{
    VornPPid* self = VornProcGetCurrentPPid();
    const LeakWatch watch;
    long failures = 0;
    for (const bool hasToken : {false, true}) {
        for (const FaultPoint& point : kPrivilegeCalls) {
            failures += FailEachCallInTurn(point, [&] {
                if (hasToken) {
                    SetDebugState(false);
                } else {
                    RevertToSelf();
                }
                wchar_t name[4096];
                uint32_t size = 4096;
                EXPECT_EQ(VornProcGetExecutableName(self, name, &size), VORN_OK);
            });
        }
    }
    EXPECT_GE(failures, 14);
    RevertToSelf();
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(ModuleEnumeration, DoesNotSwitchThePrivilegeOffWhenItCouldNotLookBefore)
{
    SetDebugState(true);
    for (const FaultPoint& point : {kOpenThreadToken, kLookupPrivilegeValue, kAdjustTokenPrivileges}) {
        const FailingCall fail(point, 1);
        wchar_t name[4096];
        uint32_t size = 4096;
        EXPECT_EQ(VornProcGetExecutableName(VornProcGetCurrentPPid(), name, &size), VORN_OK);
        EXPECT_EQ(fail.Failures(), 1);
        EXPECT_EQ(ReadDebugState(), DebugState::kOn);
    }
}
