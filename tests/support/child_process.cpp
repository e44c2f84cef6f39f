#include "support/child_process.h"

#include <cstdio>
#include <cstdlib>
#include <map>

// <shellapi.h> would bring in more than this one function.
extern "C" __declspec(dllimport) LPWSTR* WINAPI CommandLineToArgvW(LPCWSTR, int*);

namespace vorn_test {

namespace {

constexpr wchar_t kChildFlag[] = L"--child-case=";
constexpr size_t kChildFlagLength = sizeof(kChildFlag) / sizeof(wchar_t) - 1;

std::map<std::string, ChildFunction>& Cases()
{
    static std::map<std::string, ChildFunction> cases;
    return cases;
}

// Quotes one argument so that CommandLineToArgvW gives it back.
std::wstring Quote(const std::wstring& argument)
{
    std::wstring quoted = L"\"";
    size_t backslashes = 0;
    for (wchar_t unit : argument) {
        if (unit == L'"') quoted.append(backslashes + 1, L'\\');
        backslashes = unit == L'\\' ? backslashes + 1 : 0;
        quoted += unit;
    }
    quoted.append(backslashes, L'\\');
    return quoted + L'"';
}

}  // namespace

ChildRegistration::ChildRegistration(const char* name, ChildFunction function)
{
    Cases()[name] = function;
}

ChildProcess::ChildProcess(const char* name, const ChildArguments& arguments)
{
    wchar_t program[4096];
    GetModuleFileNameW(nullptr, program, 4096);
    std::wstring commandLine = Quote(program) + L" " + kChildFlag;
    for (const char* p = name; *p != 0; ++p) commandLine += static_cast<wchar_t>(*p);
    for (const std::wstring& argument : arguments) commandLine += L" " + Quote(argument);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION information = {};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &information))
    {
        return;
    }
    CloseHandle(information.hThread);
    process_ = information.hProcess;
    id_ = information.dwProcessId;
}

ChildProcess::~ChildProcess()
{
    if (process_ == nullptr) return;
    if (!WaitBounded(process_, 0)) Kill();
    CloseHandle(process_);
}

uint32_t ChildProcess::Wait(DWORD timeoutMs)
{
    if (process_ == nullptr) return kChildNotStarted;
    if (!WaitBounded(process_, timeoutMs)) {
        Kill(kChildTimedOut);
        return kChildTimedOut;
    }
    DWORD exitCode = 0;
    GetExitCodeProcess(process_, &exitCode);
    return exitCode;
}

void ChildProcess::Kill(uint32_t exitCode)
{
    TerminateProcess(process_, exitCode);
    WaitBounded(process_);
}

void RunChildCaseIfAsked()
{
    int count = 0;
    wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
    if (words == nullptr) return;
    if (count < 2 || std::wstring(words[1]).compare(0, kChildFlagLength, kChildFlag) != 0) {
        LocalFree(words);
        return;
    }
    std::string name;
    for (const wchar_t* p = words[1] + kChildFlagLength; *p != 0; ++p) name += static_cast<char>(*p);
    const ChildArguments arguments(words + 2, words + count);
    LocalFree(words);
    const auto found = Cases().find(name);
    if (found == Cases().end()) {
        std::fprintf(stderr, "no child case is named %s\n", name.c_str());
        std::exit(98);
    }
    std::exit(found->second(arguments));
}

std::wstring UniqueName(const wchar_t* stem)
{
    static LONG counter = 0;
    return std::wstring(stem) + L"-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
           std::to_wstring(GetTickCount()) + L"-" + std::to_wstring(InterlockedIncrement(&counter));
}

}  // namespace vorn_test
