#include "find_files.h"

#include "messages.h"

#include <algorithm>

namespace wordindex {

namespace {

constexpr int kDeepest = 256;  // directories inside each other

// The system's attribute of links and the like.
constexpr uint32_t kReparsePoint = 0x400;

// A walk that followed links might go round for ever.
bool IsLink(const std::wstring& path)
{
    uint32_t attributes = 0;
    return VornFileGetAttributes(path.c_str(), &attributes) == VORN_OK && (attributes & kReparsePoint) != 0;
}

bool EndsInBackslash(const std::wstring& name)
{
    return !name.empty() && name.back() == L'\\';
}

// Adds the files that match; the directories that match go to `directories` where that is not null.
bool Search(const std::wstring& pattern, std::vector<FoundFile>* files,
            std::vector<std::wstring>* directories)
{
    const size_t slash = pattern.find_last_of(L'\\');
    const std::wstring directory = slash == std::wstring::npos ? L"" : pattern.substr(0, slash + 1);
    const wchar_t* name = nullptr;
    VornFileFind* find = VornFileFindFirst(pattern.c_str(), &name);
    if (find == nullptr) {
        const VornStatus status = VornGetLastError();
        if (status == VORN_E_NOT_FOUND && directories != nullptr) return true;  // an empty directory
        Complain(pattern, status);
        return false;
    }
    VornStatus status = VORN_OK;
    for (; status == VORN_OK; status = VornFileFindNext(find, &name)) {
        const std::wstring full = directory + name;
        if (VornFileExistsDir(full.c_str()) == VORN_TRUE) {
            if (directories != nullptr && !IsLink(full)) directories->push_back(full);
        } else {
            files->push_back({full, VornFileFindGetSize(find)});
        }
    }
    VornFileFindClose(find);
    if (status == VORN_E_NO_MORE) return true;
    Complain(pattern, status);
    return false;
}

bool Walk(const std::wstring& directory, int depth, std::vector<FoundFile>* files)
{
    if (depth > kDeepest) {
        Complain(directory, "too many directories inside each other", VORN_E_RANGE);
        return false;
    }
    std::vector<std::wstring> directories;
    bool fine = Search(directory + (EndsInBackslash(directory) ? L"*" : L"\\*"), files, &directories);
    for (const std::wstring& inner : directories) fine &= Walk(inner, depth + 1, files);
    return fine;
}

}  // namespace

bool FindFiles(const std::wstring& word, std::vector<FoundFile>* files)
{
    std::wstring name = word;
    std::replace(name.begin(), name.end(), L'/', L'\\');
    if (name.find_first_of(L"*?") != std::wstring::npos) return Search(name, files, nullptr);
    if (VornFileExistsDir(name.c_str()) == VORN_TRUE) return Walk(name, 0, files);
    const uint64_t size = VornFileGetSizeByName(name.c_str());
    if (size == VORN_FILE_FAILED) {
        Complain(word, VornGetLastError());
        return false;
    }
    files->push_back({name, size});
    return true;
}

}  // namespace wordindex
