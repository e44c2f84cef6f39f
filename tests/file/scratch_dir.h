// scratch_dir.h - a directory of a test's own, removed with everything in it at the end.
#ifndef VORN_TESTS_FILE_SCRATCH_DIR_H
#define VORN_TESTS_FILE_SCRATCH_DIR_H

#include "file/temp_folder.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace vorn_test {

class ScratchDir : public TempFolder {
public:
    // Something in it: L"a\\b".
    std::wstring operator/(const std::wstring& name) const { return Path(name); }

    std::wstring MakeDir(const std::wstring& name) const
    {
        std::filesystem::create_directories(Path(name));
        return Path(name);
    }
    std::wstring MakeFile(const std::wstring& name, size_t bytes = 0) const
    {
        std::ofstream file(std::filesystem::path(Path(name)), std::ios::binary);
        file << std::string(bytes, 'x');
        return Path(name);
    }
};

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
