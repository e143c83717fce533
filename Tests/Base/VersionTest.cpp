#include "versionx.h"

#include <gtest/gtest.h>

#include <regex>

namespace
{

TEST(Version, Has53CharactersAndNoNewline)
{
    const std::string strVersion = OrbComponent::GetVerisonString();
    EXPECT_EQ(strVersion.size(), 53U);
    EXPECT_EQ(strVersion.find('\n'), std::string::npos);
}

TEST(Version, NamesNumberBranchAndTime)
{
    EXPECT_TRUE(std::regex_match(OrbComponent::GetVerisonString(),
                                 std::regex("version: 1\\.0\\.86 - [^/ ]+/1\\.0\\.86 "
                                            "\\(\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}\\)")))
        << OrbComponent::GetVerisonString();
}

TEST(Version, TwoCallsShareNoStorage)
{
    std::string strFirst = OrbComponent::GetVerisonString();
    const std::string strSecond = OrbComponent::GetVerisonString();
    EXPECT_EQ(strFirst, strSecond);
    EXPECT_NE(strFirst.data(), strSecond.data());
    strFirst[0] = 'X';
    EXPECT_EQ(strSecond[0], 'v');
    EXPECT_EQ(OrbComponent::GetVerisonString(), strSecond);
}

}  // namespace
