// find_full_name.cpp - the full name of a search's current entry.

#include <vorn/file_find.h>

#include "core/record.h"
#include "core/registries.h"
#include "core/utf16.h"
#include "file/find_record.h"
#include "file/path_text.h"
#include "file/shell_path.h"

#include <cstring>

using namespace vorn::detail;

namespace {

// Longer paths than this stay as they are.
constexpr unsigned kQualifiedUnits = 520;

// The entry's path: on the stack unless it is a long one.
class EntryPath {
public:
    EntryPath(const wchar_t* prefix, const wchar_t* name) noexcept
    {
        const size_t prefixUnits = LengthUnits(prefix);
        const size_t nameUnits = LengthUnits(name);
        if (prefixUnits + nameUnits >= kShortUnits) {
            long_ = Concatenate(prefix, prefixUnits, name, nameUnits);
            text_ = long_.Get();
            return;
        }
        std::memcpy(short_, prefix, prefixUnits * sizeof(wchar_t));
        std::memcpy(short_ + prefixUnits, name, (nameUnits + 1) * sizeof(wchar_t));
        text_ = short_;
    }
    // Null when memory is exhausted.
    const wchar_t* Text() const noexcept { return text_; }

private:
    static constexpr size_t kShortUnits = 600;
    wchar_t short_[kShortUnits];
    Buffer<wchar_t> long_;
    const wchar_t* text_;
};

// Puts a text into the search's buffer, which grows to exactly what the text needs. False when memory is
// exhausted: the search then has no buffer.
bool StoreFullName(VornFileFind* find, const wchar_t* text) noexcept
{
    const size_t bytes = (LengthUnits(text) + 1) * sizeof(wchar_t);
    if (bytes > find->fullNameBytes) {
        std::free(find->fullName);
        find->fullNameBytes = 0;
        find->fullName = static_cast<wchar_t*>(std::malloc(bytes));
        if (find->fullName == nullptr) return false;
        find->fullNameBytes = static_cast<uint32_t>(bytes);
    }
    std::memcpy(find->fullName, text, bytes);
    return true;
}

}  // namespace

extern "C" VornStatus VornFileFindGetFullName(VornFileFind* find, const wchar_t** fullName)
{
    if (fullName == nullptr || !FileSearches().Contains(find)) return VORN_E_INVALID_ARG;
    const EntryPath path(find->prefix != nullptr ? find->prefix : L"", CurrentName(find));
    if (path.Text() == nullptr) return VORN_E_NO_MEMORY;

    // Asked for each time: the library may have been terminated since, and the module freed.
    const ShellPath shell = GetShellPath();
    find->shellModule = shell.module;
    find->qualify = shell.qualify;
    wchar_t qualified[kQualifiedUnits];
    qualified[0] = 0;
    const wchar_t* text = path.Text();
    if (find->qualify != nullptr && find->qualify(text, qualified, kQualifiedUnits) && qualified[0] != 0) {
        qualified[kQualifiedUnits - 1] = 0;
        text = qualified;
    }
    if (!StoreFullName(find, text)) return VORN_E_NO_MEMORY;
    *fullName = find->fullName;
    return VORN_OK;
}
