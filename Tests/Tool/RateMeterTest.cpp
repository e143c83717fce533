#include "RateMeter.h"

#include <gtest/gtest.h>

TEST(RateMeter, SaysNothingBeforeItKnows)
{
    CRateMeter meter;
    EXPECT_LT(meter.Rate(), 0.0);
    meter.Add(10.0, 0);
    EXPECT_LT(meter.Rate(), 0.0);
    meter.Add(10.1, 1000);
    EXPECT_LT(meter.Rate(), 0.0);
    EXPECT_LT(meter.SecondsFor(1000), 0.0);
}

TEST(RateMeter, SteadyFlowGivesItsRate)
{
    CRateMeter meter;
    for (int i = 0; i <= 100; ++i)
    {
        meter.Add(i * 0.1, static_cast<unsigned long long>(i) * 100);
    }
    EXPECT_NEAR(meter.Rate(), 1000.0, 1.0);
    EXPECT_NEAR(meter.SecondsFor(5000), 5.0, 0.01);
    EXPECT_EQ(meter.SecondsFor(0), 0.0);
}

TEST(RateMeter, OldTimesAreForgotten)
{
    CRateMeter meter;
    for (int i = 0; i <= 100; ++i)
    {
        meter.Add(i * 0.1, static_cast<unsigned long long>(i) * 1000000);
    }
    for (int i = 1; i <= 100; ++i)
    {
        meter.Add(10.0 + i * 0.1, 100000000ULL + static_cast<unsigned long long>(i) * 10);
    }
    EXPECT_NEAR(meter.Rate(), 100.0, 5.0);
}

TEST(RateMeter, StandstillHasNoTimeLeft)
{
    CRateMeter meter;
    meter.Add(0.0, 500);
    meter.Add(1.0, 500);
    EXPECT_EQ(meter.Rate(), 0.0);
    EXPECT_LT(meter.SecondsFor(1), 0.0);
}

TEST(RateMeter, CountThatFallsBeginsAnew)
{
    CRateMeter meter;
    meter.Add(0.0, 1000000);
    meter.Add(1.0, 2000000);
    meter.Add(2.0, 0);
    EXPECT_LT(meter.Rate(), 0.0);
    meter.Add(3.0, 10);
    EXPECT_NEAR(meter.Rate(), 10.0, 0.01);
}
