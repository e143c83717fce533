// Which connections the real server takes.

#include <gtest/gtest.h>

#include <chrono>

#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

const unsigned int OTHER_ADDRESS = 0x7F000002;  // 127.0.0.2

}  // namespace

TEST(ServeAdmission, OnlyAllowedAddressesAreTaken)
{
    CServedFolder served({"--allow", "127.0.0.2/31", "--allow", "10.0.0.0/8"});
    CRawSocket allowed;
    ASSERT_TRUE(allowed.ConnectFrom(OTHER_ADDRESS, served.GetPort()));
    allowed.Send(Wire::Brow() + Wire::Delt(2, u"missing"));
    EXPECT_EQ(Wire::GetU32(allowed.ReceivePacket(), 16), 0U);
    CRawSocket other;
    ASSERT_TRUE(other.Connect(served.GetPort()));
    EXPECT_EQ(other.ReceiveToEnd(), "");
    const CEvent event = served.Tool().WaitForEvent("turned_away");
    EXPECT_EQ(event["address"], "127.0.0.1");
    EXPECT_EQ(event["reason"], "the address is not allowed");
    EXPECT_EQ(event["connections"], 1);
}

TEST(ServeAdmission, FurtherConnectionsAreClosedAtOnce)
{
    CServedFolder served({"--max-connections", "2"});
    CRawSocket first = served.Connect(u"first");
    CRawSocket second = served.Connect(u"second");
    CRawSocket third;
    ASSERT_TRUE(third.Connect(served.GetPort()));
    EXPECT_EQ(third.ReceiveToEnd(), "");
    EXPECT_EQ(served.Tool().WaitForEvent("turned_away")["reason"], "too many connections");
    first.Send(Wire::Delt(2, u"missing"));
    EXPECT_EQ(Wire::GetU32(first.ReceivePacket(), 16), 0U);
}

// However long it takes, it is a line a second at most, and every connection is counted in one.
TEST(ServeAdmission, FloodOfConnectionsIsNoFloodOfLines)
{
    CServedFolder served({"--max-connections", "1"});
    CRawSocket first = served.Connect();
    const int COUNT = 500;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < COUNT; ++i)
    {
        CRawSocket other;
        ASSERT_TRUE(other.Connect(served.GetPort()));
        EXPECT_EQ(other.ReceiveToEnd(), "");
    }
    EXPECT_EQ(served.Stop(), 0);
    const auto taken = std::chrono::steady_clock::now() - start;
    int nTold = 0;
    int nLines = 0;
    for (const CEvent& event : served.Tool().GetEvents())
    {
        if (event["event"] == "turned_away")
        {
            nTold += event["connections"].As<int>();
            ++nLines;
        }
    }
    EXPECT_EQ(nTold, COUNT);
    EXPECT_LE(nLines, 3 + std::chrono::duration_cast<std::chrono::seconds>(taken).count());
}

TEST(ServeAdmission, PublishTurnsAwayToo)
{
    CToolProcess tool(
        {"publish", "--channel", "1=udp:0", "--port", "0", "--json", "--allow", "127.0.0.2"});
    const CEvent event = tool.WaitForEvent("listening");
    ASSERT_FALSE(event.IsNull());
    CRawSocket other;
    ASSERT_TRUE(other.Connect(event["port"].As<unsigned short>()));
    EXPECT_EQ(other.ReceiveToEnd(), "");
    EXPECT_EQ(tool.WaitForEvent("turned_away")["address"], "127.0.0.1");
}
