#include "OspreyAssert.h"

#include <gtest/gtest.h>

namespace
{

void Require(int nValue)
{
    OSPREY_ASSERT(nValue == 0);
}

TEST(OspreyAssert, ConditionThatHoldsIsEvaluatedOnce)
{
    int nCalls = 0;
    OSPREY_ASSERT(++nCalls == 1);
    EXPECT_EQ(nCalls, 1);
}

// In whatever build type this runs, release included.
TEST(OspreyAssertDeathTest, BrokenConditionAbortsWithItsText)
{
    EXPECT_EXIT(Require(1), ::testing::KilledBySignal(SIGABRT),
                "Tests/Base/OspreyAssertTest.cpp:[0-9]+: void .*Require\\(int\\): Assertion "
                "`nValue == 0' failed\\.\n");
}

}  // namespace
