#include "Pacer.h"

#include <gtest/gtest.h>

namespace
{

const long long SECOND = 1000000000;
const long long BEGIN = 123456789;

}  // namespace

TEST(Pacer, PacketsAreDueAtEqualDistances)
{
    CPacer pacer(1000);
    EXPECT_EQ(pacer.Due(BEGIN), BEGIN);
    for (int i = 0; i < 5; ++i)
    {
        const long long llDue = pacer.Due(0);
        EXPECT_EQ(llDue, i == 0 ? 0 : BEGIN + i * 1000000LL);
        pacer.Take(i == 0 ? BEGIN : llDue);
    }
}

TEST(Pacer, OddRateDoesNotDriftOverAnHour)
{
    CPacer pacer(7);
    pacer.Take(BEGIN);
    for (int i = 1; i < 7 * 3600; ++i)
    {
        pacer.Take(pacer.Due(0));
    }
    EXPECT_EQ(pacer.Due(0), BEGIN + 3600 * SECOND);
}

TEST(Pacer, SmallDelayIsMadeGood)
{
    CPacer pacer(100);
    pacer.Take(BEGIN);
    pacer.Take(BEGIN + 50000000);
    EXPECT_EQ(pacer.Due(BEGIN + 50000000), BEGIN + 50000000);
    EXPECT_EQ(pacer.Due(0), BEGIN + 20000000);
}

TEST(Pacer, LongDelayBeginsAnewWithoutABurst)
{
    CPacer pacer(100);
    pacer.Take(BEGIN);
    const long long llLate = BEGIN + 10 * SECOND;
    EXPECT_EQ(pacer.Due(llLate), llLate);
    pacer.Take(llLate);
    EXPECT_EQ(pacer.Due(llLate), llLate + 10000000);
}

TEST(Pacer, FastestRateKeepsItsOrder)
{
    CPacer pacer(10000000);
    pacer.Take(BEGIN);
    EXPECT_EQ(pacer.Due(0), BEGIN + 100);
}

TEST(Pacer, NoRateMeansAtOnce)
{
    CPacer pacer(0);
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(pacer.Due(BEGIN), BEGIN);
        pacer.Take(BEGIN);
    }
}
