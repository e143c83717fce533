#include "PacketCutter.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

std::vector<std::string> TakeAll(CPacketCutter& cutter)
{
    std::vector<std::string> listPackets;
    while (!cutter.Front().empty())
    {
        listPackets.emplace_back(cutter.Front());
        cutter.Drop();
    }
    return listPackets;
}

void Add(CPacketCutter& cutter, const std::string& strText)
{
    cutter.Add(strText.data(), strText.size());
}

using CPackets = std::vector<std::string>;

}  // namespace

TEST(PacketCutter, CutsPacketsOfOneSize)
{
    CPacketCutter cutter(3, false);
    Add(cutter, "abcdefgh");
    EXPECT_EQ(TakeAll(cutter), (CPackets{"abc", "def"}));
    Add(cutter, "i");
    EXPECT_EQ(TakeAll(cutter), (CPackets{"ghi"}));
}

TEST(PacketCutter, RestIsTheLastPacket)
{
    CPacketCutter cutter(3, false);
    Add(cutter, "abcd");
    EXPECT_EQ(TakeAll(cutter), (CPackets{"abc"}));
    cutter.End();
    EXPECT_EQ(TakeAll(cutter), (CPackets{"d"}));
    EXPECT_TRUE(cutter.Front().empty());
}

TEST(PacketCutter, FrontStaysUntilItIsDropped)
{
    CPacketCutter cutter(2, false);
    Add(cutter, "abcd");
    EXPECT_EQ(cutter.Front(), "ab");
    Add(cutter, "ef");
    EXPECT_EQ(cutter.Front(), "ab");
    EXPECT_EQ(TakeAll(cutter), (CPackets{"ab", "cd", "ef"}));
}

TEST(PacketCutter, LinesKeepTheirLineFeed)
{
    CPacketCutter cutter(MAX_PACKET_SIZE, true);
    Add(cutter, "one\n\nthr");
    EXPECT_EQ(TakeAll(cutter), (CPackets{"one\n", "\n"}));
    Add(cutter, "ee\nfour");
    EXPECT_EQ(TakeAll(cutter), (CPackets{"three\n"}));
    cutter.End();
    EXPECT_EQ(TakeAll(cutter), (CPackets{"four"}));
}

TEST(PacketCutter, LongLinesAreSplit)
{
    CPacketCutter cutter(MAX_PACKET_SIZE, true);
    const std::string strFull(MAX_PACKET_SIZE, 'x');
    Add(cutter, strFull + "yz\n" + strFull.substr(1) + "\n" + strFull + "\n");
    EXPECT_EQ(TakeAll(cutter),
              (CPackets{strFull, "yz\n", strFull.substr(1) + "\n", strFull, "\n"}));
}

TEST(PacketCutter, NothingGivesNoPacket)
{
    CPacketCutter cutter(3, false);
    cutter.End();
    EXPECT_TRUE(cutter.Front().empty());
}
