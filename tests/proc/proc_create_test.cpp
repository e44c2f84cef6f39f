#include "proc/proc_fixture.h"

#include <algorithm>
#include <cstring>
#include <vector>

using namespace vorn_test;

namespace {

// A piece of memory that a child writes its view of the world into.
struct Report {
    wchar_t commandLine[8192];
    wchar_t directory[1024];
    uint32_t environmentUnits;
    wchar_t environment[65536];
    STARTUPINFOW startup;
    uint32_t inheritedHandleWorks;
};

class SharedReport {
public:
    explicit SharedReport(const wchar_t* name)
        : mapping_(
              CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Report), name)),
          view_(static_cast<Report*>(MapViewOfFile(mapping_, FILE_MAP_WRITE, 0, 0, 0)))
    {}
    SharedReport(const SharedReport&) = delete;
    SharedReport& operator=(const SharedReport&) = delete;
    ~SharedReport()
    {
        UnmapViewOfFile(view_);
        CloseHandle(mapping_);
    }
    Report* operator->() const { return view_; }

private:
    HANDLE mapping_;
    Report* view_;
};

// Every argument that CreateProcessW was given, and what it is to answer.
struct Recorded {
    int calls;
    bool nullApplicationName;
    std::wstring commandLine;
    bool commandLineIsWritable;
    SECURITY_ATTRIBUTES* processAttributes;
    SECURITY_ATTRIBUTES* threadAttributes;
    BOOL inherit;
    DWORD flags;
    bool hasEnvironment;
    std::wstring environment;  // up to the two zeros that end it, both included
    const wchar_t* directory;
    STARTUPINFOW startup;
};
Recorded recorded;

BOOL WINAPI RecordCreateProcess(const wchar_t* application, wchar_t* commandLine,
                                SECURITY_ATTRIBUTES* process, SECURITY_ATTRIBUTES* thread, BOOL inherit,
                                DWORD flags, void* environment, const wchar_t* directory,
                                STARTUPINFOW* startup, PROCESS_INFORMATION*)
{
    ++recorded.calls;
    recorded.nullApplicationName = application == nullptr;
    recorded.commandLine = commandLine;
    commandLine[0] = commandLine[0];
    recorded.commandLineIsWritable = true;
    recorded.processAttributes = process;
    recorded.threadAttributes = thread;
    recorded.inherit = inherit;
    recorded.flags = flags;
    recorded.hasEnvironment = environment != nullptr;
    recorded.environment.clear();
    if (environment != nullptr) {
        const auto* units = static_cast<const wchar_t*>(environment);
        size_t length = 0;
        do {
            length += wcslen(units + length) + 1;
        } while (units[length] != 0);
        recorded.environment.assign(units, length + 1);
    }
    recorded.directory = directory;
    recorded.startup = *startup;
    SetLastError(ERROR_FILE_NOT_FOUND);
    return FALSE;
}

// What VornProcCreate hands to the system, without a process being made.
class ProcCreateCall : public ProcTest {
protected:
    ProcCreateCall() : redirect_("CreateProcessW", &RecordCreateProcess) { recorded = {}; }

    const Recorded& Create(const wchar_t* program, const wchar_t* args, VornProcEnv* env = nullptr,
                           uint32_t mode = 0, int32_t inherit = 0, const wchar_t* directory = nullptr,
                           const VornSecurityDescriptor* process = nullptr,
                           const VornSecurityDescriptor* thread = nullptr)
    {
        EXPECT_TRUE(redirect_.Found());
        const int before = recorded.calls;
        EXPECT_EQ(VornProcCreate(program, args, env, directory, 0, mode, inherit, process, thread), nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_NOT_FOUND);
        EXPECT_EQ(recorded.calls, before + 1);
        EXPECT_TRUE(recorded.nullApplicationName);
        return recorded;
    }

private:
    ImportRedirect redirect_;
};

class ProcCreate : public ProcTest {
protected:
    // Runs a child that reports, to its end.
    void RunReporter(SharedReport&, const std::wstring& name, const std::wstring& args = L"",
                     VornProcEnv* env = nullptr, const wchar_t* directory = nullptr, uint32_t mode = 0,
                     int32_t inherit = 0)
    {
        VornPPid* ppid =
            VornProcCreate(OwnProgram().c_str(), ChildArgs(L"Reports", name + L" " + args).c_str(), env,
                           directory, 0, mode, inherit, nullptr, nullptr);
        ASSERT_NE(ppid, nullptr) << VornGetLastError();
        EXPECT_EQ(VornProcWaitForTerm(ppid, kLongWait), VORN_OK);
        uint32_t code = 0;
        EXPECT_EQ(VornProcGetExitCode(ppid, &code), VORN_OK);
        EXPECT_EQ(code, 5u);
        EXPECT_EQ(VornProcFreePPid(ppid), VORN_OK);
    }
};

}  // namespace

VORN_CHILD_RUNS_UNTIL_TOLD

VORN_CHILD(ReturnsItsArgument)
{
    return static_cast<int>(std::stoul(arguments[0]));
}

VORN_CHILD(Reports)
{
    SharedReport report(arguments[0].c_str());
    wcsncpy(report->commandLine, GetCommandLineW(), 8191);
    GetCurrentDirectoryW(1024, report->directory);
    const wchar_t* environment = GetEnvironmentStringsW();
    size_t length = 0;
    while (environment[length] != 0) length += wcslen(environment + length) + 1;
    report->environmentUnits = static_cast<uint32_t>(length);
    std::memcpy(report->environment, environment, length * sizeof(wchar_t));
    GetStartupInfoW(&report->startup);
    if (arguments.size() > 1 && arguments[1].compare(0, 7, L"handle:") == 0) {
        const HANDLE event = reinterpret_cast<HANDLE>(std::stoull(arguments[1].substr(7)));
        report->inheritedHandleWorks = SetEvent(event);
    }
    return 5;
}

TEST_F(ProcCreateCall, QuotesTheProgramAndLeavesTheArguments)
{
    EXPECT_EQ(Create(L"C:\\a b\\x.exe", L"-v").commandLine, L"\"C:\\a b\\x.exe\" -v");
    EXPECT_EQ(Create(L"\"C:\\a b\\x.exe\"", L"-v").commandLine, L"\"C:\\a b\\x.exe\" -v");
    EXPECT_EQ(Create(L"x", nullptr).commandLine, L"\"x\"");
    EXPECT_EQ(Create(L"x", L"").commandLine, L"\"x\" ");
    EXPECT_EQ(Create(nullptr, L"x \"a b\"  \\\" \xD83D\xDE00 ").commandLine,
              L"x \"a b\"  \\\" \xD83D\xDE00 ");
    EXPECT_EQ(Create(L"", nullptr).commandLine, L"\"\"");
}

TEST_F(ProcCreateCall, UsesItsOwnFlagsAndShowState)
{
    EXPECT_EQ(Create(L"x", nullptr, nullptr, VORN_PROC_SHOW).flags, 0x420u);
    EXPECT_EQ(recorded.startup.cb, sizeof(STARTUPINFOW));
    EXPECT_EQ(recorded.startup.dwFlags, 1u);  // the show state counts, and nothing else
    EXPECT_EQ(recorded.startup.wShowWindow, 5u);
    EXPECT_EQ(Create(L"x", nullptr, nullptr, VORN_PROC_NO_WINDOW).flags, 0x08000420u);
    EXPECT_EQ(recorded.startup.dwFlags, 1u);
    EXPECT_EQ(recorded.startup.wShowWindow, 0u);
    EXPECT_EQ(Create(L"x", nullptr, nullptr, 2).flags, 0x420u);
    EXPECT_EQ(recorded.startup.wShowWindow, 5u);
}

TEST_F(ProcCreateCall, InheritsHandlesForExactlyOne)
{
    EXPECT_EQ(Create(L"x", nullptr, nullptr, 0, 1).inherit, TRUE);
    for (int32_t inherit : {0, 2, -1, 257}) {
        EXPECT_EQ(Create(L"x", nullptr, nullptr, 0, inherit).inherit, FALSE) << inherit;
    }
}

TEST_F(ProcCreateCall, PassesSecurityAndDirectoryOn)
{
    EXPECT_EQ(Create(L"x", nullptr).processAttributes, nullptr);
    EXPECT_EQ(recorded.threadAttributes, nullptr);
    EXPECT_EQ(recorded.directory, nullptr);
    SECURITY_ATTRIBUTES attributes[2] = {};
    const VornSecurityDescriptor process = {&attributes[0]};
    const VornSecurityDescriptor thread = {&attributes[1]};
    const wchar_t* directory = L"C:\\somewhere";
    Create(L"x", nullptr, nullptr, 0, 0, directory, &process, &thread);
    EXPECT_EQ(recorded.processAttributes, &attributes[0]);
    EXPECT_EQ(recorded.threadAttributes, &attributes[1]);
    EXPECT_EQ(recorded.directory, directory);
    const VornSecurityDescriptor empty = {nullptr};
    EXPECT_EQ(Create(L"x", nullptr, nullptr, 0, 0, nullptr, &empty, &empty).processAttributes, nullptr);
}

TEST_F(ProcCreateCall, WritesTheEnvironmentInOrderWithTwoZerosAtTheEnd)
{
    EXPECT_FALSE(Create(L"x", nullptr).hasEnvironment);
    VornProcEnv* env = VornProcEnvAlloc(VORN_ENV_EMPTY);
    VornProcEnvSet(env, L"b", L"");
    VornProcEnvSet(env, L"A", L"\xD83D\xDE00 \"x\"");
    EXPECT_EQ(Create(L"x", nullptr, env).environment, std::wstring(L"A=\xD83D\xDE00 \"x\"\0b=\0\0", 13));
    EXPECT_TRUE(recorded.hasEnvironment);
    VornProcEnvFree(env);
}

TEST_F(ProcCreateCall, RefusesToStartNothing)
{
    EXPECT_EQ(VornProcCreate(nullptr, nullptr, nullptr, nullptr, 0, 0, 0, nullptr, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_EQ(recorded.calls, 0);
}

TEST_F(ProcCreateCall, RefusesAReleasedEnvironment)
{
    VornProcEnv* env = VornProcEnvAlloc(VORN_ENV_EMPTY);
    VornProcEnvFree(env);
    EXPECT_EQ(VornProcCreate(L"x", nullptr, env, nullptr, 0, 0, 0, nullptr, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_EQ(recorded.calls, 0);
}

TEST_F(ProcCreateCall, TranslatesTheSystemsError)
{
    // RecordCreateProcess answers with error 2; Create expects VORN_E_NOT_FOUND.
    const LeakWatch watch;
    VornProcEnv* env = VornProcEnvAlloc(VORN_ENV_COPY);
    Create(L"x", L"y", env);
    VornProcEnvFree(env);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(ProcCreateCall, LeavesNothingBehindAtAnyFailedAllocation)
{
    VornProcEnv* env = VornProcEnvAlloc(VORN_ENV_COPY);
    const LeakWatch watch;
    const int before = recorded.calls;
    const long failures = FailEachCallInTurn(kAllocations, [&] {
        const int calls = recorded.calls;
        EXPECT_EQ(VornProcCreate(L"x", L"y", env, nullptr, 0, 0, 0, nullptr, nullptr), nullptr);
        EXPECT_EQ(VornGetLastError(), recorded.calls == calls ? VORN_E_NO_MEMORY : VORN_E_NOT_FOUND);
    });
    EXPECT_EQ(failures, 3);  // command line, environment, record
    EXPECT_GT(recorded.calls, before);
    EXPECT_EQ(watch.Leaks(), "");
    VornProcEnvFree(env);
}

TEST_F(ProcCreate, HandsArgumentsOnUnchanged)
{
    const std::wstring name = UniqueName(L"vorn-report");
    SharedReport report(name.c_str());
    const std::wstring args = L"\"a b\" \"\" \\\"quoted\\\" tail\\\\  \xD83D\xDE00 \x4E2D";
    RunReporter(report, name, args);
    EXPECT_EQ(std::wstring(report->commandLine),
              L"\"" + OwnProgram() + L"\" " + ChildArgs(L"Reports", name + L" " + args));
}

TEST_F(ProcCreate, HandsTheEnvironmentOnUnchanged)
{
    VornProcEnv* env = VornProcEnvAlloc(VORN_ENV_COPY);
    VornProcEnvSet(env, L"VORN_SPACES", L"  a b  ");
    VornProcEnvSet(env, L"VORN_QUOTES", L"\"x\" 'y' =z=");
    VornProcEnvSet(env, L"VORN_EMPTY", L"");
    VornProcEnvSet(env, L"VORN_EMOJI_\xD83D\xDE00", L"\xD83D\xDE00\x4E2D\x00E4");
    VornProcEnvSet(env, L"VORN_LONG", std::wstring(20000, L'x').c_str());
    const std::wstring name = UniqueName(L"vorn-report");
    SharedReport report(name.c_str());
    RunReporter(report, name, L"", env);
    std::vector<std::wstring> strings;
    for (uint32_t at = 0; at < report->environmentUnits; at += wcslen(report->environment + at) + 1) {
        strings.push_back(report->environment + at);
    }
    const auto has = [&](const std::wstring& text) {
        return std::find(strings.begin(), strings.end(), text) != strings.end();
    };
    EXPECT_TRUE(has(L"VORN_SPACES=  a b  "));
    EXPECT_TRUE(has(L"VORN_QUOTES=\"x\" 'y' =z="));
    EXPECT_TRUE(has(L"VORN_EMPTY="));
    EXPECT_TRUE(has(L"VORN_EMOJI_\xD83D\xDE00=\xD83D\xDE00\x4E2D\x00E4"));
    EXPECT_TRUE(has(L"VORN_LONG=" + std::wstring(20000, L'x')));
    VornProcEnvFree(env);
}

TEST_F(ProcCreate, GivesTheChildTheCallersEnvironmentAndDirectoryByDefault)
{
    VornProcSetVar(L"VORN_INHERITED", L"yes");
    const std::wstring name = UniqueName(L"vorn-report");
    SharedReport report(name.c_str());
    RunReporter(report, name);
    VornProcSetVar(L"VORN_INHERITED", nullptr);
    const std::wstring environment(report->environment, report->environmentUnits);
    EXPECT_NE(environment.find(std::wstring(L"VORN_INHERITED=yes\0", 19)), std::wstring::npos);
    wchar_t directory[1024];
    GetCurrentDirectoryW(1024, directory);
    EXPECT_STREQ(report->directory, directory);
}

TEST_F(ProcCreate, StartsTheChildInTheDirectoryAskedFor)
{
    wchar_t directory[1024];
    GetWindowsDirectoryW(directory, 1024);
    const std::wstring name = UniqueName(L"vorn-report");
    SharedReport report(name.c_str());
    RunReporter(report, name, L"", nullptr, directory);
    EXPECT_EQ(_wcsicmp(report->directory, directory), 0) << "in another directory";
}

TEST_F(ProcCreate, TellsTheChildHowToShowItself)
{
    const std::wstring name = UniqueName(L"vorn-report");
    SharedReport report(name.c_str());
    RunReporter(report, name, L"", nullptr, nullptr, VORN_PROC_NO_WINDOW);
    EXPECT_EQ(report->startup.dwFlags & STARTF_USESHOWWINDOW, 1u);
    EXPECT_EQ(report->startup.wShowWindow, SW_HIDE);
    RunReporter(report, name, L"", nullptr, nullptr, VORN_PROC_SHOW);
    EXPECT_EQ(report->startup.wShowWindow, SW_SHOW);
}

TEST_F(ProcCreate, LetsTheChildInheritHandlesOnlyWhenAskedTo)
{
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    const HANDLE event = CreateEventW(&inheritable, TRUE, FALSE, nullptr);
    const std::wstring name = UniqueName(L"vorn-report");
    SharedReport report(name.c_str());
    const std::wstring args = L"handle:" + std::to_wstring(reinterpret_cast<uintptr_t>(event));
    RunReporter(report, name, args, nullptr, nullptr, 0, 1);
    EXPECT_NE(report->inheritedHandleWorks, 0u);
    EXPECT_TRUE(WaitBounded(event, 0));
    ResetEvent(event);
    RunReporter(report, name, args, nullptr, nullptr, 0, 0);
    EXPECT_FALSE(WaitBounded(event, 0));
    CloseHandle(event);
}

TEST_F(ProcCreate, ReportsAProgramThatIsNotThere)
{
    const LeakWatch watch;
    VornSetLastError(VORN_OK);
    EXPECT_EQ(VornProcCreate(L"C:\\there is no such program.exe", nullptr, nullptr, nullptr, 0, 0, 0, nullptr,
                             nullptr),
              nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_NOT_FOUND);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(ProcCreate, HasTheExitCodeAtOnceWhenItWaited)
{
    VornSetLastError(VORN_E_BUSY);
    VornPPid* ppid = StartChild(L"ReturnsItsArgument", L"259", 1);  // also the system's "still active"
    ASSERT_NE(ppid, nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    // The record knows it: nothing is asked from the system.
    const FailingCall noOpen(kOpenProcess, 1, true);
    const FailingCall noCode(kGetExitCodeProcess, 1, true);
    uint32_t code = 0;
    EXPECT_EQ(VornProcGetExitCode(ppid, &code), VORN_OK);
    EXPECT_EQ(code, 259u);
    EXPECT_EQ(VornProcWaitForTerm(ppid, VORN_INFINITE), VORN_OK);
    EXPECT_EQ(VornProcFreePPid(ppid), VORN_OK);
}

TEST_F(ProcCreate, KeepsTheHandleOfAProcessItWaitedFor)
{
    // Every CloseHandle is counted: the primary thread's and no other.
    FailingCall close(kCloseHandle, 0);
    VornPPid* ppid = StartChild(L"ReturnsItsArgument", L"0", 2);
    ASSERT_NE(ppid, nullptr);
    EXPECT_EQ(close.Calls(), 1);
    EXPECT_EQ(VornProcFreePPid(ppid), VORN_OK);
    EXPECT_EQ(close.Calls(), 1);
}

TEST_F(ProcCreate, CannotKillAProcessItWaitedFor)
{
    VornPPid* ppid = StartChild(L"ReturnsItsArgument", L"3", 1);
    ASSERT_NE(ppid, nullptr);
    EXPECT_EQ(VornProcKill(ppid), VORN_E_UNKNOWN);  // the record has no handle any more
    uint32_t code = 0;
    EXPECT_EQ(VornProcGetExitCode(ppid, &code), VORN_OK);
    EXPECT_EQ(code, 3u);
    EXPECT_EQ(VornProcFreePPid(ppid), VORN_OK);
}

TEST_F(ProcCreate, CountsAProcessItWaitedForAsEndedWhateverTheSystemAnswers)
{
    VornPPid* ppid = nullptr;
    {
        const FailingCall fail(kGetExitCodeProcess);
        ppid = StartChild(L"ReturnsItsArgument", L"5", 1);
        EXPECT_EQ(fail.Failures(), 1);
    }
    ASSERT_NE(ppid, nullptr);
    uint32_t code = 99;
    EXPECT_EQ(VornProcGetExitCode(ppid, &code), VORN_OK);
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(VornProcFreePPid(ppid), VORN_OK);
}

TEST_F(ProcCreate, ClosesTheProcessWhenItCannotBeRegistered)
{
    VornProcFreePPid(StartChild(L"ReturnsItsArgument", L"0", 1));
    const LeakWatch watch;
    // The second calloc is the registry's, in those runs in which it must grow.
    std::vector<VornPPid*> made;
    bool refused = false;
    for (int i = 0; i < 60 && !refused; ++i) {
        const FailingCall fail(kCalloc, 2);
        VornPPid* ppid = VornProcNative2PPid(GetCurrentProcessId());
        if (ppid != nullptr) made.push_back(ppid);
        refused = ppid == nullptr;
    }
    ASSERT_TRUE(refused);
    EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
    {
        const FailingCall fail(kCalloc, 2);
        EXPECT_EQ(StartChild(L"ReturnsItsArgument", L"0"), nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
        EXPECT_EQ(fail.Failures(), 1);
    }
    for (VornPPid* ppid : made) EXPECT_EQ(VornProcFreePPid(ppid), VORN_OK);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(ProcCreate, LeavesNoHandleAfterManyShortLivedChildren)
{
    constexpr int kChildren = 15;  // tests/soak runs a thousand
    VornProcFreePPid(StartChild(L"ReturnsItsArgument", L"0", 1));
    const LeakWatch watch;
    for (int i = 0; i < kChildren; ++i) {
        VornPPid* ppid = StartChild(L"ReturnsItsArgument", std::to_wstring(i));
        ASSERT_NE(ppid, nullptr) << VornGetLastError();
        ASSERT_EQ(VornProcWaitForTerm(ppid, kLongWait), VORN_OK);
        uint32_t code = 0;
        ASSERT_EQ(VornProcGetExitCode(ppid, &code), VORN_OK);
        ASSERT_EQ(code, static_cast<uint32_t>(i));
        ASSERT_EQ(VornProcFreePPid(ppid), VORN_OK);
    }
    EXPECT_EQ(watch.Leaks(), "");
}
