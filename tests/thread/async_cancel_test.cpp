#include <vorn/vorn.h>

#include "core/win32.h"

#include "async_case.h"
#include "support/child_process.h"
#include "support/leak_watch.h"
#include "thread/thread_runner.h"

#include <gtest/gtest.h>
#include <string>

namespace {

// A thread that runs until it is told to end.
class Bystander {
public:
    Bystander() { VornThreadCreate(&thread_, nullptr, &Run, &end_); }
    Bystander(const Bystander&) = delete;
    Bystander& operator=(const Bystander&) = delete;
    ~Bystander()
    {
        end_.Set();
        VornThreadJoin(thread_, nullptr);
    }
    VornThread* Thread() const { return thread_; }

private:
    static void* Run(void* end)
    {
        static_cast<vorn_test::Event*>(end)->Wait();
        return nullptr;
    }
    vorn_test::Event end_;
    VornThread* thread_ = nullptr;
};

class AsyncCancel : public testing::TestWithParam<int> {
protected:
    AsyncCancel() { VornThreadKeyCreate(&key, &FinaliseCase); }
    ~AsyncCancel() override { VornThreadKeyDelete(key); }
    VornThreadKey* key = nullptr;
    Bystander bystander;
};

TEST_P(AsyncCancel, EndsAnUnoptimisedThread)
{
    CancelOnce(kTargetsO0[GetParam()], key, bystander.Thread());
}

TEST_P(AsyncCancel, EndsAnOptimisedThread)
{
    CancelOnce(kTargetsO2[GetParam()], key, bystander.Thread());
}

INSTANTIATE_TEST_SUITE_P(Situations, AsyncCancel, testing::Range(0, kTargetCount),
                         [](const testing::TestParamInfo<int>& info) {
                             std::string name;
                             bool upper = true;
                             for (const char* at = kTargetsO0[info.param].name; *at != '\0'; ++at) {
                                 if (*at == ' ') {
                                     upper = true;
                                 } else {
                                     name += upper ? static_cast<char>(toupper(*at)) : *at;
                                     upper = false;
                                 }
                             }
                             return name;
                         });

}  // namespace

TEST(AsyncCancelAdopted, EndsTheThreadAtOnceAndRunsItsHandlers)
{
    AsyncCase c;
    ASSERT_EQ(VornThreadKeyCreate(&c.key, &FinaliseCase), VORN_OK);
    std::atomic<VornThread*> target{nullptr};
    vorn_test::ForeignThread thread([&] {
        target = VornThreadSelf();
        kTargetsO2[0].function(&c);
    });
    AwaitFlag(c.entered);
    EXPECT_EQ(VornThreadCancel(target), VORN_OK);
    ASSERT_TRUE(thread.Wait());
    EXPECT_EQ(thread.ExitCode(), 0xFFFFFFFFu);
    EXPECT_EQ(c.cleaned, 1);
    EXPECT_EQ(c.finalised, 1);
    EXPECT_EQ(VornThreadKeyDelete(c.key), VORN_OK);
}

// Functions that no unwinder can see through: they move the stack and have no unwind data.
extern "C" void VornTestCallsWithoutUnwindData(AsyncCase* c);
extern "C" void VornTestLoopsWithoutUnwindData(std::atomic<int>* entered);
extern "C" void VornTestSpin(AsyncCase* c)
{
    VornTestLoopsWithoutUnwindData(&c->entered);
}
asm(R"(
    .text
    .globl VornTestCallsWithoutUnwindData
VornTestCallsWithoutUnwindData:
    subq    $56, %rsp
    call    VornTestSpin
    addq    $56, %rsp
    ret
    .globl VornTestLoopsWithoutUnwindData
VornTestLoopsWithoutUnwindData:
    subq    $56, %rsp
    movq    $0, (%rsp)
    movl    $1, (%rcx)
1:  jmp     1b
)");

TEST(AsyncCancelUnfollowable, ReachesTheStartOfTheThreadWithoutTheUnwinder)
{
    AsyncCase c;
    ASSERT_EQ(VornThreadKeyCreate(&c.key, &FinaliseCase), VORN_OK);
    vorn_test::LibraryThread thread([&]() -> void* {
        VornThreadCleanupPush([](void* p) { ++static_cast<AsyncCase*>(p)->cleaned; }, &c);
        VornThreadSetSpecific(c.key, &c);
        VornThreadSetCancelType(VORN_CANCEL_ASYNCHRONOUS, nullptr);
        VornTestCallsWithoutUnwindData(&c);
        return nullptr;
    });
    AwaitFlag(c.entered);
    EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
    EXPECT_EQ(thread.Join(), kCancelled);
    EXPECT_EQ(c.cleaned, 1);
    EXPECT_EQ(c.finalised, 1);
    EXPECT_EQ(VornThreadKeyDelete(c.key), VORN_OK);
}
