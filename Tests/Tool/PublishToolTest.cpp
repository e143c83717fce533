// The real publisher and the real subscriber: what goes in at one end comes out at the other.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "Hex.h"
#include "Publisher.h"
#include "RawSocket.h"
#include "ServedFolder.h"
#include "TempFolder.h"

namespace
{

using CNames = std::vector<std::string>;

const size_t PACKET_SIZE = 1316;

class CPublishToolTest : public ::testing::Test
{
protected:
    std::string Source(const std::string& strChannel, const std::string& strContents) const
    {
        return strChannel + "=" + m_folder.WriteFile("in" + strChannel, strContents);
    }
    // A run of subscribe to so many packets.
    static CToolRun Take(CPublisher& publisher, const CNames& listSinks, size_t nPackets)
    {
        CNames listArguments = {"subscribe", publisher.GetPeer(), "--count",
                                std::to_string(nPackets), "--json"};
        for (const std::string& strSink : listSinks)
        {
            listArguments.insert(listArguments.end(), {"--channel", strSink});
        }
        return CToolRun(listArguments);
    }

    CTempFolder m_folder;
};

using PublishTool = CPublishToolTest;

// The sizes of the packets that a hex sink told as JSON.
std::vector<size_t> PacketSizes(const CNames& listLines)
{
    std::vector<size_t> listSizes;
    for (const std::string& strLine : listLines)
    {
        const CEvent event = CEvent::Parse(strLine);
        if (event["event"] == "packet")
        {
            listSizes.push_back(event["size"].As<size_t>());
            EXPECT_EQ(event["hex"].As<std::string>().size(), listSizes.back() * 2);
        }
    }
    return listSizes;
}

}  // namespace

TEST_F(PublishTool, FileArrivesWhole)
{
    const std::string strContents = Pattern(500 * PACKET_SIZE + 7);
    CPublisher publisher({"--wait", "--channel", Source("1", strContents)});
    const CToolRun run = Take(publisher, {"1=" + m_folder.GetPath("out")}, 501);
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_EQ(run.m_strErrors, "");
    EXPECT_TRUE(ReadFile(m_folder.GetPath("out")) == strContents);
    EXPECT_EQ(publisher.Tool().WaitForEvent("ended")["channel"], 1);
    EXPECT_EQ(publisher.Stop(), 0);
    const CEvent summary = publisher.Tool().WaitForEvent("summary");
    EXPECT_EQ(summary["packets"], 501);
    EXPECT_EQ(summary["bytes"], strContents.size());
    EXPECT_EQ(summary["unread"], 0);
    EXPECT_EQ(publisher.Tool().GetErrors(), "");
}

TEST_F(PublishTool, PacketsHaveTheSizeThatIsAskedFor)
{
    CPublisher publisher(
        {"--wait", "--packet-size", "100", "--channel", Source("1", Pattern(250))});
    EXPECT_EQ(PacketSizes(Take(publisher, {"1=hex"}, 3).m_listLines),
              (std::vector<size_t>{100, 100, 50}));
}

TEST_F(PublishTool, LinesAreAPacketEach)
{
    const std::string strLines = "one\n\n" + std::string(1600, 'x') + "\nlast";
    CPublisher publisher({"--wait", "--lines", "--channel", Source("1", strLines)});
    const CToolRun run = Take(publisher, {"1=hex", "1=" + m_folder.GetPath("out")}, 5);
    EXPECT_EQ(PacketSizes(run.m_listLines), (std::vector<size_t>{4, 1, 1500, 101, 4}));
    EXPECT_EQ(ReadFile(m_folder.GetPath("out")), strLines);
}

TEST_F(PublishTool, StandardInputIsASource)
{
    const std::string strContents = Pattern(10 * PACKET_SIZE);
    CPublisher publisher({"--wait", "--channel", "4294967295=-"}, 0,
                         m_folder.WriteFile("in", strContents));
    EXPECT_EQ(Take(publisher, {"4294967295=" + m_folder.GetPath("out")}, 10).m_nExitCode, 0);
    EXPECT_TRUE(ReadFile(m_folder.GetPath("out")) == strContents);
    EXPECT_FALSE(publisher.Tool().WaitForEvent("ended").IsNull());
    EXPECT_EQ(publisher.Stop(), 0);
}

TEST_F(PublishTool, FifoIsASourceUntilItsWriterEnds)
{
    const std::string strFifo = m_folder.GetPath("fifo");
    ASSERT_EQ(mkfifo(strFifo.c_str(), 0600), 0);
    CPublisher publisher({"--wait", "--lines", "--channel", "1=" + strFifo});
    const int nWriter = open(strFifo.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(nWriter, 0);
    ASSERT_EQ(write(nWriter, "half ", 5), 5);
    ASSERT_EQ(write(nWriter, "whole\nrest", 10), 10);
    CToolProcess reader({"subscribe", publisher.GetPeer(), "--channel", "1=hex", "--count", "2"});
    EXPECT_TRUE(reader.WaitForOutput("|half whole.|"));
    close(nWriter);
    EXPECT_TRUE(reader.WaitForOutput("|rest|"));
    EXPECT_EQ(reader.Wait(), 0);
    EXPECT_FALSE(publisher.Tool().WaitForEvent("ended").IsNull());
    EXPECT_EQ(publisher.Stop(), 0);
}

TEST_F(PublishTool, EndsByItselfAfterItsSources)
{
    CPublisher publisher({"--linger", "1", "--wait", "--channel", Source("1", "text")});
    // It may be over before this one has got anything.
    const CToolProcess reader({"subscribe", publisher.GetPeer(), "--channel", "1"});
    EXPECT_EQ(publisher.Tool().Wait(), 0);
    EXPECT_EQ(publisher.Tool().WaitForEvent("summary")["packets"], 1);
    EXPECT_FALSE(publisher.Tool().WaitForEvent("stopped").IsNull());
}

TEST_F(PublishTool, TwoSubscribersTakeTwoChannels)
{
    const std::string strOne = Pattern(300 * PACKET_SIZE, 1);
    const std::string strTwo = Pattern(300 * PACKET_SIZE, 2);
    CPublisher publisher(
        {"--wait", "--channel", Source("1", strOne), "--channel", Source("2", strTwo)});
    CToolProcess first({"subscribe", publisher.GetPeer(), "--count", "300", "--channel",
                        "1=" + m_folder.GetPath("out1")});
    CToolProcess second({"subscribe", publisher.GetPeer(), "--count", "300", "--channel",
                         "2=" + m_folder.GetPath("out2")});
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);
    EXPECT_TRUE(ReadFile(m_folder.GetPath("out1")) == strOne);
    EXPECT_TRUE(ReadFile(m_folder.GetPath("out2")) == strTwo);
    EXPECT_EQ(publisher.Stop(), 0);
}

TEST_F(PublishTool, PacketsThatNobodyReadsAreCounted)
{
    CPublisher publisher({"--linger", "0", "--packet-size", "10", "--rate", "0", "--channel",
                          Source("1", Pattern(95))});
    const CEvent summary = publisher.Tool().WaitForEvent("summary");
    EXPECT_EQ(summary["packets"], 0);
    EXPECT_EQ(summary["unread"], 10);
    EXPECT_EQ(publisher.Tool().Wait(), 0);
}

TEST_F(PublishTool, RateIsNotExceeded)
{
    const auto begin = std::chrono::steady_clock::now();
    CPublisher publisher({"--linger", "0", "--packet-size", "1", "--rate", "100", "--channel",
                          Source("1", std::string(51, 'x'))});
    EXPECT_EQ(publisher.Tool().Wait(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500));
}

TEST_F(PublishTool, PublisherWaitsForAReader)
{
    CPublisher publisher({"--wait", "--lines", "--channel", Source("1", "a\nb")});
    // Another channel's reader does not count.
    CToolProcess other({"subscribe", publisher.GetPeer(), "--json", "--channel", "2"});
    other.WaitForEvent("stats");
    EXPECT_EQ(publisher.Tool().GetOutput().find("ended"), std::string::npos);
    EXPECT_EQ(Take(publisher, {"1"}, 1).m_nExitCode, 0);
}

TEST_F(PublishTool, FileRequestsAreRefused)
{
    CPublisher publisher({"--channel", "1=udp:0"});
    const CToolRun submit(
        {"submit", publisher.GetPeer(), m_folder.WriteFile("file", "text"), "--name", "me"});
    EXPECT_EQ(submit.m_nExitCode, 1);
    EXPECT_NE(submit.m_strErrors.find("refused"), std::string::npos);
    CEvent event = publisher.Tool().WaitForEvent("refused");
    EXPECT_EQ(event["connection"], "me");
    EXPECT_EQ(event["reason"], "no files are served");
    const CToolRun download(
        {"download", publisher.GetPeer(), "/etc/hostname", "-o", m_folder.GetPath("got")});
    EXPECT_EQ(download.m_nExitCode, 1);
    EXPECT_EQ(publisher.Tool().WaitForEvent("refused")["request"], "download");
    EXPECT_EQ(publisher.Stop(), 0);
}

TEST_F(PublishTool, FilesAndChannelsAreServedByOneProcess)
{
    const std::string strStream = Pattern(2000 * PACKET_SIZE);
    const std::string strFile = Pattern(3000000, 9);
    CServedFolder served({"--wait", "--channel", Source("5", strStream)});
    CToolProcess subscriber({"subscribe", served.GetPeer(), "--count", "2000", "--channel",
                             "5=" + m_folder.GetPath("out")});
    const CToolRun submit({"submit", served.GetPeer(), m_folder.WriteFile("file", strFile)});
    EXPECT_EQ(submit.m_nExitCode, 0);
    EXPECT_TRUE(ReadFile(served.GetPath("file")) == strFile);
    EXPECT_EQ(subscriber.Wait(), 0);
    EXPECT_TRUE(ReadFile(m_folder.GetPath("out")) == strStream);
    // A source that has ended does not end the server.
    EXPECT_EQ(served.Tool().WaitForEvent("ended")["channel"], 5);
    EXPECT_EQ(
        CToolRun({"download", served.GetPeer(), "file", "-o", m_folder.GetPath("got")}).m_nExitCode,
        0);
    EXPECT_EQ(served.Stop(), 0);
    EXPECT_EQ(served.Tool().WaitForEvent("summary")["packets"], 2000);
}

TEST_F(PublishTool, SignalsGive0)
{
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP})
    {
        CPublisher publisher({"--channel", "1=udp:0"});
        publisher.Tool().Signal(nSignal);
        EXPECT_EQ(publisher.Tool().Wait(), 0) << nSignal;
        EXPECT_FALSE(publisher.Tool().WaitForEvent("summary").IsNull());
        EXPECT_FALSE(publisher.Tool().WaitForEvent("stopped").IsNull());
        EXPECT_EQ(publisher.Tool().GetErrors(), "");
    }
}

TEST_F(PublishTool, TextTellsSourcesAndPort)
{
    CToolProcess tool({"publish", "--port", "0", "--linger", "0", "--channel", Source("1", "four"),
                       "--channel", "2=udp:0"});
    EXPECT_TRUE(tool.WaitForOutput("channels 1, 2\n"));
    EXPECT_TRUE(tool.WaitForOutput("ended"));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_NE(tool.GetOutput().find("channel 2 from udp:127.0.0.1:"), std::string::npos);
    EXPECT_NE(tool.GetOutput().find("0 packets, 0 B, 1 that nobody read"), std::string::npos);
}

TEST_F(PublishTool, QuietTellsNothing)
{
    const CToolRun run(
        {"publish", "--port", "0", "--quiet", "--linger", "0", "--channel", Source("1", "four")});
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_EQ(run.m_strOutput, "");
    EXPECT_EQ(run.m_strErrors, "");
}

TEST_F(PublishTool, SourcesThatCannotBeReadGive2)
{
    CToolRun run({"publish", "--port", "0", "--channel", "1=" + m_folder.GetPath("missing")});
    EXPECT_EQ(run.m_nExitCode, 2);
    EXPECT_EQ(run.m_strOutput, "");
    EXPECT_NE(run.m_strErrors.find("missing\": No such file or directory"), std::string::npos);
    run = CToolRun({"publish", "--port", "0", "--channel", "1=" + m_folder.GetPath()});
    EXPECT_EQ(run.m_nExitCode, 2);
    EXPECT_NE(run.m_strErrors.find("Is a directory"), std::string::npos);
    run = CToolRun({"serve", "--root", m_folder.GetPath(), "--port", "0", "--channel",
                    "1=" + m_folder.GetPath("missing")});
    EXPECT_EQ(run.m_nExitCode, 2);
}

TEST_F(PublishTool, SourceThatFailsOnTheWayGives1)
{
    // It opens, but nothing stands at its start.
    CPublisher publisher(
        {"--linger", "0", "--channel", "1=/proc/self/mem", "--channel", Source("2", "x")});
    EXPECT_EQ(publisher.Tool().Wait(), 1);
    EXPECT_EQ(publisher.Tool().GetErrors(),
              "osprey: channel 1 from \"/proc/self/mem\": Input/output error\n");
    EXPECT_EQ(publisher.Tool().WaitForEvent("summary")["channel"], 1);
    EXPECT_EQ(publisher.Tool().WaitForEvent("summary")["unread"], 1);
}

TEST_F(PublishTool, TakenPortsGive3)
{
    CPublisher publisher({"--channel", "1=udp:0"});
    CToolRun run(
        {"publish", "--port", std::to_string(publisher.GetPort()), "--channel", Source("1", "x")});
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_NE(run.m_strErrors.find("Address already in use"), std::string::npos);
    run = CToolRun({"publish", "--port", "0", "--channel",
                    "1=udp:" + std::to_string(publisher.GetUdpPort(1))});
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_NE(run.m_strErrors.find("cannot listen on udp:127.0.0.1:"), std::string::npos);
    EXPECT_EQ(run.m_strOutput, "");
}
