// The download client against a server that the test plays byte by byte.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <limits>
#include <thread>

#include "FileHost.h"
#include "Hex.h"
#include "ScriptedServer.h"
#include "TempFolder.h"

namespace
{

typedef std::vector<std::string> CLines;

class CDownload : public ::testing::Test
{
protected:
    void Begin(long long llOffset = 0, const std::string& strRemote = "remote/file")
    {
        m_run.m_host.m_entries.push_back({m_strLocal, strRemote, llOffset});
        ASSERT_TRUE(m_run.Start(m_server.GetPort()));
        m_server.WelcomeClient();
    }
    void BeginWithRequest(long long llOffset = 0)
    {
        Begin(llOffset);
        m_server.Expect(Wire::Dfil(2, static_cast<uint64_t>(llOffset), u"remote/file"));
    }
    void ExpectEvents(const CLines& expected)
    {
        m_run.m_host.m_events.WaitForEnd();
        m_run.Stop();
        EXPECT_EQ(m_run.m_host.m_events.Get(), expected);
    }

    CTempFolder m_folder;
    std::string m_strLocal = m_folder.GetPath("local");
    CScriptedServer m_server;
    CDownloadRun m_run;
};
using DownloadFileClient = CDownload;

TEST_F(DownloadFileClient, EmptyFileCompletesWithItsFirstBlock)
{
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 0, 0, 0));
    m_server.Send(Wire::Dfrb(2, ""));
    ExpectEvents({"connected", "next", "progress 100", "completed", "no more"});
    EXPECT_EQ(ReadFile(m_strLocal), "");
}

TEST_F(DownloadFileClient, FileArrivesInBlocksWithProgress)
{
    const std::string strData = Pattern(100000);
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 0, 100000, 0) + Wire::Dfrb(2, strData.substr(0, 65536)) +
                  Wire::Dfrb(2, strData.substr(65536)) + Wire::Dfrb(2, ""));
    ExpectEvents({"connected", "next", "progress 65", "progress 100", "completed", "no more"});
    EXPECT_EQ(ReadFile(m_strLocal), strData);
}

TEST_F(DownloadFileClient, StartOffsetCountsInTheProgressAndTheFileStartsThere)
{
    BeginWithRequest(600);
    m_server.Send(Wire::Dfrt(2, 0, 1000, 0) + Wire::Dfrb(2, std::string(150, 'a')) +
                  Wire::Dfrb(2, std::string(250, 'b')));
    ExpectEvents({"connected", "next", "progress 75", "progress 100", "completed", "no more"});
    EXPECT_EQ(ReadFile(m_strLocal), std::string(150, 'a') + std::string(250, 'b'));
}

TEST_F(DownloadFileClient, RemoteNameIsSentAsTheHostGaveIt)
{
    Begin(0, "a\\b/ц|日");
    m_server.Expect(Wire::Dfil(2, 0, u"a\\b/ц|日"));
}

TEST_F(DownloadFileClient, RefusalIsPassedThroughAndDeletesWhatStoodThere)
{
    m_folder.WriteFile("local", "before");
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 7, 10, 0));
    ExpectEvents({"connected", "next", "failed 7", "no more"});
    EXPECT_FALSE(FileExists(m_strLocal));
}

TEST_F(DownloadFileClient, RefusalWithResult1IsTakenForAStop)
{
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 1, 0, 0));
    m_server.Expect(Wire::Caop(2));
    m_run.Stop();
    EXPECT_EQ(m_run.m_host.m_events.Get(), (CLines{"connected", "next"}));
}

TEST_F(DownloadFileClient, RefusalWithResult2IsTakenForALostConnection)
{
    m_folder.WriteFile("local", "before");
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 2, 0, 0));
    // No callback tells that the run is over; the deleted file does.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(WAIT_MS);
    while (FileExists(m_strLocal) && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::yield();
    }
    EXPECT_FALSE(FileExists(m_strLocal));
    m_run.Stop();
    EXPECT_TRUE(m_server.m_peer.IsClosedByPeer());
    EXPECT_EQ(m_run.m_host.m_events.Get(), (CLines{"connected", "next"}));
}

TEST_F(DownloadFileClient, BlockPastTheAnnouncedSizeIsWrittenWholeAndEndsTheFile)
{
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 0, 10, 0) + Wire::Dfrb(2, "0123456789ABCDEF") +
                  Wire::Dfrb(2, "never"));
    ExpectEvents({"connected", "next", "progress 100", "completed", "no more"});
    EXPECT_EQ(ReadFile(m_strLocal), "0123456789ABCDEF");
    EXPECT_EQ(m_run.m_pClient->GetAnnouncedSize(), 10U);
}

TEST_F(DownloadFileClient, StopWhileBlocksArriveDeletesThePartAndCancelsOnce)
{
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 0, 100, 0) + Wire::Dfrb(2, "0123456789"));
    m_run.m_host.m_events.WaitFor("progress 10");
    EXPECT_TRUE(FileExists(m_strLocal));
    std::thread stopper([this] { m_run.Stop(); });
    m_server.Expect(Wire::Caop(2));
    m_server.Send(Wire::Dfrb(2, "late"));
    stopper.join();
    EXPECT_TRUE(m_server.m_peer.IsClosedByPeer());
    EXPECT_FALSE(FileExists(m_strLocal));
    EXPECT_EQ(m_run.m_host.m_events.Get(), (CLines{"connected", "next", "progress 10"}));
}

TEST_F(DownloadFileClient, ConnectionLostDeletesThePart)
{
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 0, 100, 0) + Wire::Dfrb(2, "0123456789"));
    m_run.m_host.m_events.WaitFor("progress 10");
    m_server.m_peer.Close();
    ExpectEvents({"connected", "next", "progress 10", "disconnected 0"});
    EXPECT_FALSE(FileExists(m_strLocal));
}

TEST_F(DownloadFileClient, LocalFileThatCannotBeOpenedIsCode6)
{
    m_strLocal = m_folder.GetPath("missing/local");
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 0, 10, 0));
    ExpectEvents({"connected", "next", "failed 6", "no more"});
}

TEST_F(DownloadFileClient, FifoIsCode6AndStays)
{
    ASSERT_EQ(mkfifo(m_strLocal.c_str(), 0600), 0);
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 0, 10, 0));
    ExpectEvents({"connected", "next", "failed 6", "no more"});
    EXPECT_TRUE(FileExists(m_strLocal));
}

TEST_F(DownloadFileClient, SocketIsCode6AndStays)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(m_strLocal.size(), sizeof address.sun_path);
    m_strLocal.copy(address.sun_path, m_strLocal.size());
    const CRawSocket bound(socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(bind(bound.GetHandle(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 0, 10, 0));
    ExpectEvents({"connected", "next", "failed 6", "no more"});
    EXPECT_TRUE(FileExists(m_strLocal));
}

TEST_F(DownloadFileClient, FolderIsCode6AndStays)
{
    ASSERT_EQ(mkdir(m_strLocal.c_str(), 0700), 0);
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 0, 10, 0));
    ExpectEvents({"connected", "next", "failed 6", "no more"});
    EXPECT_TRUE(FileExists(m_strLocal));
}

TEST_F(DownloadFileClient, FullDiskIsCode11AndADeviceIsNeverDeleted)
{
    m_strLocal = "/dev/full";
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 0, 10, 0) + Wire::Dfrb(2, "0123456789"));
    ExpectEvents({"connected", "next", "failed 11", "no more"});
    EXPECT_TRUE(FileExists(m_strLocal));
}

TEST_F(DownloadFileClient, FailureDeletesALinkAndNotItsTarget)
{
    const std::string strTarget = m_folder.WriteFile("target", "kept");
    ASSERT_EQ(symlink(strTarget.c_str(), m_strLocal.c_str()), 0);
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 5, 0, 0));
    ExpectEvents({"connected", "next", "failed 5", "no more"});
    struct stat info = {};
    EXPECT_NE(lstat(m_strLocal.c_str(), &info), 0);
    EXPECT_EQ(ReadFile(strTarget), "kept");
}

TEST_F(DownloadFileClient, BlocksBeforeAGoodAnswerAreIgnored)
{
    BeginWithRequest();
    m_server.Send(Wire::Dfrb(2, "early") + Wire::Dfrb(2, "") + Wire::Dfrt(2, 0, 3, 0) +
                  Wire::Dfrb(2, "abc"));
    ExpectEvents({"connected", "next", "progress 100", "completed", "no more"});
    EXPECT_EQ(ReadFile(m_strLocal), "abc");
}

TEST_F(DownloadFileClient, SecondAnswerStartsTheFileAnew)
{
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(2, 0, 4, 0) + Wire::Dfrb(2, "xx") + Wire::Dfrt(2, 0, 3, 0) +
                  Wire::Dfrb(2, "abc"));
    ExpectEvents({"connected", "next", "progress 50", "progress 100", "completed", "no more"});
    EXPECT_EQ(ReadFile(m_strLocal), "abc");
}

TEST_F(DownloadFileClient, BlocksOfAnotherRequestAndShortRecordsAreIgnored)
{
    BeginWithRequest();
    m_server.Send(Wire::Dfrt(3, 5, 0, 0) + Wire::Dfrt(2, 0, 3, 0).substr(0, 8) + Wire::U32(27) +
                  std::string(27, '\0'));
    for (uint32_t dwSize = 0; dwSize < 4; ++dwSize)
    {
        m_server.Send(Wire::PacketWithSize("DFRB", dwSize, std::string(dwSize, 'x')));
    }
    m_server.Send(Wire::Dfrt(2, 0, 3, 0) + Wire::Dfrb(1, "zzz") + Wire::Dfrb(2, "abc"));
    ExpectEvents({"connected", "next", "progress 100", "completed", "no more"});
    EXPECT_EQ(ReadFile(m_strLocal), "abc");
}

TEST_F(DownloadFileClient, SizesBeyond4GiBTravelHighWordFirst)
{
    BeginWithRequest(0x100000000LL);
    m_server.Send(Wire::Dfrt(2, 0, 0x100000004ULL, 0) + Wire::Dfrb(2, "ab") + Wire::Dfrb(2, "cd"));
    ExpectEvents({"connected", "next", "progress 99", "progress 100", "completed", "no more"});
    EXPECT_EQ(ReadFile(m_strLocal), "abcd");
}

TEST_F(DownloadFileClient, HostileSizesAndOffsetsAreOnlyNumbers)
{
    BeginWithRequest(-5);
    m_server.Send(Wire::Dfrt(2, 0, 0xFFFFFFFFFFFFFFFFULL, 0) + Wire::Dfrb(2, "ab") +
                  Wire::Dfrb(2, "cd"));
    ExpectEvents({"connected", "next", "progress 100", "progress 100", "completed", "no more"});
}

TEST_F(DownloadFileClient, StartOffsetNextToTheLargestNumberDoesNotWrap)
{
    const long long llLargest = std::numeric_limits<long long>::max();
    BeginWithRequest(llLargest - 1);
    m_server.Send(Wire::Dfrt(2, 0, static_cast<uint64_t>(llLargest), 0) + Wire::Dfrb(2, "abcd"));
    ExpectEvents({"connected", "next", "progress 100", "completed", "no more"});
    EXPECT_EQ(ReadFile(m_strLocal), "abcd");
}

TEST_F(DownloadFileClient, EmptyFileFromBelowZeroReportsNothingUntilZeroIsPassed)
{
    BeginWithRequest(-3);
    m_server.Send(Wire::Dfrt(2, 0, 0, 0) + Wire::Dfrb(2, "ab") + Wire::Dfrb(2, "c"));
    ExpectEvents({"connected", "next", "progress 100", "completed", "no more"});
}

TEST_F(DownloadFileClient, AThousandAbortedDownloadsLeaveNothingBehind)
{
    CRawServer server;
    const std::string strReplies =
        Wire::Result("NAMR", 1, 0) + Wire::Dfrt(2, 0, 100000, 0) + Wire::Dfrb(2, Pattern(1000));
    for (uint32_t i = 0; i < 1000; ++i)
    {
        CDownloadRun run;
        run.m_host.m_entries = {{m_strLocal, "r", 0}};
        ASSERT_TRUE(run.Start(server.GetPort()));
        CRawSocket peer = server.Accept();
        peer.Send(strReplies);
        run.m_host.m_events.WaitFor("connected");
        if (i % 3 != 0)
        {
            peer.Reset();
        }
        peer.Close();
        run.m_host.m_events.WaitForEnd();
        run.Release();
        ASSERT_FALSE(FileExists(m_strLocal));
    }
}

}  // namespace
