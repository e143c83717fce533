// The real server, from its start to its end.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <thread>

#include "Hex.h"
#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

// A connection downloads a file to its end.
std::string Download(CRawSocket& peer, unsigned int dwID, const std::u16string& strName)
{
    peer.Send(Wire::Dfil(dwID, 0, strName));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    std::string strAll;
    for (std::string strBlock = peer.ReceivePacket(); strBlock.size() > 16;
         strBlock = peer.ReceivePacket())
    {
        strAll += strBlock.substr(16);
    }
    return strAll;
}

}  // namespace

TEST(ServeTool, ListeningLineStatesTheRealPort)
{
    CServedFolder served;
    ASSERT_NE(served.GetPort(), 0);
    CRawSocket peer;
    EXPECT_TRUE(peer.Connect(served.GetPort()));
    EXPECT_EQ(served.Stop(), 0);
}

TEST(ServeTool, TextLineStatesTheRealPortToo)
{
    const CTempFolder folder;
    CToolProcess tool({"serve", "--root", folder.GetPath(), "--port", "0"});
    ASSERT_TRUE(tool.WaitForOutput("serving"));
    const size_t nAt = tool.GetOutput().find("on port ");
    ASSERT_NE(nAt, std::string::npos);
    CRawSocket peer;
    EXPECT_TRUE(
        peer.Connect(static_cast<unsigned short>(std::stoi(tool.GetOutput().substr(nAt + 8)))));
    tool.Signal(SIGTERM);
    EXPECT_EQ(tool.Wait(), 0);
}

TEST(ServeTool, InterruptWithOpenConnectionsGives0)
{
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP})
    {
        CServedFolder served;
        CRawSocket named = served.Connect();
        CRawSocket unnamed = served.ConnectUnnamed();
        CRawSocket silent;
        ASSERT_TRUE(silent.Connect(served.GetPort()));
        served.Tool().Signal(nSignal);
        EXPECT_EQ(served.Tool().Wait(), 0) << nSignal;
        EXPECT_TRUE(named.IsClosedByPeer());
        EXPECT_EQ(served.Tool().WaitForEvent("disconnected")["connection"], "peer");
        EXPECT_FALSE(served.Tool().WaitForEvent("stopped").IsNull());
        EXPECT_EQ(served.Tool().GetErrors(), "");
    }
}

TEST(ServeTool, InterruptAmidADownloadGives0)
{
    CServedFolder served;
    served.Around().WriteFile("root/big", Pattern(8000000));
    CRawSocket peer = served.Connect();
    peer.Send(Wire::Dfil(2, 0, u"big"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    EXPECT_EQ(served.Stop(), 0);
    const CEvent event = served.Tool().WaitForEvent("incomplete");
    EXPECT_EQ(event["request"], "download");
    EXPECT_EQ(event["path"], "big");
    EXPECT_EQ(event["total"], 8000000);
    EXPECT_LT(event["bytes"].As<int>(), 8000000);
}

TEST(ServeTool, TakenPortGives3)
{
    CServedFolder served;
    const CToolRun run(
        {"serve", "--root", served.GetRoot(), "--port", std::to_string(served.GetPort())});
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_EQ(run.m_strOutput, "");
    EXPECT_EQ(run.m_strErrors, "osprey: cannot listen on port " + std::to_string(served.GetPort()) +
                                   ": Address already in use\n");
}

TEST(ServeTool, MissingRootGives2)
{
    const CTempFolder folder;
    EXPECT_EQ(CToolRun({"serve", "--root", folder.GetPath("missing")}).m_nExitCode, 2);
    EXPECT_EQ(CToolRun({"serve", "--root", folder.WriteFile("file", "")}).m_nExitCode, 2);
}

TEST(ServeTool, DownloadIsToldWithBytesAndRate)
{
    CServedFolder served;
    const std::string strContents = Pattern(200000);
    served.Around().WriteFile("root/f.bin", strContents);
    CRawSocket peer = served.Connect(u"cam \u65e5");
    EXPECT_EQ(Download(peer, 2, u"f.bin"), strContents);
    const CEvent event = served.Tool().WaitForEvent("download");
    EXPECT_EQ(event["connection"], "cam \u65e5");
    EXPECT_EQ(event["path"], "f.bin");
    EXPECT_EQ(event["bytes"], 200000);
    EXPECT_GT(event["bytes_per_second"].As<double>(), 0.0);
    peer.Close();
    EXPECT_EQ(served.Tool().WaitForEvent("disconnected")["connection"], "cam \u65e5");
}

TEST(ServeTool, EmptyFileIsDownloaded)
{
    CServedFolder served;
    served.Around().WriteFile("root/empty", "");
    CRawSocket peer = served.Connect();
    EXPECT_EQ(Download(peer, 2, u"empty"), "");
    EXPECT_EQ(served.Tool().WaitForEvent("download")["bytes"], 0);
}

TEST(ServeTool, LinkThatStaysInsideIsNotServed)
{
    CServedFolder served;
    served.Around().WriteFile("root/real", "1234");
    fs::create_symlink("real", served.GetPath("link"));
    CRawSocket peer = served.Connect();
    peer.Send(Wire::Dfil(2, 0, u"link"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 5U);
    EXPECT_EQ(served.Tool().WaitForEvent("refused")["reason"], "it is a symbolic link");
}

TEST(ServeTool, MissingFileFailsWithTheProtocolsCode)
{
    CServedFolder served;
    CRawSocket peer = served.Connect();
    peer.Send(Wire::Dfil(2, 0, u"missing"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 5U);
    EXPECT_EQ(served.Tool().WaitForEvent("failed")["reason"], "No such file or directory");
}

TEST(ServeTool, FolderIsCreatedWithItsParents)
{
    CServedFolder served;
    CRawSocket peer = served.Connect();
    peer.Send(Wire::Cdir(2, u"FILESUBMIT|to|a\\b"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    EXPECT_EQ(served.List(), (std::vector<std::string>{"to/", "to/a/", "to/a/b/"}));
    EXPECT_EQ(served.Tool().WaitForEvent("folder")["path"], "to");
    EXPECT_EQ(served.Tool().WaitForEvent("folder")["path"], "to/a");
    EXPECT_EQ(served.Tool().WaitForEvent("folder")["path"], "to/a/b");
    peer.Send(Wire::Cdir(3, u"to/a/b"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
}

TEST(ServeTool, DeletionIsTold)
{
    CServedFolder served;
    served.Around().WriteFile("root/f", "1");
    CRawSocket peer = served.Connect();
    peer.Send(Wire::Delt(2, u"f"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    EXPECT_EQ(served.Tool().WaitForEvent("deleted")["path"], "f");
    EXPECT_TRUE(served.List().empty());
}

TEST(ServeTool, DeletionOfALinkLeavesBoth)
{
    CServedFolder served;
    served.Around().WriteFile("root/real", "1");
    fs::create_symlink("real", served.GetPath("link"));
    CRawSocket peer = served.Connect();
    peer.Send(Wire::Delt(2, u"link"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    EXPECT_EQ(served.List(), (std::vector<std::string>{"link", "real"}));
}

TEST(ServeTool, DeletionOfAFolderLeavesIt)
{
    CServedFolder served;
    fs::create_directory(served.GetPath("dir"));
    CRawSocket peer = served.Connect();
    peer.Send(Wire::Delt(2, u"dir"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    EXPECT_EQ(served.Tool().WaitForEvent("refused")["reason"], "it is a folder");
    EXPECT_EQ(served.List(), std::vector<std::string>{"dir/"});
}

TEST(ServeTool, ReadOnlyServesDownloadsAndNothingElse)
{
    CServedFolder served({"--read-only"});
    served.Around().WriteFile("root/f", "1234");
    CRawSocket peer = served.Connect();
    peer.Send(Wire::Upfi(2, 1, 0, u"new"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 6U);
    peer.Send(Wire::Cdir(3, u"dir"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 8U);
    peer.Send(Wire::Delt(4, u"f"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    for (const char* pszRequest : {"upload", "folder", "delete"})
    {
        const CEvent event = served.Tool().WaitForEvent("refused");
        EXPECT_EQ(event["request"], pszRequest);
        EXPECT_EQ(event["reason"], "the folder is served read-only");
    }
    EXPECT_EQ(Download(peer, 5, u"f"), "1234");
    EXPECT_EQ(served.List(), std::vector<std::string>{"f"});
}

TEST(ServeTool, HostileConnectionNamesStayValidJson)
{
    CServedFolder served;
    const std::u16string strName = u"\"},\n{\"\u001B\\\u202E\xD800x";
    CRawSocket peer = served.Connect(strName);
    peer.Close();
    EXPECT_EQ(served.Tool().WaitForEvent("disconnected")["connection"],
              "\"},\n{\"\x1B\\\u202E\uFFFDx");
    EXPECT_EQ(served.Stop(), 0);
    EXPECT_EQ(served.Tool().GetEvents().size(), 4U);
}

TEST(ServeTool, HostileConnectionNamesStayOnTheirTextLine)
{
    const CTempFolder folder;
    CToolProcess tool({"serve", "--root", folder.GetPath(), "--port", "0"});
    ASSERT_TRUE(tool.WaitForOutput("serving"));
    const size_t nAt = tool.GetOutput().find("on port ");
    CRawSocket peer;
    ASSERT_TRUE(
        peer.Connect(static_cast<unsigned short>(std::stoi(tool.GetOutput().substr(nAt + 8)))));
    peer.Send(Wire::Brow() + Wire::Namc(1, u"a\nb\u001B[2J\"c"));
    EXPECT_TRUE(tool.WaitForOutput("\"a\\nb\\x1B[2J\\\"c\"\n"));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_EQ(tool.GetLines().size(), 4U);
    EXPECT_EQ(tool.GetOutput().find('\x1B'), std::string::npos);
}

TEST(ServeTool, TraceLinesGoToTheirFileAlone)
{
    const CTempFolder folder;
    fs::create_directory(folder.GetPath("root"));
    CToolProcess tool({"serve", "--root", folder.GetPath("root"), "--port", "0", "--json",
                       "--trace", folder.GetPath("trace")});
    const CEvent event = tool.WaitForEvent("listening");
    CRawSocket peer;
    ASSERT_TRUE(peer.Connect(event["port"].As<unsigned short>()));
    peer.Send(Wire::Brow() + Wire::Namc(1, u"x"));
    tool.WaitForEvent("connected");
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_NE(ReadFile(folder.GetPath("trace")).find("COspreyServerStream, Attach() Orb_TRUE"),
              std::string::npos);
    EXPECT_EQ(tool.GetEvents().size(), 4U);
}

TEST(ServeTool, QuietSaysNothing)
{
    CTempFolder folder;
    // Without an event to wait for, the port tells that it listens.
    const unsigned short wPort = FreePort();
    CToolProcess tool(
        {"serve", "--root", folder.GetPath(), "--port", std::to_string(wPort), "--quiet"});
    CRawSocket peer;
    ASSERT_TRUE(tool.WaitUntil("a connection", [&] { return peer.Connect(wPort); }));
    peer.Send(Wire::Brow() + Wire::Namc(1, u"x"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_EQ(tool.GetOutput() + tool.GetErrors(), "");
}

TEST(ServeTool, ReaderThatGoesAwayEndsItQuietly)
{
    CServedFolder served;
    served.Tool().CloseOutput();
    CRawSocket peer = served.ConnectUnnamed();
    peer.Send(Wire::Namc(1, u"x"));
    EXPECT_EQ(served.Tool().Wait(), 0);
    EXPECT_EQ(served.Tool().GetErrors(), "");
}

TEST(ServeTool, NamesOfAnyLengthAreToldInPart)
{
    CServedFolder served;
    CRawSocket peer = served.ConnectUnnamed();
    peer.Send(Wire::Namc(1, std::u16string(200, u'\u20AC')));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    EXPECT_EQ(served.Tool().WaitForEvent("connected")["connection"].As<std::string>().size(), 600U);
    peer.Send(Wire::Delt(2, u"../" + std::u16string(20000, u'\u20AC')));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    const std::string strName = served.Tool().WaitForEvent("refused")["name"].As<std::string>();
    EXPECT_EQ(strName.size(), 1023U + 3) << "whole characters of a kibibyte, and dots";
    EXPECT_EQ(strName.substr(1020), "\xE2\x82\xAC...");
}

namespace
{

// Lines of that event, and what "left_out" says of those that are missing.
size_t CountTold(const CToolProcess& tool, const std::string& strEvent)
{
    size_t nTold = 0;
    for (const CEvent& event : tool.GetEvents())
    {
        nTold += event["event"] == strEvent ? 1 : 0;
        nTold += event["event"] == "left_out" ? event["lines"].As<size_t>() : 0;
    }
    return nTold;
}

}  // namespace

// Its lines fill the pipe, then what may wait for the pipe.
TEST(ServeTool, ReaderThatStallsHoldsUpNobodyAndLearnsWhatItMissed)
{
    CServedFolder served;
    CRawSocket peer = served.Connect();
    const std::u16string strName = u"../" + std::u16string(3000, u'x');
    size_t nAsked = 0;
    const auto fnAsk = [&]
    {
        peer.Send(Wire::Delt(2, strName));
        EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
        ++nAsked;
    };
    while (nAsked < 1500 && !HasFailure())
    {
        fnAsk();
    }
    CToolProcess& tool = served.Tool();
    EXPECT_TRUE(tool.WaitUntil("the count of what is missing",
                               [&]
                               {
                                   fnAsk();
                                   return tool.GetOutput().find("left_out") != std::string::npos;
                               }));
    EXPECT_TRUE(tool.WaitUntil("each line or its count",
                               [&] { return CountTold(tool, "refused") == nAsked; }));
    EXPECT_EQ(served.Stop(), 0);
}

TEST(ServeTool, SecondSignalDoesNotWaitForAReaderWhoIsSlow)
{
    const CEndWithoutJoin atOnce;
    CServedFolder served;
    CRawSocket peer = served.Connect();
    for (int i = 0; i < 1500; ++i)
    {
        peer.Send(Wire::Delt(2, u"../" + std::u16string(3000, u'x')));
        EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    }
    EXPECT_EQ(served.Tool().SignalUntilEnd(SIGTERM), 130);
}

TEST(ServeTool, ReaderThatGoesAwayWhileLinesWaitEndsItQuietlyToo)
{
    CServedFolder served;
    CRawSocket peer = served.Connect();
    for (int i = 0; i < 200; ++i)
    {
        peer.Send(Wire::Delt(2, u"../" + std::u16string(3000, u'x')));
        EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    }
    served.Tool().CloseOutput();
    EXPECT_EQ(served.Tool().Wait(), 0);
    EXPECT_EQ(served.Tool().GetErrors(), "");
}
