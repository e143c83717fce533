#include "HexDump.h"

#include <gtest/gtest.h>

TEST(HexDump, RowsHoldSixteenBytes)
{
    const std::string strData = "0123456789abcdef\x1B[2J";
    EXPECT_EQ(HexDump(7, strData.data(), strData.size()),
              "channel 7, 20 bytes\n"
              "  0000  30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  |0123456789abcdef|\n"
              "  0010  1b 5b 32 4a                                       |.[2J|\n");
}

TEST(HexDump, EmptyPacketIsItsFirstLine)
{
    EXPECT_EQ(HexDump(0, "", 0), "channel 0, 0 bytes\n");
}

TEST(HexDump, NothingButPrintableAsciiComesOut)
{
    std::string strAll;
    for (int i = 0; i < 256; ++i)
    {
        strAll += static_cast<char>(i);
    }
    for (const char c : HexDump(1, strAll.data(), strAll.size()))
    {
        EXPECT_TRUE(c == '\n' || (c >= 0x20 && c < 0x7F)) << static_cast<int>(c);
    }
}

TEST(HexDump, DigitsArePairs)
{
    EXPECT_EQ(HexDigits("\x00\x0f\xf0\xff", 4), "000ff0ff");
}
