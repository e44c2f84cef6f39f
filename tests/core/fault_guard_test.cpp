#include "core/fault_guard.h"

#include "core/win32.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

using vorn::detail::RunGuarded;

namespace {

// The compiler must not know that these fault.
volatile uint32_t* volatile nowhere = nullptr;
volatile int zero = 0;

__attribute__((noinline)) void WriteNowhere()
{
    *nowhere = 1;
}

// Faults `depth` calls further in, each with registers and stack of its own to be unwound.
__attribute__((noinline)) uint64_t FaultDeepInside(uint64_t depth)
{
    volatile uint64_t local[64];
    local[depth % 64] = depth;
    if (depth == 0) {
        WriteNowhere();
        return 0;
    }
    return FaultDeepInside(depth - 1) + local[depth % 64];
}

struct SetsOnExit {
    bool& flag;
    ~SetsOnExit() { flag = true; }
};

}  // namespace

TEST(FaultGuard, RunsTheCallAndSaysThatItEnded)
{
    int result = 0;
    EXPECT_TRUE(RunGuarded([&] { result = 42; }));
    EXPECT_EQ(result, 42);
}

TEST(FaultGuard, ReportsAWriteToAnInaccessibleAddress)
{
    EXPECT_FALSE(RunGuarded([] { WriteNowhere(); }));
}

TEST(FaultGuard, ReportsAReadFromAnInaccessibleAddress)
{
    uint32_t value = 7;
    EXPECT_FALSE(RunGuarded([&] { value = *nowhere; }));
    EXPECT_EQ(value, 7u);
}

TEST(FaultGuard, ReportsAJumpToAnInaccessibleAddress)
{
    void (*volatile missing)() = nullptr;
    EXPECT_FALSE(RunGuarded([&] { missing(); }));
}

TEST(FaultGuard, ReportsADivisionByZero)
{
    int result = 1;
    EXPECT_FALSE(RunGuarded([&] { result = 5 / zero; }));
    EXPECT_EQ(result, 1);
}

TEST(FaultGuard, ReportsAnIllegalInstruction)
{
    EXPECT_FALSE(RunGuarded([] { asm volatile("ud2"); }));
}

TEST(FaultGuard, ReportsWhatTheKernelRaisesForAnInvalidHandle)
{
    EXPECT_FALSE(RunGuarded([] { RaiseException(0xC0000008, 0, 0, nullptr); }));
}

TEST(FaultGuard, ReportsATouchOfAPageMarkedAsGuard)
{
    auto* page = static_cast<volatile uint8_t*>(
        VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE | PAGE_GUARD));
    ASSERT_NE(page, nullptr);
    EXPECT_FALSE(RunGuarded([&] { page[0] = 1; }));
    VirtualFree(const_cast<uint8_t*>(page), 0, MEM_RELEASE);
}

TEST(FaultGuard, KeepsWhatTheCallHadWrittenBeforeTheFault)
{
    volatile int steps = 0;
    EXPECT_FALSE(RunGuarded([&] {
        steps = 3;
        WriteNowhere();
        steps = 4;
    }));
    EXPECT_EQ(steps, 3);
}

TEST(FaultGuard, UnwindsManyFramesAndLeavesTheCallersVariablesIntact)
{
    uint64_t sum = 0;
    for (uint64_t i = 0; i < 200; ++i) {
        const std::string text = "round " + std::to_string(i);
        EXPECT_FALSE(RunGuarded([&] { FaultDeepInside(i); }));
        EXPECT_EQ(text, "round " + std::to_string(i));
        sum += i;
    }
    EXPECT_EQ(sum, 19900u);
}

TEST(FaultGuard, AFaultInAnInnerGuardLeavesTheOuterOneUntouched)
{
    bool innerDone = true;
    bool reachedEnd = false;
    EXPECT_TRUE(RunGuarded([&] {
        innerDone = RunGuarded([] { WriteNowhere(); });
        reachedEnd = true;
    }));
    EXPECT_FALSE(innerDone);
    EXPECT_TRUE(reachedEnd);
}

TEST(FaultGuard, WorksAgainAfterAFault)
{
    EXPECT_FALSE(RunGuarded([] { WriteNowhere(); }));
    EXPECT_FALSE(RunGuarded([] { WriteNowhere(); }));
    EXPECT_TRUE(RunGuarded([] {}));
}

TEST(FaultGuard, LetsACppExceptionPassAndItsDestructorsRun)
{
    bool destroyed = false;
    bool after = false;
    try {
        RunGuarded([&] {
            const SetsOnExit exit{destroyed};
            throw std::string("thrown inside");
        });
        after = true;
    } catch (const std::string& text) {
        EXPECT_EQ(text, "thrown inside");
    }
    EXPECT_TRUE(destroyed);
    EXPECT_FALSE(after);
}

TEST(FaultGuard, LetsACppExceptionPassThroughTwoGuards)
{
    EXPECT_THROW(RunGuarded([] { RunGuarded([] { throw 5; }); }), int);
}

TEST(FaultGuard, KeepsTheSystemErrorOfACallThatEnded)
{
    SetLastError(1234);
    EXPECT_TRUE(RunGuarded([] { SetLastError(4321); }));
    EXPECT_EQ(GetLastError(), 4321u);
}
