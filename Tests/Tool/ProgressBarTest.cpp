#include "ProgressBar.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Submission.h"
#include "Text.h"

namespace
{

CBar Bar(const std::string& strLabel, unsigned int dwPercent)
{
    return {strLabel, dwPercent, "1023.9 MiB/s", "99:59:59"};
}

}  // namespace

TEST(ProgressBar, FillsEveryWidthFrom20To300Exactly)
{
    for (int nColumns = 20; nColumns <= 300; ++nColumns)
    {
        for (const char* pszLabel : {"", "a.jpg", "a/long/path/with/many/parts/日本語の写真/x.jpg"})
        {
            const std::string strBar = RenderBar(Bar(pszLabel, 42), nColumns);
            EXPECT_EQ(TextColumns(strBar), nColumns) << strBar;
            EXPECT_NE(strBar.find(" 42%"), std::string::npos) << strBar;
        }
    }
}

TEST(ProgressBar, NarrowerTerminalsNeverGetMoreThanFits)
{
    for (int nColumns = 0; nColumns < 20; ++nColumns)
    {
        EXPECT_LE(TextColumns(RenderBar(Bar("name.bin", 100), nColumns)), nColumns);
    }
}

TEST(ProgressBar, WhatMattersLeastGoesFirst)
{
    const std::string strWide = RenderBar(Bar("a.jpg", 50), 80);
    EXPECT_NE(strWide.find("99:59:59"), std::string::npos);
    EXPECT_NE(strWide.find("1023.9 MiB/s"), std::string::npos);
    const std::string strMiddle = RenderBar(Bar("a.jpg", 50), 50);
    EXPECT_EQ(strMiddle.find("99:59:59"), std::string::npos);
    EXPECT_NE(strMiddle.find("1023.9 MiB/s"), std::string::npos);
    const std::string strNarrow = RenderBar(Bar("a.jpg", 50), 20);
    EXPECT_EQ(strNarrow, "a.jpg            50%");
}

TEST(ProgressBar, TheBarGrowsWithThePercentage)
{
    for (unsigned int dwPercent = 0; dwPercent <= 100; ++dwPercent)
    {
        const std::string strBar = RenderBar(Bar("x", dwPercent), 120);
        const auto nFull = std::count(strBar.begin(), strBar.end(), '#');
        const auto nAll = nFull + std::count(strBar.begin(), strBar.end(), '.') - 1;  // 1023.9
        EXPECT_EQ(nFull, nAll * dwPercent / 100);
    }
}

TEST(ProgressBar, MoreThanAllIsAll)
{
    EXPECT_EQ(RenderBar(Bar("x", 1000), 80), RenderBar(Bar("x", 100), 80));
}

TEST(ProgressBar, HundredPercentIsSaidOnlyOfAll)
{
    EXPECT_EQ(Percent(0, 100), 0U);
    EXPECT_EQ(Percent(999999, 1000000), 99U);
    EXPECT_EQ(Percent(1000000, 1000000), 100U);
    EXPECT_EQ(Percent(0, 0), 100U);
    EXPECT_EQ(Percent(~0ULL - 1, ~0ULL), 99U);
}

TEST(ProgressBar, SentBytesFollowTheBlocksWithinThePercentage)
{
    EXPECT_EQ(EstimateSent(1, 32, 100000), 32768U);
    EXPECT_EQ(EstimateSent(3, 98, 100000), 98304U);
    EXPECT_EQ(EstimateSent(4, 100, 100000), 100000U);
    // Blocks of another size: the percentage holds.
    EXPECT_EQ(EstimateSent(1, 50, 100000), 50000U);
    EXPECT_EQ(EstimateSent(1000, 50, 100000), 51000U);
    EXPECT_EQ(EstimateSent(1, 100, 0), 0U);
}
