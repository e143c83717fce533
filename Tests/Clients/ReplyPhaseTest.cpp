// A reply counts only while the request that it answers is under way: whatever a peer sends out of
// turn, under a number that is right, neither ends a step nor touches a file.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "FileHost.h"
#include "Hex.h"
#include "ScriptedServer.h"
#include "SteppedLoops.h"
#include "TempFolder.h"

namespace
{

typedef std::vector<std::string> CLines;

// How many descriptors of this process, which is the client's too, stand below the folder.
int CountOpen(const CTempFolder& folder)
{
    int nCount = 0;
    for (int h = 0; h < 1024; ++h)
    {
        char szTarget[4096] = {};
        const std::string strLink = "/proc/self/fd/" + std::to_string(h);
        if (readlink(strLink.c_str(), szTarget, sizeof szTarget - 1) > 0 &&
            std::string(szTarget).compare(0, folder.GetPath().size(), folder.GetPath()) == 0)
        {
            ++nCount;
        }
    }
    return nCount;
}

class CSubmitPhases : public ::testing::Test
{
protected:
    CSubmitPhases()
    {
        m_run.m_host.m_entries = {{m_folder.WriteFile("file", m_strData), "root",
                                   static_cast<long long>(m_folder.GetPath().size())}};
    }
    // Starts the run and brings it to its first block.
    void BeginFile()
    {
        ASSERT_TRUE(m_run.Start(m_server.GetPort()));
        m_server.WelcomeClient();
        m_server.TakeUpload(2, m_strData.size(), m_strRemote);
        m_server.Expect(Wire::Upfb(2, 0, m_strData.substr(0, 32768)));
    }
    // Stops the run in the file; afterwards the clean-up waits for the reply to request 4.
    std::thread BeginCleanUp()
    {
        BeginFile();
        std::thread stopper([this] { m_run.Stop(); });
        m_server.Expect(Wire::Caop(2));
        m_server.Expect(Wire::Delt(4, m_strRemote));
        return stopper;
    }

    const std::u16string m_strRemote = u"FILESUBMIT|root|\\file";
    const std::string m_strData = Pattern(40000);
    CTempFolder m_folder;
    CScriptedServer m_server;
    CSubmitRun m_run;
};
using SubmitReplies = CSubmitPhases;

TEST_F(SubmitReplies, OfATransferDoNotAnswerForTheName)
{
    m_run.m_host.m_entries.clear();
    uint32_t dwID = 0;
    for (const char* pszCode : {"CDRT", "DTRT", "UPBR"})
    {
        ASSERT_TRUE(m_run.Start(m_server.GetPort()));
        m_server.AcceptClient(++dwID);
        m_server.Send(Wire::Result("NAMR", dwID, 4) + Wire::Result(pszCode, dwID, 0));
        m_run.m_host.m_events.WaitFor("start failed 0", static_cast<int>(dwID));
        m_run.Stop();
    }
    for (const char* pszCode : {"CDRT", "DTRT", "UPBR", "UPFR"})
    {
        ASSERT_TRUE(m_run.Start(m_server.GetPort()));
        m_server.AcceptClient(++dwID);
        m_server.Send(Wire::Result("NAMR", dwID, 0) +
                      Wire::Packet(pszCode, Wire::U32(dwID) + Wire::U32(8) + Wire::U64(0)));
        m_run.m_host.m_events.WaitFor("no more", static_cast<int>(dwID) - 3);
        m_run.Stop();
    }
}

// The file that an earlier run was stopped in is not for the next peer.
TEST_F(SubmitReplies, ToTheNameGetNothingOfTheFileOfAnEarlierRun)
{
    std::thread stopper = BeginCleanUp();
    m_server.Send(Wire::Result("DTRT", 4, 0));
    stopper.join();
    CScriptedServer other;
    ASSERT_TRUE(m_run.Start(other.GetPort()));
    other.AcceptClient(5);
    other.Send(Wire::Upfr(5, 0, 0));
    other.Send(Wire::Result("NAMR", 5, 0));
    m_run.m_host.m_events.WaitForEnd();
    m_run.Release();
    EXPECT_EQ(Hex(other.m_peer.ReceiveToEnd()), "");
    EXPECT_EQ(m_run.m_host.m_events.Get(),
              (CLines{"connected", "next", "progress 81", "connected", "no more"}));
    EXPECT_EQ(CountOpen(m_folder), 0);
}

TEST_F(SubmitReplies, ToTheNameDoNotCompleteAFile)
{
    BeginFile();
    m_server.Send(Wire::Result("NAMR", 2, 0) + Wire::Result("DTRT", 2, 0));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    m_server.Expect(Wire::Upfb(2, 0, m_strData.substr(32768)));
    m_server.Send(Wire::Result("NAMR", 2, 4) + Wire::Result("DTRT", 2, 9));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    m_server.Expect(Wire::Upfb(2, 1, ""));
    m_server.Send(Wire::Result("UPBR", 2, 0));
    m_run.m_host.m_events.WaitForEnd();
    EXPECT_EQ(m_run.m_host.m_events.GetWithoutProgress(),
              (CLines{"connected", "next", "completed", "no more"}));
}

TEST_F(SubmitReplies, InTheCleanUpStartNoFileAnew)
{
    const CSteppedLoops loops;  // no time passes: the clean-up waits for its reply
    std::thread stopper = BeginCleanUp();
    m_server.Send(Wire::Upfr(4, 0, 0) + Wire::Result("UPBR", 4, 0));
    m_server.Send(Wire::Result("DTRT", 4, 0));
    EXPECT_EQ(Hex(m_server.m_peer.ReceiveToEnd()), "");
    stopper.join();
    EXPECT_EQ(m_run.m_host.m_events.Get(), (CLines{"connected", "next", "progress 81"}));
    EXPECT_EQ(CountOpen(m_folder), 0);
}

TEST_F(SubmitReplies, ToOtherRequestsDoNotEndTheCleanUp)
{
    const auto start = std::chrono::steady_clock::now();
    std::thread stopper = BeginCleanUp();
    m_server.Send(Wire::Result("NAMR", 4, 0) + Wire::Result("CDRT", 4, 0) +
                  Wire::Result("UPBR", 4, 11) + Wire::Upfr(4, 6, 0));
    EXPECT_EQ(Hex(m_server.m_peer.ReceiveToEnd()), "");
    stopper.join();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(999));
}

class CDownloadPhases : public ::testing::Test
{
protected:
    CDownloadPhases()
    {
        m_run.m_host.m_entries = {{m_strLocal, "remote", 0}};
    }
    void BeginFile()
    {
        ASSERT_TRUE(m_run.Start(m_server.GetPort()));
        m_server.WelcomeClient();
        m_server.Expect(Wire::Dfil(2, 0, u"remote"));
    }
    // Stops the run in the file; afterwards the next number is 3.
    std::thread BeginCleanUp()
    {
        BeginFile();
        m_server.Send(Wire::Dfrt(2, 0, 100, 0) + Wire::Dfrb(2, "0123456789"));
        m_run.m_host.m_events.WaitFor("progress 10");
        std::thread stopper([this] { m_run.Stop(); });
        m_server.Expect(Wire::Caop(2));
        return stopper;
    }
    void ExpectCompleted(const CLines& expected, const std::string& strContents)
    {
        m_run.m_host.m_events.WaitForEnd();
        m_run.Stop();
        EXPECT_EQ(m_run.m_host.m_events.Get(), expected);
        EXPECT_EQ(ReadFile(m_strLocal), strContents);
        EXPECT_EQ(CountOpen(m_folder), 0);
    }

    CTempFolder m_folder;
    const std::string m_strLocal = m_folder.GetPath("local");
    CScriptedServer m_server;
    CDownloadRun m_run;
};
using DownloadReplies = CDownloadPhases;

TEST_F(DownloadReplies, OfATransferDoNotAnswerForTheName)
{
    m_run.m_host.m_entries.clear();
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.AcceptClient();
    m_server.Send(Wire::Result("NAMR", 1, 4) + Wire::Dfrt(1, 0, 2, 0) + Wire::Dfrb(1, "xx"));
    m_run.m_host.m_events.WaitFor("start failed 0");
    m_run.Stop();
    ASSERT_TRUE(m_run.Start(m_server.GetPort()));
    m_server.AcceptClient(2);
    m_server.Send(Wire::Result("NAMR", 2, 0) + Wire::Dfrt(2, 5, 0, 0));
    m_run.m_host.m_events.WaitFor("no more");
    EXPECT_EQ(m_run.m_host.m_events.Get(), (CLines{"start failed 0", "connected", "no more"}));
}

TEST_F(DownloadReplies, ToTheNameWriteNoFileOfAnEarlierRun)
{
    BeginCleanUp().join();
    CScriptedServer other;
    ASSERT_TRUE(m_run.Start(other.GetPort()));
    other.AcceptClient(4);
    other.Send(Wire::Dfrt(4, 0, 100, 0) + Wire::Dfrb(4, "stray"));
    other.Send(Wire::Result("NAMR", 4, 0));
    m_run.m_host.m_events.WaitForEnd();
    m_run.Release();
    EXPECT_FALSE(FileExists(m_strLocal));
    EXPECT_EQ(CountOpen(m_folder), 0);
    EXPECT_EQ(m_run.m_host.m_events.Get(),
              (CLines{"connected", "next", "progress 10", "connected", "no more"}));
}

TEST_F(DownloadReplies, AfterAStopCreateNoFile)
{
    std::thread stopper = BeginCleanUp();
    m_server.Send(Wire::Dfrt(3, 0, 4, 0) + Wire::Dfrb(3, "late"));
    stopper.join();
    EXPECT_FALSE(FileExists(m_strLocal));
    EXPECT_EQ(m_run.m_host.m_events.Get(), (CLines{"connected", "next", "progress 10"}));
}

TEST_F(DownloadReplies, AfterAStopLeaveNoDescriptorOpen)
{
    std::thread stopper = BeginCleanUp();
    m_server.Send(Wire::Dfrt(3, 0, 100, 0) + Wire::Dfrb(3, "late"));
    stopper.join();
    m_run.Release();
    EXPECT_EQ(CountOpen(m_folder), 0);
    EXPECT_FALSE(FileExists(m_strLocal));
}

TEST_F(DownloadReplies, ToTheNameDoNotCompleteAFile)
{
    BeginFile();
    m_server.Send(Wire::Dfrt(2, 0, 4, 0) + Wire::Dfrb(2, "ab") + Wire::Result("NAMR", 2, 0));
    m_run.m_host.m_events.WaitFor("progress 50");
    m_server.Send(Wire::Result("NAMR", 2, 4) + Wire::Dfrb(2, "cd"));
    ExpectCompleted({"connected", "next", "progress 50", "progress 100", "completed", "no more"},
                    "abcd");
}

TEST_F(DownloadReplies, SecondAnswerAfterTheLastByteChangesNothing)
{
    BeginFile();
    m_server.Send(Wire::Dfrt(2, 0, 3, 0) + Wire::Dfrb(2, "abc") + Wire::Dfrt(2, 0, 3, 0) +
                  Wire::Dfrb(2, "x"));
    ExpectCompleted({"connected", "next", "progress 100", "completed", "no more"}, "abc");
}

TEST_F(DownloadReplies, RefusalAfterTheLastByteChangesNothing)
{
    BeginFile();
    m_server.Send(Wire::Dfrt(2, 0, 3, 0) + Wire::Dfrb(2, "abc") + Wire::Dfrt(2, 5, 0, 0));
    ExpectCompleted({"connected", "next", "progress 100", "completed", "no more"}, "abc");
}

}  // namespace
