// The real subscriber: its sinks, its ends, and a publisher that comes and goes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Hex.h"
#include "Publisher.h"
#include "RawSocket.h"
#include "TempFolder.h"
#include "TransportCells.h"
#include "UdpEnd.h"

namespace
{

using CNames = std::vector<std::string>;

const size_t PACKET_SIZE = 1316;

class CSubscribeToolTest : public ::testing::Test
{
protected:
    // Publishes the lines of a text as channel 1, once somebody reads.
    CNames Lines(const std::string& strLines) const
    {
        return {"--wait", "--lines", "--channel", "1=" + m_folder.WriteFile("lines", strLines)};
    }
    // Publishes packets without end as channel 1.
    static CNames Endless()
    {
        return {"--wait", "--rate", "200", "--channel", "1=/dev/zero"};
    }

    CTempFolder m_folder;
};

using SubscribeTool = CSubscribeToolTest;

size_t CountLines(const CNames& listLines, const std::string& strText)
{
    size_t nLines = 0;
    for (const std::string& strLine : listLines)
    {
        nLines += strLine.find(strText) != std::string::npos ? 1 : 0;
    }
    return nLines;
}

}  // namespace

TEST_F(SubscribeTool, RawOutputIsNothingButTheBytes)
{
    CPublisher publisher(Lines("one\ntwo\n\x1B[2Jthree\n"));
    const CToolRun run({"subscribe", publisher.GetPeer(), "--channel", "1=-", "--count", "3"});
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_EQ(run.m_strOutput, "one\ntwo\n\x1B[2Jthree\n");
    EXPECT_NE(run.m_strErrors.find("connected"), std::string::npos);
    EXPECT_NE(run.m_strErrors.find("3 packets"), std::string::npos);
}

TEST_F(SubscribeTool, QuietRawOutputLeavesStandardErrorAlone)
{
    CPublisher publisher(Lines("one\n"));
    const CToolRun run({"subscribe", publisher.GetPeer(), "-q", "-c", "1=-", "--count", "1"});
    EXPECT_EQ(run.m_strOutput, "one\n");
    EXPECT_EQ(run.m_strErrors, "");
}

TEST_F(SubscribeTool, SeveralSinksGetEachPacket)
{
    CUdpEnd receiver;
    CPublisher publisher(Lines("one\n\x1B[2J\n"));
    const CToolRun run({"subscribe", publisher.GetPeer(), "--count", "2", "--channel", "1=hex",
                        "--channel", "1=" + m_folder.GetPath("out"), "--channel",
                        "1=" + receiver.GetName()});
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_EQ(receiver.Receive(), "one\n");
    EXPECT_EQ(receiver.Receive(), "\x1B[2J\n");
    EXPECT_EQ(ReadFile(m_folder.GetPath("out")), "one\n\x1B[2J\n");
    EXPECT_NE(run.m_strOutput.find("channel 1, 4 bytes\n"), std::string::npos);
    EXPECT_NE(run.m_strOutput.find("|.[2J.|"), std::string::npos);
    EXPECT_EQ(run.m_strOutput.find('\x1B'), std::string::npos);
}

TEST_F(SubscribeTool, CountIsKeptToThePacket)
{
    CPublisher publisher(Endless());
    const CToolRun run({"subscribe", publisher.GetPeer(), "--count", "3", "--json", "--channel",
                        "1=" + m_folder.GetPath("out")});
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_EQ(ReadFile(m_folder.GetPath("out")).size(), 3 * PACKET_SIZE);
    const CEvent summary = CEvent::Parse(run.m_listLines.back());
    EXPECT_EQ(summary["event"], "summary");
    EXPECT_EQ(summary["packets"], 3);
}

TEST_F(SubscribeTool, TimeEndsItWith0)
{
    CPublisher publisher(Endless());
    // Long enough for a connection on a slow machine.
    const CToolRun run({"subscribe", publisher.GetPeer(), "--for", "5", "--channel", "1"});
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_NE(run.m_strOutput.find("summary"), std::string::npos);
    EXPECT_EQ(run.m_strErrors, "");
}

TEST_F(SubscribeTool, TimeWithoutAConnectionEndsItWith3)
{
    const std::string strPeer = "127.0.0.1:" + std::to_string(FreePort());
    const CToolRun run({"subscribe", strPeer, "--for", "1", "--channel", "1"});
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_EQ(run.m_strErrors, "osprey: could not connect to " + strPeer + "\n");
}

TEST_F(SubscribeTool, SignalsGive0ConnectedOrNot)
{
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP})
    {
        CPublisher publisher(Endless());
        CToolProcess tool({"subscribe", publisher.GetPeer(), "--json", "--channel",
                           "1=" + m_folder.GetPath("out")});
        tool.WaitForEvent("connected");
        tool.Signal(nSignal);
        EXPECT_EQ(tool.Wait(), 0) << nSignal;
        EXPECT_FALSE(tool.WaitForEvent("summary").IsNull());
        CToolProcess lonely(
            {"subscribe", "127.0.0.1:" + std::to_string(FreePort()), "--json", "--channel", "1"});
        lonely.WaitForEvent("connect_failed");
        lonely.Signal(nSignal);
        EXPECT_EQ(lonely.Wait(), 0) << nSignal;
    }
}

TEST_F(SubscribeTool, RestartOfThePublisherIsSurvived)
{
    const unsigned short wPort = FreePort();
    auto pPublisher = std::make_unique<CPublisher>(Lines("one\n"), wPort);
    CToolProcess tool({"subscribe", pPublisher->GetPeer(), "--json", "--count", "2", "--channel",
                       "1=" + m_folder.GetPath("out"), "--channel", "1=hex"});
    tool.WaitForEvent("connected");
    tool.WaitForEvent("packet");
    EXPECT_EQ(pPublisher->Stop(), 0);
    tool.WaitForEvent("disconnected");
    tool.WaitForEvent("connect_failed");
    pPublisher = std::make_unique<CPublisher>(Lines("two\n"), wPort);
    tool.WaitForEvent("connected");
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_EQ(ReadFile(m_folder.GetPath("out")), "one\ntwo\n");
    EXPECT_EQ(tool.WaitForEvent("summary")["connection_losses"], 1);
}

TEST_F(SubscribeTool, TextTellsOnlyTheFirstRefusal)
{
    const unsigned short wPort = FreePort();
    const std::string strPeer = "127.0.0.1:" + std::to_string(wPort);
    CToolProcess tool({"subscribe", strPeer, "--count", "1", "--channel", "1"});
    ASSERT_TRUE(tool.WaitForOutput("refused"));
    // Another one, which tells all its attempts, shows that time has passed for several.
    CToolProcess other({"subscribe", strPeer, "--json", "--channel", "1"});
    for (int i = 0; i < 3; ++i)
    {
        other.WaitForEvent("connect_failed");
    }
    CPublisher publisher(Lines("one\n"), wPort);
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_EQ(CountLines(tool.GetLines(), "refused"), 1U);
}

TEST_F(SubscribeTool, MissingPacketsOfATransportStreamAreGaps)
{
    const std::string strWhole = TransportStream(0x100, 140);
    const std::string strStream =
        strWhole.substr(0, 5 * PACKET_SIZE) + strWhole.substr(6 * PACKET_SIZE);
    CPublisher publisher({"--wait", "--channel", "1=" + m_folder.WriteFile("ts", strStream)});
    const CToolRun run(
        {"subscribe", publisher.GetPeer(), "--json", "--count", "19", "--channel", "1"});
    const CEvent summary = CEvent::Parse(run.m_listLines.back());
    EXPECT_EQ(summary["format"], "mpeg-ts");
    EXPECT_EQ(summary["gaps"], 1);
}

TEST_F(SubscribeTool, StatsAreALineASecond)
{
    CPublisher publisher(Endless());
    CToolProcess tool({"subscribe", publisher.GetPeer(), "--json", "--channel", "1"});
    tool.WaitForEvent("connected");
    // On a slow machine nothing may have come in the first seconds.
    CEvent event;
    for (int i = 0; i < WAIT_MS / 1000; ++i)
    {
        event = tool.WaitForEvent("stats");
        ASSERT_FALSE(event.IsNull());
        if (event["packets"].As<size_t>() > 0 && event["bytes_per_second"].As<double>() > 0.0)
        {
            break;
        }
    }
    EXPECT_EQ(event["channel"], 1);
    EXPECT_EQ(event["connected"], true);
    EXPECT_GT(event["packets"].As<size_t>(), 0U);
    EXPECT_EQ(event["bytes"].As<size_t>(), event["packets"].As<size_t>() * PACKET_SIZE);
    EXPECT_GT(event["bytes_per_second"].As<double>(), 0.0);
    EXPECT_EQ(event["format"], "unknown");
    EXPECT_FALSE(event.Has("gaps"));
    CToolProcess text({"subscribe", publisher.GetPeer(), "--channel", "1"});
    EXPECT_TRUE(text.WaitForOutput(" packets/s, "));
}

TEST_F(SubscribeTool, RefusedDatagramsAreDroppedAndCounted)
{
    const std::string strSink = "1=udp:127.0.0.1:" + std::to_string(FreePort());
    CPublisher publisher(Lines("1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n"));
    const CToolRun run(
        {"subscribe", publisher.GetPeer(), "--json", "--count", "10", "--channel", strSink});
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_NE(run.m_strErrors.find("packets are dropped"), std::string::npos);
    const CEvent summary = CEvent::Parse(run.m_listLines.back());
    EXPECT_EQ(summary["packets"], 10);
    EXPECT_GT(summary["dropped"].As<size_t>(), 0U);
}

TEST_F(SubscribeTool, FullDiskGives1)
{
    CPublisher publisher(Endless());
    const CToolRun run({"subscribe", publisher.GetPeer(), "--channel", "1=/dev/full"});
    EXPECT_EQ(run.m_nExitCode, 1);
    EXPECT_EQ(run.m_strErrors, "osprey: cannot write \"/dev/full\": No space left on device\n");
}

TEST_F(SubscribeTool, ReaderThatGoesAwayGives1)
{
    CPublisher publisher(Endless());
    for (const char* pszSink : {"1=-", "1=hex", "1"})
    {
        CToolProcess tool({"subscribe", publisher.GetPeer(), "--channel", pszSink});
        tool.CloseOutput();
        EXPECT_EQ(tool.Wait(), 1) << pszSink;
        EXPECT_NE(tool.GetErrors().find("Broken pipe"), std::string::npos) << pszSink;
    }
}

TEST_F(SubscribeTool, SinksThatCannotBeOpenedGive1)
{
    const CToolRun run(
        {"subscribe", "127.0.0.1", "--channel", "1=" + m_folder.GetPath("missing/out")});
    EXPECT_EQ(run.m_nExitCode, 1);
    EXPECT_NE(run.m_strErrors.find("No such file or directory"), std::string::npos);
    EXPECT_EQ(CToolRun({"subscribe", "127.0.0.1", "-c", "1=" + m_folder.GetPath()}).m_nExitCode, 1);
}

TEST_F(SubscribeTool, HostThatNobodyKnowsGives3)
{
    const CToolRun run({"subscribe", "host.invalid", "--channel", "1"});
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_NE(run.m_strErrors.find("cannot find host.invalid: "), std::string::npos);
    EXPECT_EQ(CToolRun({"subscribe", "h", "--channel", "x"}).m_nExitCode, 2);
}

TEST_F(SubscribeTool, SecondSignalDoesNotWaitForAStuckSink)
{
    const CEndWithoutJoin atOnce;
    const std::string strFifo = m_folder.GetPath("fifo");
    ASSERT_EQ(mkfifo(strFifo.c_str(), 0600), 0);
    // A reader that reads nothing.
    const int nReader = open(strFifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(nReader, 0);
    CPublisher publisher(
        {"--wait", "--channel", "1=" + m_folder.WriteFile("in", Pattern(500 * PACKET_SIZE))});
    CToolProcess tool({"subscribe", publisher.GetPeer(), "--json", "--channel", "1=" + strFifo,
                       "--channel", "1"});
    EXPECT_TRUE(tool.WaitUntil("more packets than a pipe holds",
                               [&] { return tool.WaitForEvent("stats")["packets"] == 500; }));
    EXPECT_EQ(tool.SignalUntilEnd(SIGINT), 130);
    close(nReader);
}
