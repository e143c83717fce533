#include "ChannelRow.h"

#include <gtest/gtest.h>

#include "Text.h"

namespace
{

const CChannelRow ROW = {1, 1000.0, 1316000.0, 123456, "no gaps"};

}  // namespace

TEST(ChannelRow, ShowsAllThatFits)
{
    EXPECT_EQ(RenderChannelRow(ROW, 100),
              "channel 1    1000 packets/s     1.3 MiB/s    123456 packets  no gaps");
}

TEST(ChannelRow, FiguresGoFromTheRight)
{
    EXPECT_EQ(RenderChannelRow(ROW, 66),
              "channel 1    1000 packets/s     1.3 MiB/s    123456 packets");
    EXPECT_EQ(RenderChannelRow(ROW, 30), "channel 1    1000 packets/s");
    EXPECT_EQ(RenderChannelRow(ROW, 24), "channel 1 1000 packets/s");
    EXPECT_EQ(RenderChannelRow(ROW, 23), "channel 1");
}

TEST(ChannelRow, FitsEveryWidth)
{
    const CChannelRow row = {4294967295U, 1e300, 1e300, ~0ULL, "no gaps, not connected"};
    for (int nColumns = -3; nColumns < 120; ++nColumns)
    {
        EXPECT_LE(TextColumns(RenderChannelRow(row, nColumns)), std::max(nColumns, 0));
    }
}

TEST(ChannelRow, RatesThatAreNotKnownYetAreDashes)
{
    EXPECT_EQ(FormatPacketRate(-1.0), "- packets/s");
    EXPECT_EQ(FormatByteRate(-1.0), "- B/s");
}

TEST(ChannelRow, SlowRatesHaveADecimal)
{
    EXPECT_EQ(FormatPacketRate(0.0), "0 packets/s");
    EXPECT_EQ(FormatPacketRate(2.5), "2.5 packets/s");
    EXPECT_EQ(FormatPacketRate(1234.5), "1234 packets/s");
}
