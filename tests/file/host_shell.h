// host_shell.h - where the tests' system runs on top of another one, that system's shell: it does in an
// instant what takes minutes through the layer between, such as making ten thousand files, and makes links.
#ifndef VORN_TESTS_FILE_HOST_SHELL_H
#define VORN_TESTS_FILE_HOST_SHELL_H

#include "core/win32.h"

#include "support/child_process.h"

#include <filesystem>
#include <string>

namespace vorn_test {

// The host's path of a file; empty where there is no host.
inline std::wstring HostPath(const std::wstring& path)
{
    using Function = char*(CDECL*)(const wchar_t*);
    const auto function = reinterpret_cast<Function>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
    char* text = function != nullptr ? function(path.c_str()) : nullptr;
    if (text == nullptr) return {};
    std::wstring result = std::filesystem::path(text).native();
    HeapFree(GetProcessHeap(), 0, text);
    return result;
}

// Runs a command in the host's shell, in a directory of ours; false where there is no host. Neither the
// command nor the directory may hold a quote.
inline bool RunOnHost(const std::wstring& directory, const std::wstring& command)
{
    const std::wstring hostDirectory = HostPath(directory);
    if (hostDirectory.empty()) return false;
    // The host's processes cannot be waited for; the shell says itself that it has come to the end.
    const std::wstring marker = directory + L".done";
    std::wstring line = L"Z:\\bin\\sh -c \"cd '" + hostDirectory + L"' && " + command + L"; : > '" +
                        hostDirectory + L".done'\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process;
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process)) {
        return false;
    }
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    const ULONGLONG start = GetTickCount64();
    while (!DeleteFileW(marker.c_str())) {
        if (GetTickCount64() - start > kLongWait) return false;
        Sleep(10);
    }
    return true;
}

// Makes empty files named stem0, stem1, ... in a directory.
inline bool MakeManyFiles(const std::wstring& directory, const std::wstring& stem, int count)
{
    if (RunOnHost(directory, L"seq -f " + stem + L"%.0f 0 " + std::to_wstring(count - 1) + L" | xargs touch"))
    {
        return true;
    }
    for (int i = 0; i < count; ++i) {
        HANDLE file = CreateFileW((directory + L"\\" + stem + std::to_wstring(i)).c_str(), GENERIC_WRITE, 0,
                                  nullptr, CREATE_NEW, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE) return false;
        CloseHandle(file);
    }
    return true;
}

}  // namespace vorn_test

#endif
