// temp_folder.h - a folder of the test's own, and files looked at without the library.
#ifndef VORN_TESTS_FILE_TEMP_FOLDER_H
#define VORN_TESTS_FILE_TEMP_FOLDER_H

#include <vorn/vorn.h>

#include "core/win32.h"

#include "support/child_process.h"

#include <gtest/gtest.h>
#include <string>

namespace vorn_test {

// Removes a directory with everything in it, read-only files too.
inline void RemoveTree(const std::wstring& path)
{
    WIN32_FIND_DATAW entry;
    HANDLE search = FindFirstFileW((path + L"\\*").c_str(), &entry);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = entry.cFileName;
            if (name == L"." || name == L"..") continue;
            const std::wstring full = path + L"\\" + name;
            SetFileAttributesW(full.c_str(), FILE_ATTRIBUTE_NORMAL);
            if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                RemoveTree(full);
            } else {
                DeleteFileW(full.c_str());
            }
        } while (FindNextFileW(search, &entry));
        FindClose(search);
    }
    RemoveDirectoryW(path.c_str());
}

class TempFolder {
public:
    TempFolder()
    {
        wchar_t base[MAX_PATH + 1];
        GetTempPathW(MAX_PATH + 1, base);
        path_ = base + UniqueName(L"vorn-test");
        CreateDirectoryW(path_.c_str(), nullptr);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder() { RemoveTree(path_); }

    const std::wstring& Path() const { return path_; }
    std::wstring Path(const std::wstring& name) const { return path_ + L"\\" + name; }

private:
    std::wstring path_;
};

inline void StoreBytes(const std::wstring& path, const std::string& bytes)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
    EXPECT_EQ(written, bytes.size());
    CloseHandle(file);
}

inline std::string LoadBytes(const std::wstring& path)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return "<cannot be opened>";
    std::string bytes(GetFileSize(file, nullptr), '\0');
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr));
    CloseHandle(file);
    bytes.resize(read);
    return bytes;
}

inline bool IsThere(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// The library initialised, a folder of its own, and a number in the last error that no call gives.
class FileFixture : public testing::Test {
protected:
    static constexpr VornStatus kUntouched = 7777;

    FileFixture()
    {
        EXPECT_EQ(VornInitialize(), VORN_OK);
        VornSetLastError(kUntouched);
    }
    ~FileFixture() override { VornTerminate(); }

    std::wstring Path(const std::wstring& name) const { return folder.Path(name); }
    // Opens a file that must open.
    VornFile* Open(const std::wstring& name, VornFileOpenMode mode = VORN_FILE_OPEN_EXISTING,
                   VornFileAccessMode access = VORN_FILE_ACCESS_READ_WRITE)
    {
        VornFile* file = VornFileCreate(Path(name).c_str(), mode, access, VORN_TRUE, nullptr, nullptr);
        EXPECT_NE(file, nullptr) << VornStatusName(VornGetLastError());
        return file;
    }
    VornFile* OpenWith(const std::wstring& name, const std::string& bytes,
                       VornFileAccessMode access = VORN_FILE_ACCESS_READ_WRITE)
    {
        StoreBytes(Path(name), bytes);
        return Open(name, VORN_FILE_OPEN_EXISTING, access);
    }

    TempFolder folder;
};

}  // namespace vorn_test

#endif
