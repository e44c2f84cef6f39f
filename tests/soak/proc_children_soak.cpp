// A thousand short-lived children, several at a time: every exit code arrives and no handle is left.

#include "proc/proc_fixture.h"

#include <cstdio>

using namespace vorn_test;

VORN_CHILD(ReturnsItsArgument)
{
    return static_cast<int>(std::stoul(arguments[0]));
}

class ProcChildrenSoak : public ProcTest {};

TEST_F(ProcChildrenSoak, AThousandShortLivedChildrenLeaveNoHandle)
{
    constexpr uint32_t kChildren = 1000;
    constexpr uint32_t kAtATime = 4;
    VornProcFreePPid(StartChild(L"ReturnsItsArgument", L"0", 1));
    const LeakWatch watch;
    for (uint32_t next = 0; next < kChildren;) {
        VornPPid* children[kAtATime];
        for (uint32_t i = 0; i < kAtATime; ++i) {
            children[i] = StartChild(L"ReturnsItsArgument", std::to_wstring(next + i));
            const DWORD error = GetLastError();
            ASSERT_NE(children[i], nullptr)
                << VornStatusName(VornGetLastError()) << ", the system's error " << error;
        }
        for (uint32_t i = 0; i < kAtATime; ++i, ++next) {
            ASSERT_EQ(VornProcWaitForTerm(children[i], 120000), VORN_OK);
            uint32_t code = 0;
            ASSERT_EQ(VornProcGetExitCode(children[i], &code), VORN_OK);
            ASSERT_EQ(code, next);
            ASSERT_EQ(VornProcFreePPid(children[i]), VORN_OK);
        }
        if (next % 100 == 0) std::printf("%u children\n", next);
    }
    EXPECT_EQ(watch.Leaks(), "");
}
