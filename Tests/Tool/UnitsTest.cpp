#include "Units.h"

#include <gtest/gtest.h>

#include <cmath>

TEST(Units, BytesClimbThroughTheUnits)
{
    EXPECT_EQ(FormatBytes(0), "0 B");
    EXPECT_EQ(FormatBytes(1023), "1023 B");
    EXPECT_EQ(FormatBytes(1024), "1.0 KiB");
    EXPECT_EQ(FormatBytes(268435456), "256.0 MiB");
    EXPECT_EQ(FormatBytes(~0ULL), "16.0 EiB");
}

TEST(Units, RoundingNeverShows1024OfAUnit)
{
    EXPECT_EQ(FormatBytes(1048575), "1.0 MiB");
    EXPECT_EQ(FormatBytes(1073741823), "1.0 GiB");
}

TEST(Units, BytesAndRatesFitTheirColumns)
{
    for (int nShift = 0; nShift < 64; ++nShift)
    {
        EXPECT_LE(FormatBytes((1ULL << nShift) - 1).size(), 10U);
        EXPECT_LE(FormatRate((1ULL << nShift) - 1, 1.0).size(), 12U);
    }
}

TEST(Units, SizesAreReadInUnitsOf1024)
{
    Orb_U64 ullSize = 0;
    const std::pair<const char*, Orb_U64> SIZES[] = {{"0", 0},
                                                     {"500", 500},
                                                     {"500K", 512000},
                                                     {"10M", 10485760},
                                                     {"10m", 10485760},
                                                     {"10MiB", 10485760},
                                                     {"2G", 2147483648},
                                                     {"1T", 1099511627776},
                                                     {"18446744073709551615", ~0ULL},
                                                     {"15E", 15ULL << 60}};
    for (const auto& size : SIZES)
    {
        EXPECT_TRUE(ParseSize(size.first, ullSize)) << size.first;
        EXPECT_EQ(ullSize, size.second) << size.first;
    }
    for (const char* pszText :
         {"", "M", "-1", "+1", " 1", "1 ", "1.5M", "10MB", "10X", "1Mi", "0x10", "16E",
          "18446744073709551616", "99999999999999999999999", "1KiBx"})
    {
        EXPECT_FALSE(ParseSize(pszText, ullSize)) << pszText;
    }
}

TEST(Units, RateIsBytesASecond)
{
    EXPECT_EQ(FormatRate(3145728, 2.0), "1.5 MiB/s");
}

TEST(Units, NoTimeOrNoBytesGiveNoRate)
{
    EXPECT_EQ(FormatRate(100, 0.0), "");
    EXPECT_EQ(FormatRate(100, -1.0), "");
    EXPECT_EQ(FormatRate(100, std::nan("")), "");
    EXPECT_EQ(FormatRate(0, 1.0), "");
}

TEST(Units, DurationsGrowWithTheTime)
{
    EXPECT_EQ(FormatDuration(0.0), "0:00");
    EXPECT_EQ(FormatDuration(7.4), "0:07");
    EXPECT_EQ(FormatDuration(754.0), "12:34");
    EXPECT_EQ(FormatDuration(3723.0), "1:02:03");
    EXPECT_EQ(FormatDuration(99 * 3600 + 3599), "99:59:59");
    EXPECT_EQ(FormatDuration(123 * 3600), "5d 03h");
}

TEST(Units, UnknownDurationsSaySo)
{
    EXPECT_EQ(FormatDuration(-1.0), "--:--");
    EXPECT_EQ(FormatDuration(1e12), "--:--");
    EXPECT_EQ(FormatDuration(std::nan("")), "--:--");
}

TEST(Units, TakenTimeShowsMilliseconds)
{
    EXPECT_EQ(FormatTaken(0.0003), "0.3 ms");
    EXPECT_EQ(FormatTaken(0.25), "250 ms");
    EXPECT_EQ(FormatTaken(1.5), "1.5 s");
    EXPECT_EQ(FormatTaken(125.0), "2:05");
}

TEST(Units, OneIsNoPlural)
{
    EXPECT_EQ(FormatCount(0, "file"), "0 files");
    EXPECT_EQ(FormatCount(1, "file"), "1 file");
    EXPECT_EQ(FormatCount(2, "file"), "2 files");
}

TEST(Units, ChannelsAreListed)
{
    EXPECT_EQ(FormatChannels({7}), "channel 7");
    EXPECT_EQ(FormatChannels({7, 0, 4294967295U}), "channels 7, 0, 4294967295");
}
