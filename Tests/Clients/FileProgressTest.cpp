// What the file clients report of themselves when the peer, the file or the host does what nobody
// expects: hosts are promised 0 to 100.

#include <gtest/gtest.h>

#include "FileHost.h"
#include "ScriptedServer.h"
#include "TempFolder.h"

namespace
{

void ExpectNoneAbove100(const CFileEvents& events)
{
    for (const std::string& strEvent : events.Get())
    {
        if (strEvent.compare(0, 9, "progress ") == 0)
        {
            EXPECT_LE(std::stoul(strEvent.substr(9)), 100U);
        }
    }
}

class CProgress : public ::testing::Test
{
protected:
    // Brings a run to the request for a file of this content.
    void Begin(const std::string& strContents)
    {
        m_run.m_host.m_entries = {{m_folder.WriteFile("file", strContents), "root", 0}};
        ASSERT_TRUE(m_run.Start(m_server.GetPort()));
        m_server.WelcomeClient();
        EXPECT_EQ(Wire::GetCode(m_server.Take()), "UPFI");
    }
    // Acknowledges the block under way and the empty one that follows.
    void Finish()
    {
        m_server.Send(Wire::Result("UPBR", 2, 0));
        m_server.Expect(Wire::Upfb(2, 1, ""));
        m_server.Send(Wire::Result("UPBR", 2, 0));
        m_run.m_host.m_events.WaitForEnd();
        EXPECT_EQ(m_run.m_host.m_events.Count("completed"), 1);
    }

    CTempFolder m_folder;
    CScriptedServer m_server;
    CSubmitRun m_run;
};
using SubmitProgress = CProgress;

TEST_F(SubmitProgress, OfAFileThatIsStartedAnewStaysWithin100)
{
    Begin("abc");
    m_server.Send(Wire::Upfr(2, 0, 0));
    m_server.Expect(Wire::Upfb(2, 0, "abc"));
    m_server.Send(Wire::Upfr(2, 0, 0));
    m_server.Expect(Wire::Upfb(2, 0, "abc"));
    Finish();
    ExpectNoneAbove100(m_run.m_host.m_events);
}

TEST_F(SubmitProgress, OfAFileThatHasGrownStaysWithin100)
{
    Begin("a");
    m_folder.WriteFile("file", "abc");
    m_server.Send(Wire::Upfr(2, 0, 0));
    m_server.Expect(Wire::Upfb(2, 0, "abc"));
    Finish();
    ExpectNoneAbove100(m_run.m_host.m_events);
}

TEST(DownloadProgress, FromBelowZeroToASizeBelowZeroStaysWithin100)
{
    const CTempFolder folder;
    CScriptedServer server;
    CDownloadRun run;
    run.m_host.m_entries = {{folder.GetPath("file"), "remote", -1000}};
    ASSERT_TRUE(run.Start(server.GetPort()));
    server.WelcomeClient();
    EXPECT_EQ(Wire::GetCode(server.Take()), "DFIL");
    server.Send(Wire::Dfrt(2, 0, ~0ULL, 0) + Wire::Dfrb(2, "abc"));
    server.m_peer.ShutdownSend();
    run.m_host.m_events.WaitForEnd();
    run.Stop();
    ExpectNoneAbove100(run.m_host.m_events);
}

}  // namespace
