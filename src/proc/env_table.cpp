#include "proc/env_table.h"

#include "core/record.h"
#include "core/utf16.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <unicode/uchar.h>
#include <unicode/ustring.h>

namespace vorn::detail {

namespace {

constexpr uint32_t kSpareSlots = 9;  // of a new table, the null slot included
constexpr uint32_t kGrowSlots = 8;
constexpr uint32_t kAsciiUnits = 128;

// What an ASCII unit folds to; 0 for the two units that end a name.
constexpr std::array<uint8_t, kAsciiUnits> MakeAsciiFold()
{
    std::array<uint8_t, kAsciiUnits> fold{};
    for (uint32_t unit = 0; unit < kAsciiUnits; ++unit) {
        fold[unit] = static_cast<uint8_t>(unit >= 'A' && unit <= 'Z' ? unit - 'A' + 'a' : unit);
    }
    fold['='] = 0;
    return fold;
}
constexpr std::array<uint8_t, kAsciiUnits> kAsciiFold = MakeAsciiFold();

const wchar_t* NameEnd(const wchar_t* text) noexcept
{
    while (*text != 0 && *text != L'=') ++text;
    return text;
}

const UChar* AsUChar(const wchar_t* text) noexcept
{
    return reinterpret_cast<const UChar*>(text);
}

int CompareNamesFolded(const wchar_t* a, const wchar_t* b) noexcept
{
    UErrorCode error = U_ZERO_ERROR;
    return u_strCaseCompare(AsUChar(a), static_cast<int32_t>(NameEnd(a) - a), AsUChar(b),
                            static_cast<int32_t>(NameEnd(b) - b), U_FOLD_CASE_DEFAULT, &error);
}

uint32_t StringCount(const VornProcEnv& env) noexcept
{
    return env.count - 1;
}

// The first string whose name is not before `name`, and whether it has that name.
struct Place {
    uint32_t index;
    bool found;
};

Place FindName(const VornProcEnv& env, const wchar_t* name) noexcept
{
    uint32_t low = 0;
    uint32_t high = StringCount(env);
    bool found = false;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        const int order = CompareEnvNames(env.entries[middle], name);
        if (order < 0) {
            low = middle + 1;
        } else {
            // The search ends at the last string that was not before `name`.
            high = middle;
            found = order == 0;
        }
    }
    return {low, found};
}

// Where a string goes so that it stands after all of its equals.
uint32_t PlaceAfterEquals(const VornProcEnv& env, const wchar_t* name) noexcept
{
    uint32_t low = 0;
    uint32_t high = StringCount(env);
    // Environments arrive almost sorted: most strings belong at the end.
    if (high != 0 && CompareEnvNames(env.entries[high - 1], name) <= 0) return high;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (CompareEnvNames(env.entries[middle], name) <= 0) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

// The slots behind `index`, the null slot included, move up by one. There is a spare slot.
void InsertAt(VornProcEnv* env, uint32_t index, wchar_t* text) noexcept
{
    std::memmove(env->entries + index + 1, env->entries + index, (env->count - index) * sizeof(wchar_t*));
    env->entries[index] = text;
    ++env->count;
}

void RemoveAt(VornProcEnv* env, uint32_t index) noexcept
{
    std::free(env->entries[index]);
    --env->count;
    std::memmove(env->entries + index, env->entries + index + 1, (env->count - index) * sizeof(wchar_t*));
}

bool MakeRoom(VornProcEnv* env) noexcept
{
    if (env->count < env->capacity) return true;
    void* grown = std::realloc(env->entries, (size_t{env->capacity} + kGrowSlots) * sizeof(wchar_t*));
    if (grown == nullptr) return false;
    env->entries = static_cast<wchar_t**>(grown);
    env->capacity += kGrowSlots;
    return true;
}

// A NAME=value pair that is yet to be written.
struct Pair {
    const wchar_t* name;
    const wchar_t* value;
    size_t nameLength;
    size_t valueLength;

    size_t Length() const noexcept { return nameLength + 1 + valueLength; }
    void WriteTo(wchar_t* text) const noexcept
    {
        std::memcpy(text, name, nameLength * sizeof(wchar_t));
        text[nameLength] = L'=';
        std::memcpy(text + nameLength + 1, value, (valueLength + 1) * sizeof(wchar_t));
    }
};

VornStatus ReplaceAt(VornProcEnv* env, uint32_t index, const Pair& pair) noexcept
{
    wchar_t*& entry = env->entries[index];
    if (pair.Length() > LengthUnits(entry)) {
        Buffer<wchar_t> text(pair.Length() + 1);
        if (!text) return VORN_E_NO_MEMORY;
        std::free(entry);
        entry = text.Release();
    }
    pair.WriteTo(entry);
    return VORN_OK;
}

}  // namespace

int CompareEnvNames(const wchar_t* a, const wchar_t* b) noexcept
{
    // An ASCII unit folds to one ASCII unit, so as long as both names are ASCII, equal units stand at equal
    // places. From the first other unit on ICU decides: folding looks at one code point at a time, and no
    // code point begins before that unit.
    for (;; ++a, ++b) {
        const uint32_t unitA = static_cast<uint16_t>(*a);
        const uint32_t unitB = static_cast<uint16_t>(*b);
        if ((unitA | unitB) >= kAsciiUnits) return CompareNamesFolded(a, b);
        const int foldedA = kAsciiFold[unitA];
        const int foldedB = kAsciiFold[unitB];
        if (foldedA != foldedB) return foldedA - foldedB;
        if (foldedA == 0) return 0;
    }
}

bool EnvTableInit(VornProcEnv* env, const wchar_t* strings) noexcept
{
    if (strings == nullptr) strings = L"";
    uint32_t stringCount = 0;
    for (const wchar_t* text = strings; *text != 0; text += LengthUnits(text) + 1) ++stringCount;
    Buffer<wchar_t*> slots(size_t{stringCount} + kSpareSlots);
    if (!slots) return false;
    env->entries = slots.Release();
    env->capacity = stringCount + kSpareSlots;
    env->count = 1;
    env->entries[0] = nullptr;
    for (const wchar_t* text = strings; *text != 0;) {
        const size_t units = LengthUnits(text) + 1;
        Buffer<wchar_t> copy(units);
        if (!copy) {
            EnvTableClear(env);
            return false;
        }
        std::memcpy(copy.Get(), text, units * sizeof(wchar_t));
        InsertAt(env, PlaceAfterEquals(*env, text), copy.Release());
        text += units;
    }
    return true;
}

void EnvTableClear(VornProcEnv* env) noexcept
{
    for (uint32_t i = 0; i < StringCount(*env); ++i) std::free(env->entries[i]);
    std::free(env->entries);
    *env = {};
}

VornStatus EnvTableSet(VornProcEnv* env, const wchar_t* name, const wchar_t* value) noexcept
{
    const Place place = FindName(*env, name);
    if (value == nullptr) {
        if (place.found) RemoveAt(env, place.index);
        return VORN_OK;
    }
    const Pair pair = {name, value, LengthUnits(name), LengthUnits(value)};
    if (place.found) return ReplaceAt(env, place.index, pair);
    // The string comes first: a table that only grew has not changed for its clients.
    Buffer<wchar_t> text(pair.Length() + 1);
    if (!text || !MakeRoom(env)) return VORN_E_NO_MEMORY;
    pair.WriteTo(text.Get());
    InsertAt(env, place.index, text.Release());
    return VORN_OK;
}

VornStatus EnvTableGet(const VornProcEnv& env, const wchar_t* name, wchar_t* value, uint32_t* size) noexcept
{
    const uint32_t capacity = *size;
    *size = 0;
    const Place place = FindName(env, name);
    if (!place.found) return VORN_ENV_NOT_FOUND;
    const wchar_t* equals = NameEnd(env.entries[place.index]);
    if (*equals == 0) return VORN_E_SYSTEM;
    const wchar_t* text = equals + 1;
    const size_t needed = LengthUnits(text) + 1;
    *size = static_cast<uint32_t>(needed);
    if (capacity < needed) return VORN_E_BUFFER_TOO_SMALL;
    if (value != nullptr) std::memcpy(value, text, needed * sizeof(wchar_t));
    return VORN_OK;
}

}  // namespace vorn::detail
