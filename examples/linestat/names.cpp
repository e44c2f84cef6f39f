#include "names.h"

#include <algorithm>
#include <utility>

namespace linestat {

namespace {

struct Entry {
    Name name;
    bool directory;
};

// What is still to be taken, the next one last.
using Pending = std::vector<Entry>;

// The system's attribute of links and the like; a walk that entered them might never end.
constexpr uint32_t kReparsePoint = 0x400;

bool IsDirectoryToEnter(const std::wstring& path)
{
    uint32_t attributes = 0;
    return VornFileGetType(path.c_str()) == VORN_FILE_TYPE_DIRECTORY &&
           VornFileGetAttributes(path.c_str(), &attributes) == VORN_OK && (attributes & kReparsePoint) == 0;
}

// Puts the entries of a directory that match the pattern behind what is pending, so that the first by name is
// taken first. The directory may also be a file, whose named streams are its entries.
VornStatus PushEntries(const std::wstring& directory, const std::wstring& pattern, Pending* pending)
{
    const wchar_t* name = nullptr;
    VornFileFind* find = VornFileFindFirst((directory + pattern).c_str(), &name);
    if (find == nullptr) return VornGetLastError();
    const bool streams = name[0] == L':';
    const std::wstring before = streams ? directory.substr(0, directory.size() - 1) : directory;
    const auto first = static_cast<ptrdiff_t>(pending->size());
    do {
        Entry entry;
        entry.name.path = before + name;
        entry.name.examined = true;
        entry.name.size = VornFileFindGetSize(find);
        VornFileFindGetTime(find, nullptr, &entry.name.modified);
        entry.directory = !streams && IsDirectoryToEnter(entry.name.path);
        if (entry.directory || streams ||
            VornFileGetType(entry.name.path.c_str()) != VORN_FILE_TYPE_DIRECTORY) {
            pending->push_back(std::move(entry));
        }
    } while (VornFileFindNext(find, &name) == VORN_OK);
    VornFileFindClose(find);
    std::sort(pending->begin() + first, pending->end(),
              [](const Entry& a, const Entry& b) { return a.name.path > b.name.path; });
    return VORN_OK;
}

void PushFailure(const std::wstring& path, VornStatus status, Pending* pending)
{
    Entry entry = {};
    entry.name.path = path;
    entry.name.status = status;
    pending->push_back(std::move(entry));
}

// Takes everything that is pending and what comes up on the way.
void TakeAll(Pending pending, std::vector<Name>* files)
{
    while (!pending.empty()) {
        Entry entry = std::move(pending.back());
        pending.pop_back();
        if (!entry.directory) {
            files->push_back(std::move(entry.name));
            continue;
        }
        const VornStatus status = PushEntries(entry.name.path + L"\\", L"*", &pending);
        if (status != VORN_OK && status != VORN_E_NOT_FOUND) PushFailure(entry.name.path, status, &pending);
    }
}

// The library takes only the backslash for a separator; on a command line either will do.
std::wstring WithBackslashes(std::wstring path)
{
    std::replace(path.begin(), path.end(), L'/', L'\\');
    return path;
}

Name PlainName(const std::wstring& word)
{
    Name name;
    name.path = word;
    name.examined = VornFileGetTimeByName(word.c_str(), nullptr, &name.modified, nullptr) == VORN_OK;
    if (name.examined) name.size = VornFileGetSizeByName(word.c_str());
    return name;
}

void ExpandWord(const std::wstring& word, std::vector<Name>* files)
{
    Pending pending;
    const std::wstring path = WithBackslashes(word);
    const size_t nameStart = path.rfind(L'\\') + 1;  // 0 when there is no separator
    if (path.find_first_of(L"*?", nameStart) != std::wstring::npos) {
        const VornStatus status = PushEntries(path.substr(0, nameStart), path.substr(nameStart), &pending);
        if (status != VORN_OK) PushFailure(word, status, &pending);
    } else if (VornFileExistsDir(word.c_str())) {
        Entry directory = {};
        directory.name.path = path.substr(0, path.find_last_not_of(L'\\') + 1);
        directory.directory = true;
        pending.push_back(std::move(directory));
    } else {
        files->push_back(PlainName(word));
    }
    TakeAll(std::move(pending), files);
}

}  // namespace

std::vector<Name> ExpandNames(const std::vector<std::wstring>& words)
{
    std::vector<Name> files;
    for (const std::wstring& word : words) ExpandWord(word, &files);
    return files;
}

}  // namespace linestat
