// env_table.h - the sorted NAME=value strings of one environment block.
//
// No locks, no handles, no system calls. Look-ups only read, so they may run beside each other; who changes
// a table must be alone with it.
// Invariants: entries[0 .. count-2] are strings of their own, sorted by name; entries[count-1] is null.
#ifndef VORN_PROC_ENV_TABLE_H
#define VORN_PROC_ENV_TABLE_H

#include <vorn/proc.h>

struct VornProcEnv {
    uint32_t count;     // slots in use, the null slot included
    uint32_t capacity;  // slots allocated
    wchar_t** entries;
};

namespace vorn::detail {

// The name order: both names end at their first '=' or at their end, and are compared by the code units of
// their full default case foldings. Negative, 0 or positive. A string that begins with '=' has an empty name.
int CompareEnvNames(const wchar_t* a, const wchar_t* b) noexcept;

// Fills a zeroed record from strings that stand one after another and end with an empty one (null: none).
// Equal names keep their order. False when memory is exhausted; nothing is left to free then.
bool EnvTableInit(VornProcEnv* env, const wchar_t* strings) noexcept;

// Frees the strings and the slots, not the record.
void EnvTableClear(VornProcEnv* env) noexcept;

// What VornProcEnvSet and VornProcEnvGet do with a valid block and arguments that are not null.
VornStatus EnvTableSet(VornProcEnv* env, const wchar_t* name, const wchar_t* value) noexcept;
VornStatus EnvTableGet(const VornProcEnv& env, const wchar_t* name, wchar_t* value, uint32_t* size) noexcept;

}  // namespace vorn::detail

#endif
