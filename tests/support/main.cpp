#include <gtest/gtest.h>

#ifdef _WIN32
#include "support/child_process.h"
#include "support/failing_call.h"
#endif

int main(int argc, char** argv)
{
#ifdef _WIN32
    vorn_test::RunChildCaseIfAsked();
#endif
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
#ifdef _WIN32
    vorn_test::PrintFaultSummary();
#endif
    return result;
}
