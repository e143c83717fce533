#include "ChannelSpec.h"

#include <gtest/gtest.h>

namespace
{

CSourceSpec Source(const std::string& strText)
{
    CSourceSpec spec;
    std::string strReason;
    EXPECT_TRUE(ParseSource(strText, spec, strReason)) << strText << ": " << strReason;
    return spec;
}

CSinkSpec Sink(const std::string& strText)
{
    CSinkSpec spec;
    std::string strReason;
    EXPECT_TRUE(ParseSink(strText, spec, strReason)) << strText << ": " << strReason;
    return spec;
}

std::string SourceFault(const std::string& strText)
{
    CSourceSpec spec;
    std::string strReason;
    EXPECT_FALSE(ParseSource(strText, spec, strReason)) << strText;
    return strReason;
}

std::string SinkFault(const std::string& strText)
{
    CSinkSpec spec;
    std::string strReason;
    EXPECT_FALSE(ParseSink(strText, spec, strReason)) << strText;
    return strReason;
}

}  // namespace

TEST(ChannelSpec, ChannelsAreAll32BitNumbers)
{
    EXPECT_EQ(Source("0=-").m_dwChannel, 0U);
    EXPECT_EQ(Source("4294967295=-").m_dwChannel, 4294967295U);
    for (const char* pszText : {"4294967296=-", "-1=-", "=-", "x=-", "1 =-", "0x1=-", "+1=-",
                                "00000000001=-", "99999999999999999999=-"})
    {
        EXPECT_EQ(SourceFault(pszText), "the channel is not a number from 0 to 4294967295");
        EXPECT_EQ(SinkFault(pszText), "the channel is not a number from 0 to 4294967295");
    }
}

TEST(ChannelSpec, UdpSourceListensOnLoopbackUnlessItIsToldWhere)
{
    const CSourceSpec spec = Source("1=udp:5000");
    EXPECT_EQ(spec.m_eKind, SOURCE_UDP);
    EXPECT_EQ(spec.m_udp.m_strHost, "127.0.0.1");
    EXPECT_EQ(spec.m_udp.m_wPort, 5000);
    EXPECT_EQ(Source("1=udp:0.0.0.0:5000").m_udp.m_strHost, "0.0.0.0");
}

TEST(ChannelSpec, UdpSourceMayNameAnInterfaceAndASender)
{
    const CSourceSpec spec = Source("1=udp:239.1.1.1:5000%eth0@10.0.0.7");
    EXPECT_EQ(spec.m_udp.m_strHost, "239.1.1.1");
    EXPECT_EQ(spec.m_udp.m_wPort, 5000);
    EXPECT_EQ(spec.m_udp.m_strInterface, "eth0");
    EXPECT_EQ(spec.m_udp.m_strFrom, "10.0.0.7");
    EXPECT_EQ(spec.Shown(), "udp:239.1.1.1:5000%eth0@10.0.0.7");
    EXPECT_EQ(Source("1=udp:0@10.0.0.7").m_udp.m_wPort, 0);
}

TEST(ChannelSpec, UdpFaultsAreToldInPlainWords)
{
    EXPECT_EQ(SourceFault("1=udp:"), "the port is not a number from 0 to 65535");
    EXPECT_EQ(SourceFault("1=udp:65536"), "the port is not a number from 0 to 65535");
    EXPECT_EQ(SourceFault("1=udp:a:"), "the port is not a number from 0 to 65535");
    EXPECT_EQ(SourceFault("1=udp::5"), "a name or an IPv4 address is needed before the port");
    EXPECT_EQ(SourceFault("1=udp:::1:5"), "a name or an IPv4 address is needed before the port");
    EXPECT_EQ(SourceFault("1=udp:5@"), "no address follows \"@\"");
    EXPECT_EQ(SourceFault("1=udp:5%"), "no interface follows \"%\"");
    EXPECT_EQ(SinkFault("1=udp:h:0"), "the port is not a number from 1 to 65535");
    EXPECT_EQ(SinkFault("1=udp:h:5@10.0.0.7"), "the port is not a number from 1 to 65535");
}

TEST(ChannelSpec, SourceIsAFileUnlessItIsStandardInput)
{
    EXPECT_EQ(Source("7=-").m_eKind, SOURCE_INPUT);
    EXPECT_EQ(Source("7=-").Shown(), "standard input");
    EXPECT_EQ(Source("7=a=b").m_eKind, SOURCE_FILE);
    EXPECT_EQ(Source("7=a=b").m_strPath, "a=b");
    EXPECT_EQ(Source("7=\x1B[2J").Shown(), "\"\\x1B[2J\"");
    EXPECT_EQ(SourceFault("7"), "a source is needed, as in 1=udp:5000");
    EXPECT_EQ(SourceFault("7="), "nothing follows \"=\"");
}

TEST(ChannelSpec, SinkIsStatsUnlessItIsNamed)
{
    EXPECT_EQ(Sink("7").m_eKind, SINK_STATS);
    EXPECT_EQ(Sink("7=stats").m_eKind, SINK_STATS);
    EXPECT_EQ(Sink("7=hex").m_eKind, SINK_HEX);
    EXPECT_EQ(Sink("7=-").m_eKind, SINK_OUTPUT);
    EXPECT_EQ(Sink("7=udp:10.0.0.7:5004").m_eKind, SINK_UDP);
    EXPECT_EQ(Sink("7=udp:10.0.0.7:5004").Shown(), "udp:10.0.0.7:5004");
    EXPECT_EQ(Sink("7=./hex").m_eKind, SINK_FILE);
    EXPECT_EQ(Sink("7=./hex").m_strPath, "./hex");
    EXPECT_EQ(SinkFault("7="), "nothing follows \"=\"");
}
