#include <gtest/gtest.h>

#include "CommandLine.h"

namespace
{

CParsed Parse(std::vector<const char*> listArguments, COptions& options)
{
    listArguments.insert(listArguments.begin(), "osprey");
    return ParseCommandLine(static_cast<int>(listArguments.size()), listArguments.data(), options);
}

std::string Fault(const std::vector<const char*>& listArguments)
{
    COptions options;
    const CParsed parsed = Parse(listArguments, options);
    EXPECT_FALSE(parsed.m_bRun);
    EXPECT_EQ(parsed.m_nExitCode, EXIT_USAGE);
    return parsed.m_strError;
}

void ExpectFault(const std::vector<const char*>& listArguments, const std::string& strReason)
{
    EXPECT_NE(Fault(listArguments).find(strReason), std::string::npos)
        << Fault(listArguments) << "\nis not: " << strReason;
}

}  // namespace

TEST(ChannelOptions, PublishTakesItsOptions)
{
    COptions options;
    ASSERT_TRUE(Parse({"publish", "-p", "0", "--channel", "1=udp:5000", "-c", "2=-", "--rate", "50",
                       "--packet-size", "188", "--wait", "--live", "--linger", "0"},
                      options)
                    .m_bRun);
    EXPECT_EQ(options.m_eCommand, COMMAND_PUBLISH);
    EXPECT_EQ(options.m_wPort, 0);
    ASSERT_EQ(options.m_listSources.size(), 2U);
    EXPECT_EQ(options.m_listSources[1].m_eKind, SOURCE_INPUT);
    EXPECT_EQ(options.m_stream.m_dwRate, 50U);
    EXPECT_EQ(options.m_stream.m_nPacketSize, 188U);
    EXPECT_TRUE(options.m_stream.m_bWait);
    EXPECT_TRUE(options.m_stream.m_bLive);
    EXPECT_EQ(options.m_dwLingerSeconds, 0U);
}

TEST(ChannelOptions, ServeTakesSourcesToo)
{
    COptions options;
    ASSERT_TRUE(Parse({"serve", "--root", "d", "--channel", "1=f", "--lines"}, options).m_bRun);
    EXPECT_EQ(options.m_listSources.size(), 1U);
    EXPECT_TRUE(options.m_stream.m_bLines);
}

TEST(ChannelOptions, SubscribeTakesSeveralSinksForAChannel)
{
    COptions options;
    ASSERT_TRUE(Parse({"subscribe", "--channel", "1", "h:9", "--channel", "1=f", "--channel",
                       "1=hex", "--count", "5", "--for", "7"},
                      options)
                    .m_bRun);
    EXPECT_EQ(options.m_eCommand, COMMAND_SUBSCRIBE);
    EXPECT_EQ(options.m_peer.ToString(), "h:9");
    EXPECT_EQ(options.m_listSinks.size(), 3U);
    EXPECT_EQ(options.m_ullCount, 5U);
    EXPECT_EQ(options.m_dwForSeconds, 7U);
}

TEST(ChannelOptions, TenChannelsAreTakenButNotEleven)
{
    std::vector<const char*> listArguments = {"subscribe", "h"};
    for (const char* pszChannel : {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "9=hex"})
    {
        listArguments.insert(listArguments.end(), {"--channel", pszChannel});
    }
    COptions options;
    EXPECT_TRUE(Parse(listArguments, options).m_bRun);
    listArguments.insert(listArguments.end(), {"--channel", "10"});
    ExpectFault(listArguments, "--channel: at most 10 channels");
}

TEST(ChannelOptions, SourceFaultsAreToldInPlainWords)
{
    ExpectFault({"publish"}, "--channel is required");
    ExpectFault({"publish", "-c", "1"}, "--channel \"1\": a source is needed");
    ExpectFault({"publish", "-c", "1=f", "-c", "1=g"}, "the channel has a source already");
    ExpectFault({"publish", "-c", "1=-", "-c", "2=-"}, "standard input is a source already");
    ExpectFault({"publish", "-c", "1=f", "--packet-size", "1501"}, "--packet-size");
    ExpectFault({"publish", "-c", "1=f", "--packet-size", "0"}, "--packet-size");
    ExpectFault({"publish", "-c", "1=f", "--lines", "--packet-size", "9"}, "exclude each other");
    ExpectFault({"publish", "-c", "1=f", "--rate", "-1"}, "--rate");
    ExpectFault({"publish", "-c", "1=f", "--port", "x"}, "--port");
    ExpectFault({"publish", "-c", "1=f", "surplus"}, "surplus");
    ExpectFault({"serve", "--root", "d", "--wait"}, "need --channel");
    ExpectFault({"serve", "--root", "d", "--live"}, "need --channel");
    ExpectFault({"serve", "--root", "d", "--rate", "0"}, "need --channel");
    ExpectFault({"serve", "--root", "d", "--linger", "1"}, "--linger");
}

TEST(ChannelOptions, SinkFaultsAreToldInPlainWords)
{
    ExpectFault({"subscribe", "h"}, "--channel is required");
    ExpectFault({"subscribe", "--channel", "1"}, "HOST is required");
    ExpectFault({"subscribe", "h", "-c", "x"}, "the channel is not a number");
    ExpectFault({"subscribe", "h", "-c", "1", "-c", "1"}, "stats is a sink already");
    ExpectFault({"subscribe", "h", "-c", "1=-", "-c", "2=-"}, "standard output is a sink already");
    ExpectFault({"subscribe", "h", "-c", "1=f", "-c", "2=f"}, "\"f\" is a sink already");
    ExpectFault({"subscribe", "h", "-c", "1", "--count", "0"}, "--count");
    ExpectFault({"subscribe", "h", "-c", "1", "--for", "0"}, "--for");
    ExpectFault({"subscribe", "::1", "-c", "1"}, "IPv6");
    ExpectFault({"subscribe", "h", "-c", "1", "--connect-timeout", "0"}, "--connect-timeout");
}
