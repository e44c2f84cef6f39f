#include "proc/proc_fixture.h"
#include "support/guard_buffer.h"

#include <algorithm>
#include <vector>

using namespace vorn_test;

namespace {

class ProcVar : public ProcTest {};

class ProcEnv : public ProcTest {
protected:
    ProcEnv() : env(VornProcEnvAlloc(VORN_ENV_EMPTY)) {}
    ~ProcEnv() override { VornProcEnvFree(env); }

    // The value, or what stands for its absence.
    std::wstring Get(const wchar_t* name, VornProcEnv* from = nullptr)
    {
        wchar_t buffer[4096];
        uint32_t size = 4096;
        const VornStatus status = VornProcEnvGet(from == nullptr ? env : from, name, buffer, &size);
        if (status == VORN_ENV_NOT_FOUND) return L"<not found>";
        if (status != VORN_OK) return L"<status " + std::to_wstring(status) + L">";
        EXPECT_EQ(size, wcslen(buffer) + 1);
        return buffer;
    }

    VornProcEnv* env;
};

}  // namespace

TEST_F(ProcVar, ReadsWhatWasSet)
{
    EXPECT_EQ(VornProcSetVar(L"VORN_TEST_VAR", L"value \xD83D\xDE00"), VORN_OK);
    wchar_t buffer[32];
    uint32_t size = 32;
    EXPECT_EQ(VornProcGetVar(L"VORN_TEST_VAR", buffer, &size), VORN_OK);
    EXPECT_STREQ(buffer, L"value \xD83D\xDE00");
    EXPECT_EQ(size, 32u);  // left as it was
    EXPECT_EQ(VornProcSetVar(L"VORN_TEST_VAR", nullptr), VORN_OK);
    EXPECT_EQ(VornProcGetVar(L"VORN_TEST_VAR", buffer, &size), VORN_E_SYSTEM);
    EXPECT_EQ(size, 32u);
}

TEST_F(ProcVar, AsksForOneUnitMoreThanItNeeds)
{
    VornProcSetVar(L"VORN_TEST_VAR", L"12345");
    GuardBuffer memory(5 * sizeof(wchar_t));
    uint32_t size = 5;  // one too small
    EXPECT_EQ(VornProcGetVar(L"VORN_TEST_VAR", memory.As<wchar_t>(), &size), VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 7u);
    GuardBuffer exact(6 * sizeof(wchar_t));
    size = 6;
    EXPECT_EQ(VornProcGetVar(L"VORN_TEST_VAR", exact.As<wchar_t>(), &size), VORN_OK);
    EXPECT_STREQ(exact.As<wchar_t>(), L"12345");
    EXPECT_EQ(size, 6u);
    size = 0;
    EXPECT_EQ(VornProcGetVar(L"VORN_TEST_VAR", exact.As<wchar_t>(), &size), VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 7u);
    VornProcSetVar(L"VORN_TEST_VAR", nullptr);
}

TEST_F(ProcVar, TakesAnEmptyValueForAMissingVariable)
{
    VornProcSetVar(L"VORN_TEST_VAR", L"");
    wchar_t buffer[8];
    uint32_t size = 8;
    EXPECT_EQ(VornProcGetVar(L"VORN_TEST_VAR", buffer, &size), VORN_E_SYSTEM);
    EXPECT_EQ(size, 8u);
    VornProcSetVar(L"VORN_TEST_VAR", nullptr);
}

TEST_F(ProcVar, RefusesNullArguments)
{
    wchar_t buffer[8];
    uint32_t size = 8;
    EXPECT_EQ(VornProcGetVar(nullptr, buffer, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetVar(L"PATH", nullptr, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcGetVar(L"PATH", buffer, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcSetVar(nullptr, L"x"), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcSetVar(nullptr, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(size, 8u);
}

TEST_F(ProcVar, ReportsWhatTheSystemRefuses)
{
    const FailingCall fail({"SetEnvironmentVariableW", 0, kGenericFailure});
    EXPECT_EQ(VornProcSetVar(L"VORN_TEST_VAR", L"x"), VORN_E_SYSTEM);
    EXPECT_EQ(fail.Failures(), 1);
}

TEST_F(ProcEnv, BeginsEmpty)
{
    uint32_t size = 5;
    EXPECT_EQ(VornProcEnvGet(env, L"anything", nullptr, &size), VORN_ENV_NOT_FOUND);
    EXPECT_EQ(size, 0u);
}

TEST_F(ProcEnv, ClearsTheLastErrorOnSuccess)
{
    for (VornProcEnvMode mode : {VORN_ENV_EMPTY, VORN_ENV_COPY}) {
        VornSetLastError(VORN_E_BUSY);
        VornProcEnv* made = VornProcEnvAlloc(mode);
        ASSERT_NE(made, nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_OK);
        EXPECT_EQ(VornProcEnvFree(made), VORN_OK);
    }
}

TEST_F(ProcEnv, CopiesTheCallersEnvironmentOnlyWhenAskedTo)
{
    VornProcSetVar(L"Vorn_Test_Copied", L"here");
    VornProcEnv* copy = VornProcEnvAlloc(VORN_ENV_COPY);
    VornProcEnv* other = VornProcEnvAlloc(2);
    VornProcSetVar(L"Vorn_Test_Copied", nullptr);
    EXPECT_EQ(Get(L"VORN_TEST_COPIED", copy), L"here");
    EXPECT_EQ(Get(L"VORN_TEST_COPIED", other), L"<not found>");
    VornProcEnvFree(copy);
    VornProcEnvFree(other);
}

TEST_F(ProcEnv, FindsEveryVariableOfTheCallersEnvironmentInACopy)
{
    VornProcEnv* copy = VornProcEnvAlloc(VORN_ENV_COPY);
    wchar_t* strings = GetEnvironmentStringsW();
    int found = 0;
    for (const wchar_t* text = strings; *text != 0; text += wcslen(text) + 1) {
        const wchar_t* equals = wcschr(text, L'=');
        ASSERT_NE(equals, nullptr);
        if (equals == text) continue;  // a drive's directory: several share the empty name
        EXPECT_EQ(Get(std::wstring(text, equals).c_str(), copy), equals + 1);
        ++found;
    }
    FreeEnvironmentStringsW(strings);
    EXPECT_GT(found, 3);
    VornProcEnvFree(copy);
}

TEST_F(ProcEnv, SetsRewritesAndRemoves)
{
    EXPECT_EQ(VornProcEnvSet(env, L"Path", L"x"), VORN_OK);
    EXPECT_EQ(Get(L"PATH"), L"x");
    EXPECT_EQ(VornProcEnvSet(env, L"PATH", L"something longer"), VORN_OK);
    EXPECT_EQ(Get(L"path"), L"something longer");
    EXPECT_EQ(VornProcEnvSet(env, L"none", nullptr), VORN_OK);
    EXPECT_EQ(VornProcEnvSet(env, L"pAtH", nullptr), VORN_OK);
    EXPECT_EQ(Get(L"PATH"), L"<not found>");
}

TEST_F(ProcEnv, WritesNothingPastTheCallersBuffer)
{
    VornProcEnvSet(env, L"name", L"12345");
    GuardBuffer exact(6 * sizeof(wchar_t));
    uint32_t size = 6;
    EXPECT_EQ(VornProcEnvGet(env, L"name", exact.As<wchar_t>(), &size), VORN_OK);
    GuardBuffer none(0);
    size = 0;
    EXPECT_EQ(VornProcEnvGet(env, L"name", none.As<wchar_t>(), &size), VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 6u);
    size = 1000;
    EXPECT_EQ(VornProcEnvGet(env, L"name", nullptr, &size), VORN_OK);
    EXPECT_EQ(size, 6u);
}

TEST_F(ProcEnv, ReadsNothingPastTheCallersNames)
{
    const wchar_t name[] = L"name";
    const GuardBuffer guarded = GuardBuffer::Of(name, sizeof(name));
    EXPECT_EQ(VornProcEnvSet(env, guarded.As<wchar_t>(), guarded.As<wchar_t>()), VORN_OK);
    EXPECT_EQ(Get(guarded.As<wchar_t>()), L"name");
    VornProcEnvSet(env, L"name=longer", L"");
    VornProcEnvSet(env, L"namelonger", L"");
    EXPECT_EQ(Get(guarded.As<wchar_t>()), L"longer=");
}

TEST_F(ProcEnv, RefusesNullArguments)
{
    uint32_t size = 5;
    EXPECT_EQ(VornProcEnvSet(env, nullptr, L"x"), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcEnvSet(nullptr, L"x", L"x"), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcEnvGet(env, nullptr, nullptr, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcEnvGet(env, L"x", nullptr, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcEnvGet(nullptr, L"x", nullptr, &size), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcEnvFree(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(size, 5u);
}

TEST_F(ProcEnv, RefusesABlockThatWasReleasedOrIsOfAnotherKind)
{
    VornProcEnv* released = VornProcEnvAlloc(VORN_ENV_EMPTY);
    EXPECT_EQ(VornProcEnvFree(released), VORN_OK);
    uint32_t size = 5;
    EXPECT_EQ(VornProcEnvFree(released), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcEnvSet(released, L"x", L"x"), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcEnvGet(released, L"x", nullptr, &size), VORN_E_INVALID_ARG);
    auto* ppid = reinterpret_cast<VornProcEnv*>(VornProcGetCurrentPPid());
    EXPECT_EQ(VornProcEnvFree(ppid), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornProcEnvGet(ppid, L"x", nullptr, &size), VORN_E_INVALID_ARG);
}

TEST_F(ProcEnv, LetsSeveralThreadsLookUpAtOnce)
{
    for (int i = 0; i < 50; ++i) VornProcEnvSet(env, (L"NAME" + std::to_wstring(i)).c_str(), L"value");
    struct Shared {
        VornProcEnv* env;
        LONG wrong;
    } shared = {env, 0};
    const auto lookUp = [](void* context) -> DWORD {
        auto* task = static_cast<Shared*>(context);
        for (int round = 0; round < 20000; ++round) {
            wchar_t buffer[8];
            uint32_t size = 8;
            wchar_t name[] = L"name00";
            name[4] = static_cast<wchar_t>(L'1' + round % 4);
            name[5] = static_cast<wchar_t>(L'0' + round / 4 % 10);
            if (VornProcEnvGet(task->env, name, buffer, &size) != VORN_OK || wcscmp(buffer, L"value") != 0) {
                InterlockedIncrement(&task->wrong);
            }
        }
        return 0;
    };
    HANDLE threads[3];
    for (HANDLE& thread : threads) thread = CreateThread(nullptr, 0, lookUp, &shared, 0, nullptr);
    for (HANDLE thread : threads) {
        EXPECT_TRUE(WaitBounded(thread));
        CloseHandle(thread);
    }
    EXPECT_EQ(shared.wrong, 0);
}

TEST_F(ProcEnv, LeavesNothingBehindAtAnyFailedAllocation)
{
    for (VornProcEnvMode mode : {VORN_ENV_EMPTY, VORN_ENV_COPY}) {
        const LeakWatch watch;
        const long failures = FailEachCallInTurn(kAllocations, [mode] {
            VornSetLastError(VORN_E_BUSY);
            VornProcEnv* made = VornProcEnvAlloc(mode);
            EXPECT_EQ(VornGetLastError(), made != nullptr ? VORN_OK : VORN_E_NO_MEMORY);
            if (made != nullptr) VornProcEnvFree(made);
        });
        EXPECT_GE(failures, mode == VORN_ENV_COPY ? 10 : 2);
        EXPECT_EQ(watch.Leaks(), "");
    }
}

TEST_F(ProcEnv, ReportsAnEnvironmentThatCannotBeHadAsExhaustedMemory)
{
    const LeakWatch watch;
    const FailingCall fail({"GetEnvironmentStringsW", 0, kGenericFailure});
    EXPECT_EQ(VornProcEnvAlloc(VORN_ENV_COPY), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
    EXPECT_EQ(fail.Failures(), 1);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(ProcEnv, ReportsARegistryThatCannotGrow)
{
    // Blocks are made, without a single failure of the block itself, until the registry must grow.
    std::vector<VornProcEnv*> blocks;
    bool refused = false;
    for (int i = 0; i < 200 && !refused; ++i) {
        const FailingCall fail(kCalloc, 2);  // the first is the record
        VornProcEnv* made = VornProcEnvAlloc(VORN_ENV_EMPTY);
        refused = made == nullptr;
        if (refused) {
            EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
        }
        if (!refused) blocks.push_back(made);
    }
    EXPECT_TRUE(refused);
    for (VornProcEnv* block : blocks) EXPECT_EQ(VornProcEnvFree(block), VORN_OK);
}

TEST_F(ProcEnv, KeepsTheBlockAsItWasWhenASetFails)
{
    long failures = 0;
    for (int entries = 0; entries < 20; ++entries) {
        const std::wstring last = L"n" + std::to_wstring(entries);
        VornProcEnvSet(env, last.c_str(), L"v");
        failures += FailEachCallInTurn(kAllocations, [&] {
            const VornStatus status = VornProcEnvSet(env, L"m-new", L"value");
            if (status == VORN_OK) {
                EXPECT_EQ(Get(L"m-new"), L"value");
                VornProcEnvSet(env, L"m-new", nullptr);
            } else {
                EXPECT_EQ(status, VORN_E_NO_MEMORY);
                EXPECT_EQ(Get(L"m-new"), L"<not found>");
            }
        });
        failures += FailEachCallInTurn(kAllocations, [&] {
            const VornStatus status = VornProcEnvSet(env, last.c_str(), L"longer than it was");
            EXPECT_EQ(Get(last.c_str()), status == VORN_OK ? L"longer than it was" : L"v");
            VornProcEnvSet(env, last.c_str(), L"v");
        });
        for (int i = 0; i <= entries; ++i) {
            ASSERT_EQ(Get((L"N" + std::to_wstring(i)).c_str()), L"v") << entries;
        }
    }
    EXPECT_GE(failures, 40);
}
