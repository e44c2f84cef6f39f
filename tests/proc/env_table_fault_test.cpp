// Built on the host only, where the linker leads the allocation functions through here.

#include "proc/env_table.h"
#include "proc/start_strings.h"
#include "proc/utf16_text.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <vector>

using namespace vorn::detail;
using vorn_test::Narrowed;
using vorn_test::Wide;

namespace {

long callsUntilFailure = 0;  // 0: none fails
long failuresDelivered = 0;

bool FailsNow()
{
    if (callsUntilFailure == 0 || --callsUntilFailure != 0) return false;
    ++failuresDelivered;
    return true;
}

}  // namespace

extern "C" {
void* __real_malloc(size_t size);
void* __real_realloc(void* block, size_t size);

void* __wrap_malloc(size_t size)
{
    return FailsNow() ? nullptr : __real_malloc(size);
}
void* __wrap_realloc(void* block, size_t size)
{
    return FailsNow() ? nullptr : __real_realloc(block, size);
}
}

namespace {

// Runs `body` with each of its allocations failing in turn; `body` returns whether it succeeded.
template <class Body>
long FailEachAllocation(Body&& body)
{
    for (long nth = 1;; ++nth) {
        const long before = failuresDelivered;
        callsUntilFailure = nth;
        const bool succeeded = body();
        callsUntilFailure = 0;
        if (failuresDelivered == before) {
            EXPECT_TRUE(succeeded);
            return nth - 1;
        }
        EXPECT_FALSE(succeeded) << "allocation " << nth;
    }
}

std::vector<std::u16string> Strings(const VornProcEnv& env)
{
    std::vector<std::u16string> strings;
    for (uint32_t i = 0; i + 1 < env.count; ++i) strings.push_back(Narrowed(env.entries[i]));
    EXPECT_EQ(env.entries[env.count - 1], nullptr);
    return strings;
}

}  // namespace

TEST(EnvTableFaults, AFailedCopyLeavesNothingBehind)
{
    const long failures = FailEachAllocation([] {
        VornProcEnv env{};
        const bool made = EnvTableInit(&env, Wide(u"b=2\0a=1\0c=3\0\0"));
        if (made) {
            EnvTableClear(&env);
        } else {
            EXPECT_EQ(env.entries, nullptr);
        }
        return made;
    });
    EXPECT_EQ(failures, 4);  // the slots and three strings; the address sanitizer watches for what is left
}

TEST(EnvTableFaults, AFailedSetLeavesTheTableAsItWas)
{
    long failures = 0;
    for (int entries = 0; entries < 30; ++entries) {
        VornProcEnv env{};
        ASSERT_TRUE(EnvTableInit(&env, nullptr));
        for (int i = 0; i < entries; ++i) {
            const std::u16string name = {u'n', static_cast<char16_t>(u'a' + (i * 7) % 30)};
            ASSERT_EQ(EnvTableSet(&env, Wide(name), Wide(u"v")), VORN_OK);
        }
        const std::vector<std::u16string> before = Strings(env);
        // A new name at the front, in the middle and at the end; each run but the last fails.
        for (const char16_t* name : {u"a", u"nm!", u"z"}) {
            failures += FailEachAllocation([&] {
                const VornStatus status = EnvTableSet(&env, Wide(name), Wide(u"new"));
                if (status == VORN_OK) return true;
                EXPECT_EQ(status, VORN_E_NO_MEMORY);
                EXPECT_EQ(Strings(env), before);
                return false;
            });
            ASSERT_EQ(EnvTableSet(&env, Wide(name), nullptr), VORN_OK);
            ASSERT_EQ(Strings(env), before);
        }
        // A longer value for a name that is there.
        if (entries != 0) {
            failures += FailEachAllocation([&] {
                const VornStatus status = EnvTableSet(&env, Wide(u"NA"), Wide(u"longer than before"));
                if (status == VORN_OK) return true;
                EXPECT_EQ(status, VORN_E_NO_MEMORY);
                EXPECT_EQ(Strings(env), before);
                return false;
            });
        }
        EnvTableClear(&env);
    }
    EXPECT_GE(failures, 30 * 3 + 29);
    std::printf("%ld allocation failures delivered\n", failuresDelivered);
}

TEST(EnvTableFaults, TheStringsOfANewProcessReportExhaustedMemory)
{
    VornProcEnv env{};
    ASSERT_TRUE(EnvTableInit(&env, Wide(u"a=1\0\0")));
    EXPECT_EQ(FailEachAllocation([&] { return static_cast<bool>(BuildEnvironmentBlock(env)); }), 1);
    EXPECT_EQ(FailEachAllocation([] { return static_cast<bool>(BuildCommandLine(Wide(u"p"), Wide(u"a"))); }),
              1);
    EnvTableClear(&env);
}
