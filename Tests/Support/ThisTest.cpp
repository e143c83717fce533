#include "ThisTest.h"

#include <gtest/gtest.h>

#include <cstdlib>

std::string FilterOfThisTest()
{
    // Read at the start; only children would read them again.
    unsetenv("GTEST_TOTAL_SHARDS");
    unsetenv("GTEST_SHARD_INDEX");
    const auto* pInfo = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string("--gtest_filter=") + pInfo->test_suite_name() + "." + pInfo->name();
}
