#include "proc/start_strings.h"

#include "core/utf16.h"

#include <cstring>

namespace vorn::detail {

namespace {

// Copies `units` units and returns where they end.
wchar_t* Append(wchar_t* to, const wchar_t* from, size_t units) noexcept
{
    std::memcpy(to, from, units * sizeof(wchar_t));
    return to + units;
}

}  // namespace

Buffer<wchar_t> BuildCommandLine(const wchar_t* program, const wchar_t* args) noexcept
{
    constexpr size_t kExtraUnits = 4;  // two quotes, a space, the terminating zero
    const size_t programLength = program == nullptr ? 0 : LengthUnits(program);
    const size_t argsLength = args == nullptr ? 0 : LengthUnits(args);
    Buffer<wchar_t> line(programLength + argsLength + kExtraUnits);
    if (!line) return line;
    wchar_t* end = line.Get();
    if (program != nullptr) {
        const bool quoted = *program == L'"';
        if (!quoted) *end++ = L'"';
        end = Append(end, program, programLength);
        if (!quoted) *end++ = L'"';
        if (args != nullptr) *end++ = L' ';
    }
    if (args != nullptr) end = Append(end, args, argsLength);
    *end = 0;
    return line;
}

Buffer<wchar_t> BuildEnvironmentBlock(const VornProcEnv& env) noexcept
{
    size_t units = 2;
    for (uint32_t i = 0; i + 1 < env.count; ++i) units += LengthUnits(env.entries[i]) + 1;
    Buffer<wchar_t> block(units);
    if (!block) return block;
    wchar_t* end = block.Get();
    for (uint32_t i = 0; i + 1 < env.count; ++i) {
        end = Append(end, env.entries[i], LengthUnits(env.entries[i]) + 1);
    }
    end[0] = 0;
    end[1] = 0;
    return block;
}

}  // namespace vorn::detail
