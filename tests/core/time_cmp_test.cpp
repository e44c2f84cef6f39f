#include <vorn/runtime.h>

#include <gtest/gtest.h>

namespace {

// year, month, day of week, day, hour, minute, second, milliseconds
constexpr VornTime kTime = {2004, 6, 3, 15, 12, 30, 45, 500};

VornTime With(uint16_t VornTime::*field, uint16_t value)
{
    VornTime time = kTime;
    time.*field = value;
    return time;
}

}  // namespace

TEST(TimeCmp, EqualTimesGiveZero)
{
    EXPECT_EQ(VornTimeCmp(&kTime, &kTime, 0), 0);
    EXPECT_EQ(VornTimeCmp(&kTime, &kTime, 1), 0);
}

TEST(TimeCmp, EachComparedFieldDecides)
{
    for (uint16_t VornTime::*field : {&VornTime::year, &VornTime::month, &VornTime::day, &VornTime::hour,
                                      &VornTime::minute, &VornTime::second, &VornTime::milliseconds})
    {
        const VornTime later = With(field, static_cast<uint16_t>(kTime.*field + 1));
        EXPECT_EQ(VornTimeCmp(&kTime, &later, 0), -1);
        EXPECT_EQ(VornTimeCmp(&later, &kTime, 0), 1);
    }
}

TEST(TimeCmp, TheFirstDifferenceDecidesInTheOrderFromYearToMilliseconds)
{
    uint16_t VornTime::*const order[] = {&VornTime::year,        &VornTime::month,  &VornTime::day,
                                         &VornTime::hour,        &VornTime::minute, &VornTime::second,
                                         &VornTime::milliseconds};
    for (size_t i = 0; i + 1 < 7; ++i) {
        VornTime a = kTime;
        a.*order[i] = static_cast<uint16_t>(kTime.*order[i] + 1);
        VornTime b = kTime;
        for (size_t later = i + 1; later < 7; ++later) b.*order[later] = 0xFFFF;
        EXPECT_EQ(VornTimeCmp(&a, &b, 0), 1) << i;
        EXPECT_EQ(VornTimeCmp(&b, &a, 0), -1) << i;
    }
}

TEST(TimeCmp, TheDayOfWeekIsNeverCompared)
{
    const VornTime other = With(&VornTime::dayOfWeek, 6);
    EXPECT_EQ(VornTimeCmp(&kTime, &other, 0), 0);
    EXPECT_EQ(VornTimeCmp(&kTime, &other, 1), 0);
}

TEST(TimeCmp, MillisecondsAreComparedOnlyWhenNotIgnored)
{
    const VornTime other = With(&VornTime::milliseconds, 501);
    EXPECT_EQ(VornTimeCmp(&kTime, &other, 1), 0);
    EXPECT_EQ(VornTimeCmp(&kTime, &other, -5), 0);
    EXPECT_EQ(VornTimeCmp(&kTime, &other, 0), -1);
}

TEST(TimeCmp, FieldsAreUnsigned)
{
    const VornTime high = With(&VornTime::year, 0x8000);
    EXPECT_EQ(VornTimeCmp(&kTime, &high, 0), -1);
}
