// remove_dir.cpp - removing a directory, emptied first if asked.

#include <vorn/file_find.h>

#include "core/win32.h"

#include "core/system_error.h"
#include "core/utf16.h"
#include "file/find_directory.h"
#include "file/found_entry.h"

#include <cstring>
#include <utility>

using namespace vorn::detail;

namespace {

VornStatus StatusOf(BOOL succeeded) noexcept
{
    return succeeded ? VORN_OK : StatusFromSystemError(GetLastError());
}

// The path of the directory or entry at hand, below a root that stays as the caller gave it. Entries are
// entered and left one by one, so that a tree of any depth needs one path and no recursion.
// Invariant: the memory holds two units more than the text and its terminator, for a search pattern.
class TreePath {
public:
    TreePath() noexcept = default;
    TreePath(const TreePath&) = delete;
    TreePath& operator=(const TreePath&) = delete;
    ~TreePath() { std::free(text_); }

    const wchar_t* Text() const noexcept { return text_; }
    bool AtRoot() const noexcept { return units_ == rootUnits_; }

    // False when memory is exhausted, here and below: the path is then as it was.
    bool SetRoot(const wchar_t* root) noexcept
    {
        rootUnits_ = LengthUnits(root);
        if (!Reserve(rootUnits_)) return false;
        std::memcpy(text_, root, (rootUnits_ + 1) * sizeof(wchar_t));
        units_ = rootUnits_;
        return true;
    }

    bool Enter(const wchar_t* name) noexcept
    {
        const size_t nameUnits = LengthUnits(name);
        if (!Reserve(units_ + 1 + nameUnits)) return false;
        if (text_[units_ - 1] != L'\\') text_[units_++] = L'\\';
        std::memcpy(text_ + units_, name, (nameUnits + 1) * sizeof(wchar_t));
        units_ += nameUnits;
        return true;
    }

    // Back to the directory that the path at hand is in. Not at the root.
    void Leave() noexcept
    {
        do --units_;
        while (text_[units_] != L'\\');
        if (units_ < rootUnits_) units_ = rootUnits_;  // a root that ends in a backslash keeps it
        text_[units_] = 0;
    }

    // Finds the first entry of the directory at hand other than "." and ".."; false when there is none.
    bool FindFirstEntry(WIN32_FIND_DATAW* entry) const noexcept
    {
        const bool closed = text_[units_ - 1] == L'\\';
        std::memcpy(text_ + units_, closed ? L"*\0" : L"\\*", 3 * sizeof(wchar_t));
        HANDLE search = FindFirstFileW(text_, entry);
        text_[units_] = 0;
        if (search == INVALID_HANDLE_VALUE) return false;
        bool found = true;
        while (found && IsDotEntry(entry->cFileName)) found = FindNextFileW(search, entry) != FALSE;
        FindClose(search);
        return found;
    }

    // Finds the root in the directory that it is in; false when that fails.
    bool FindRoot(WIN32_FIND_DATAW* entry) const noexcept
    {
        size_t end = rootUnits_;
        while (end != 0 && text_[end - 1] == L'\\') --end;
        const wchar_t kept = std::exchange(text_[end], L'\0');
        const bool found = FindEntry(text_, entry) == VORN_OK;
        text_[end] = kept;
        return found;
    }

private:
    bool Reserve(size_t units) noexcept
    {
        const size_t needed = units + 3;
        if (text_ != nullptr && needed <= capacity_) return true;
        const size_t grown = needed < 512 ? 512 : needed + needed / 2;
        auto* text = static_cast<wchar_t*>(std::realloc(text_, grown * sizeof(wchar_t)));
        if (text == nullptr) return false;
        text_ = text;
        capacity_ = grown;
        return true;
    }

    wchar_t* text_ = nullptr;
    size_t units_ = 0;
    size_t rootUnits_ = 0;
    size_t capacity_ = 0;  // units
};

// Whether a directory's entry stands for a directory elsewhere. Reparse points are also used for directories
// of which a part lies in another store; those have a tag that says so and count as what they seem to be.
bool IsDirectoryLink(const WIN32_FIND_DATAW& entry) noexcept
{
    // Up to this value a tag says nothing: what is behind is not known, and is left alone.
    constexpr DWORD kReservedTags = 1;
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
    return IsReparseTagNameSurrogate(entry.dwReserved0) || entry.dwReserved0 <= kReservedTags;
}

// The same for the root; a reparse point that cannot be examined counts as a link.
bool IsRootLink(const TreePath& tree) noexcept
{
    const DWORD attributes = GetFileAttributesW(tree.Text());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        return false;
    WIN32_FIND_DATAW entry;
    return !tree.FindRoot(&entry) || IsDirectoryLink(entry);
}

VornStatus RemoveFile(const wchar_t* path, DWORD attributes, uint32_t clearReadOnly) noexcept
{
    // A failure to clear the attribute shows in the deletion.
    if (clearReadOnly == 1 && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        SetFileAttributesW(path, attributes & ~DWORD{FILE_ATTRIBUTE_READONLY});
    }
    return StatusOf(DeleteFileW(path));
}

// Empties the directory and removes it. The search is begun anew after every removal: entries that appear or
// vanish meanwhile cannot confuse it.
VornStatus RemoveTree(const wchar_t* path, bool recurse, bool deleteFiles, uint32_t clearReadOnly) noexcept
{
    TreePath tree;
    if (!tree.SetRoot(path)) return VORN_E_NO_MEMORY;
    // A link is removed itself; what it points to stays as it is.
    if (IsRootLink(tree)) return StatusOf(RemoveDirectoryW(path));
    for (;;) {
        WIN32_FIND_DATAW entry;
        VornStatus status;
        if (!tree.FindFirstEntry(&entry)) {
            status = StatusOf(RemoveDirectoryW(tree.Text()));
            if (tree.AtRoot()) return status;
        } else {
            if (!tree.Enter(entry.cFileName)) return VORN_E_NO_MEMORY;
            const DWORD attributes = GetFileAttributesW(tree.Text());
            // What cannot be examined is taken for a directory.
            if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                if (!recurse) return VORN_E_DIR_NOT_EMPTY;
                if (!IsDirectoryLink(entry)) continue;  // with the directory now at hand
                status = StatusOf(RemoveDirectoryW(tree.Text()));
            } else {
                if (!deleteFiles) return VORN_E_DIR_NOT_EMPTY;
                status = RemoveFile(tree.Text(), attributes, clearReadOnly);
            }
        }
        if (status != VORN_OK) return status;
        tree.Leave();
    }
}

}  // namespace

extern "C" VornStatus VornFileRemoveDir(const wchar_t* path, int32_t recurse, uint32_t deleteFiles,
                                        uint32_t clearReadOnly)
{
    if (path == nullptr || *path == 0) return VORN_E_INVALID_ARG;
    if (recurse == 0 && deleteFiles == 0) return StatusOf(RemoveDirectoryW(path));
    return RemoveTree(path, recurse != 0, deleteFiles != 0, clearReadOnly);
}
