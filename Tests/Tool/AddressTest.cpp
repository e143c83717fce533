#include "Address.h"

#include <gtest/gtest.h>

namespace
{

CPeer Parsed(const std::string& strText)
{
    CPeer peer;
    std::string strReason;
    EXPECT_TRUE(ParsePeer(strText, peer, strReason)) << strText << ": " << strReason;
    return peer;
}

std::string Refused(const std::string& strText)
{
    CPeer peer;
    std::string strReason;
    EXPECT_FALSE(ParsePeer(strText, peer, strReason)) << strText;
    return strReason;
}

}  // namespace

TEST(Address, HostAloneGetsTheDefaultPort)
{
    EXPECT_EQ(Parsed("camera-3").ToString(), "camera-3:7580");
    EXPECT_EQ(Parsed("192.168.0.7").ToString(), "192.168.0.7:7580");
}

TEST(Address, PortsFrom1To65535AreTaken)
{
    EXPECT_EQ(Parsed("h:1").m_wPort, 1);
    EXPECT_EQ(Parsed("h:65535").m_wPort, 65535);
}

TEST(Address, AnythingElseIsNoPort)
{
    for (const char* pszPort : {"", "0", "65536", "99999", "100000", "-1", "+1", "1a", " 1", "0x1"})
    {
        EXPECT_EQ(Refused(std::string("h:") + pszPort), "the port is not a number from 1 to 65535");
    }
}

TEST(Address, EmptyHostIsRefused)
{
    EXPECT_EQ(Refused(""), "the host name is empty");
    EXPECT_EQ(Refused(":80"), "the host name is empty");
}

TEST(Address, TwoColonsAreNoIPv4)
{
    EXPECT_EQ(Refused("::1"), "IPv6 addresses are not supported");
    EXPECT_EQ(Refused("[::1]:80"), "IPv6 addresses are not supported");
}

TEST(Address, PortZeroIsForServersOnly)
{
    unsigned short wPort = 9;
    EXPECT_TRUE(ParsePort("0", 0, wPort));
    EXPECT_EQ(wPort, 0);
}

TEST(Address, LiteralsResolveInHostByteOrder)
{
    std::string strReason;
    EXPECT_EQ(ResolvePeer(Parsed("127.0.0.1"), strReason), std::vector<unsigned int>{0x7F000001});
    EXPECT_EQ(ResolvePeer(Parsed("1.2.3.4"), strReason), std::vector<unsigned int>{0x01020304});
}

TEST(Address, LocalhostResolvesOnce)
{
    std::string strReason;
    EXPECT_EQ(ResolvePeer(Parsed("localhost"), strReason), std::vector<unsigned int>{0x7F000001});
}

TEST(Address, NoAddressGivesAReason)
{
    std::string strReason;
    EXPECT_TRUE(ResolvePeer(Parsed("256.1.1.1.invalid."), strReason).empty());
    EXPECT_FALSE(strReason.empty());
}

TEST(AddressRange, HoldsWhatSharesItsBits)
{
    CAddressRange range;
    ASSERT_TRUE(ParseRange("192.168.7.9/16", range));
    EXPECT_TRUE(range.Holds(0xC0A80001));
    EXPECT_TRUE(range.Holds(0xC0A8FFFF));
    EXPECT_FALSE(range.Holds(0xC0A90001));
    ASSERT_TRUE(ParseRange("10.0.0.7", range));
    EXPECT_TRUE(range.Holds(0x0A000007));
    EXPECT_FALSE(range.Holds(0x0A000006));
    ASSERT_TRUE(ParseRange("10.0.0.7/32", range));
    EXPECT_FALSE(range.Holds(0x0A000006));
    ASSERT_TRUE(ParseRange("0.0.0.0/0", range));
    EXPECT_TRUE(range.Holds(0xFFFFFFFF));
}

TEST(AddressRange, NothingElseIsTaken)
{
    CAddressRange range;
    for (const char* pszText : {"", "host", "1.2.3", "1.2.3.4/", "1.2.3.4/33", "1.2.3.4/-1",
                                "1.2.3.4/x", "1.2.3.4/255.0.0.0", "::1", "1.2.3.4 ", "/8"})
    {
        EXPECT_FALSE(ParseRange(pszText, range)) << pszText;
    }
}
