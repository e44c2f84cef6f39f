// scratch_dir.h - a directory of a test's own, removed with everything in it at the end.
#ifndef VORN_TESTS_FILE_SCRATCH_DIR_H
#define VORN_TESTS_FILE_SCRATCH_DIR_H

#include "core/win32.h"

#include "support/child_process.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace vorn_test {

class ScratchDir {
public:
    ScratchDir() : path_(std::filesystem::temp_directory_path() / UniqueName(L"vorn_scratch"))
    {
        std::filesystem::create_directories(path_);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    ~ScratchDir()
    {
        std::error_code ignored;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path_, ignored)) {
            SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
        }
        std::filesystem::remove_all(path_, ignored);
    }

    // The directory without a trailing backslash.
    std::wstring Path() const { return path_.native(); }
    // Something in it: L"a\\b".
    std::wstring operator/(const std::wstring& name) const { return path_.native() + L"\\" + name; }

    std::wstring MakeDir(const std::wstring& name) const
    {
        std::filesystem::create_directories(path_ / name);
        return *this / name;
    }
    std::wstring MakeFile(const std::wstring& name, size_t bytes = 0) const
    {
        std::ofstream file(path_ / name, std::ios::binary);
        file << std::string(bytes, 'x');
        return *this / name;
    }

private:
    std::filesystem::path path_;
};

inline bool Exists(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Makes a directory current for a scope.
class CurrentDirScope {
public:
    explicit CurrentDirScope(const std::wstring& path) : before_(std::filesystem::current_path())
    {
        std::filesystem::current_path(path);
    }
    CurrentDirScope(const CurrentDirScope&) = delete;
    CurrentDirScope& operator=(const CurrentDirScope&) = delete;
    ~CurrentDirScope() { std::filesystem::current_path(before_); }

private:
    std::filesystem::path before_;
};

}  // namespace vorn_test

#endif
