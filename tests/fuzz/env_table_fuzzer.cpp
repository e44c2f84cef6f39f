// Random sets and gets on an environment table, from bytes: the table stays sorted, ends with its null slot
// and agrees with a list that is searched from end to end.

#include "proc/env_table.h"
#include "proc/start_strings.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <utility>
#include <vector>

using namespace vorn::detail;

namespace {

// Hands out the input from its front.
class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), end_(data + size) {}
    bool Empty() const { return data_ == end_; }
    uint8_t Byte() { return Empty() ? 0 : *data_++; }
    // Units up to a zero: bytes below 0xF0 are units, the others begin a unit of two bytes.
    std::u16string Text()
    {
        std::u16string text;
        while (uint16_t unit = Byte()) {
            if (unit >= 0xF0) unit = static_cast<uint16_t>(Byte() << 8 | Byte());
            if (unit == 0) break;
            text += static_cast<char16_t>(unit);
        }
        return text;
    }

private:
    const uint8_t* data_;
    const uint8_t* end_;
};

std::u16string Folded(const std::u16string& text)
{
    const std::u16string name = text.substr(0, text.find(u'='));
    std::vector<char16_t> folded(name.size() * 4 + 1);
    UErrorCode error = U_ZERO_ERROR;
    const int32_t length = u_strFoldCase(folded.data(), static_cast<int32_t>(folded.size()), name.data(),
                                         static_cast<int32_t>(name.size()), U_FOLD_CASE_DEFAULT, &error);
    return std::u16string(folded.data(), static_cast<size_t>(length));
}

void Require(bool condition)
{
    if (!condition) std::abort();
}

const wchar_t* Wide(const std::u16string& text)
{
    return reinterpret_cast<const wchar_t*>(text.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    VornProcEnv env{};
    Require(EnvTableInit(&env, nullptr));
    std::vector<std::pair<std::u16string, std::u16string>> model;  // folded name, string; in no order
    while (!input.Empty()) {
        const uint8_t choice = input.Byte();
        const std::u16string name = input.Text();
        const std::u16string folded = Folded(name);
        auto known = model.begin();
        while (known != model.end() && known->first != folded) ++known;
        if (choice % 4 == 0) {
            Require(EnvTableSet(&env, Wide(name), nullptr) == VORN_OK);
            if (known != model.end()) model.erase(known);
        } else if (choice % 4 == 1) {
            std::vector<wchar_t> value(choice);
            uint32_t units = choice;
            const VornStatus status = EnvTableGet(env, Wide(name), value.data(), &units);
            Require((status == VORN_ENV_NOT_FOUND) == (known == model.end()));
            if (known == model.end()) continue;
            const std::u16string expected = known->second.substr(known->second.find(u'=') + 1);
            Require(units == expected.size() + 1);
            Require(status == (units <= choice ? VORN_OK : VORN_E_BUFFER_TOO_SMALL));
            if (status == VORN_OK)
                Require(std::memcmp(value.data(), expected.c_str(), units * sizeof(wchar_t)) == 0);
        } else {
            const std::u16string value = input.Text();
            Require(EnvTableSet(&env, Wide(name), Wide(value)) == VORN_OK);
            if (known == model.end()) known = model.insert(known, {folded, {}});
            known->second = name + u"=" + value;
        }
    }
    Require(env.count == model.size() + 1 && env.entries[model.size()] == nullptr &&
            env.count <= env.capacity);
    for (uint32_t i = 0; i + 2 < env.count; ++i)
        Require(CompareEnvNames(env.entries[i], env.entries[i + 1]) < 0);
    Require(static_cast<bool>(BuildEnvironmentBlock(env)));
    EnvTableClear(&env);
    return 0;
}
