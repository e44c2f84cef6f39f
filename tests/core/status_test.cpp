#include <vorn/status.h>

#include "core/system_error.h"

#include <gtest/gtest.h>
#include <set>
#include <string>

using vorn::detail::StatusFromSystemError;

namespace {

struct Expected {
    uint32_t number;
    VornStatus constant;
    const char* name;
};

constexpr Expected kExpected[] = {
    {0, VORN_OK, "VORN_OK"},
    {98, VORN_E_SYSTEM, "VORN_E_SYSTEM"},
    {99, VORN_E_UNKNOWN, "VORN_E_UNKNOWN"},
    {100, VORN_E_TIMEOUT, "VORN_E_TIMEOUT"},
    {101, VORN_E_BUFFER_TOO_SMALL, "VORN_E_BUFFER_TOO_SMALL"},
    {102, VORN_E_INVALID_ARG, "VORN_E_INVALID_ARG"},
    {103, VORN_E_CONVERSION, "VORN_E_CONVERSION"},
    {105, VORN_E_CONVERTER, "VORN_E_CONVERTER"},
    {109, VORN_E_NOT_SUPPORTED, "VORN_E_NOT_SUPPORTED"},
    {110, VORN_E_NO_MEMORY, "VORN_E_NO_MEMORY"},
    {113, VORN_E_BAD_DATA, "VORN_E_BAD_DATA"},
    {116, VORN_E_BAD_STATE, "VORN_E_BAD_STATE"},
    {117, VORN_E_DEADLOCK, "VORN_E_DEADLOCK"},
    {118, VORN_E_NOT_PERMITTED, "VORN_E_NOT_PERMITTED"},
    {119, VORN_E_BUSY, "VORN_E_BUSY"},
    {120, VORN_E_NO_RESOURCES, "VORN_E_NO_RESOURCES"},
    {121, VORN_E_DETACHED, "VORN_E_DETACHED"},
    {122, VORN_E_READ, "VORN_E_READ"},
    {123, VORN_E_WRITE, "VORN_E_WRITE"},
    {124, VORN_E_SEEK, "VORN_E_SEEK"},
    {125, VORN_E_EXISTS, "VORN_E_EXISTS"},
    {127, VORN_E_RANGE, "VORN_E_RANGE"},
    {128, VORN_E_INVALID_NAME, "VORN_E_INVALID_NAME"},
    {130, VORN_E_NO_MORE, "VORN_E_NO_MORE"},
    {131, VORN_E_NOT_FOUND, "VORN_E_NOT_FOUND"},
    {132, VORN_E_PATH_NOT_FOUND, "VORN_E_PATH_NOT_FOUND"},
    {133, VORN_E_NOT_AVAILABLE, "VORN_E_NOT_AVAILABLE"},
    {134, VORN_E_SHARING, "VORN_E_SHARING"},
    {135, VORN_E_DIR_NOT_EMPTY, "VORN_E_DIR_NOT_EMPTY"},
    {136, VORN_E_MAPPING, "VORN_E_MAPPING"},
    {137, VORN_E_NOT_APPLIED, "VORN_E_NOT_APPLIED"},
    {138, VORN_E_HEAP_CORRUPT, "VORN_E_HEAP_CORRUPT"},
    {140, VORN_E_HEAP_LOCK, "VORN_E_HEAP_LOCK"},
    {141, VORN_E_STOPPED, "VORN_E_STOPPED"},
    {142, VORN_E_BAD_IMAGE, "VORN_E_BAD_IMAGE"},
};

}  // namespace

TEST(Status, EachCodeHasItsFixedNumberAndItsSymbolicName)
{
    for (const Expected& expected : kExpected) {
        EXPECT_EQ(expected.constant, expected.number) << expected.name;
        EXPECT_STREQ(VornStatusName(expected.constant), expected.name);
    }
}

TEST(Status, EachCodeHasASentenceOfItsOwn)
{
    std::set<std::string> sentences;
    for (const Expected& expected : kExpected) {
        const std::string sentence = VornStatusText(expected.constant);
        EXPECT_EQ(sentence.back(), '.') << expected.name;
        EXPECT_TRUE(sentences.insert(sentence).second) << expected.name;
    }
}

TEST(Status, UnusedNumbersHaveNoName)
{
    std::set<uint32_t> used;
    for (const Expected& expected : kExpected) used.insert(expected.number);
    for (uint32_t number = 0; number < 1000; ++number) {
        if (used.count(number) != 0) continue;
        EXPECT_STREQ(VornStatusName(number), "VORN_E_?") << number;
        EXPECT_STREQ(VornStatusText(number), "The number is not a status of this library.") << number;
    }
    EXPECT_STREQ(VornStatusName(0xFFFFFFFF), "VORN_E_?");
}

TEST(SystemError, ListedNumbersTranslate)
{
    EXPECT_EQ(StatusFromSystemError(0), 0u);
    EXPECT_EQ(StatusFromSystemError(2), 131u);
    EXPECT_EQ(StatusFromSystemError(3), 132u);
    EXPECT_EQ(StatusFromSystemError(5), 118u);
    EXPECT_EQ(StatusFromSystemError(32), 134u);
    EXPECT_EQ(StatusFromSystemError(80), 125u);
    EXPECT_EQ(StatusFromSystemError(87), 102u);
    EXPECT_EQ(StatusFromSystemError(123), 128u);
    EXPECT_EQ(StatusFromSystemError(145), 135u);
}

TEST(SystemError, EveryOtherNumberIsUnknown)
{
    const std::set<uint32_t> listed = {0, 2, 3, 5, 32, 80, 87, 123, 145};
    for (uint32_t number = 0; number < 20000; ++number) {
        if (listed.count(number) != 0) continue;
        ASSERT_EQ(StatusFromSystemError(number), 99u) << number;
    }
    EXPECT_EQ(StatusFromSystemError(0xFFFFFFFF), 99u);
}

TEST(SystemError, AlreadyExistsIsUnknownWhileFileExistsIsNot)
{
    EXPECT_EQ(StatusFromSystemError(183), VORN_E_UNKNOWN);
    EXPECT_EQ(StatusFromSystemError(80), VORN_E_EXISTS);
}
