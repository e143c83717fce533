// A server that falls silent without a word: nothing that a client could read tells it, only that
// what it sends every 5 seconds is never acknowledged. How long the system waits for that is the
// client's to say; by itself it waits a quarter of an hour.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <atomic>

#include "ChannelHost.h"
#include "FileHost.h"
#include "ScriptedServer.h"
#include "SystemCalls.h"

namespace
{

// With the 5 seconds between two keep-alives: noticed within 35.
const unsigned int MOST_MS = 30000;

class CSilentServer : public ::testing::Test
{
protected:
    // How long what the client sends may stay unacknowledged; 0: as long as the system likes.
    unsigned int GetUserTimeoutMs() const
    {
        unsigned int dwTimeoutMs = 0;
        socklen_t nLength = sizeof dwTimeoutMs;
        EXPECT_EQ(getsockopt(m_hClient, IPPROTO_TCP, TCP_USER_TIMEOUT, &dwTimeoutMs, &nLength), 0);
        return dwTimeoutMs;
    }
    void ExpectToBeNoticed() const
    {
        EXPECT_GT(GetUserTimeoutMs(), 0U);
        EXPECT_LE(GetUserTimeoutMs(), MOST_MS);
    }

    CScriptedServer m_server;

private:
    std::atomic<int> m_hClient{-1};
    CReplacedCall<int(int, const sockaddr*, socklen_t)> m_connect{
        g_callConnect, [this](int s, const sockaddr* pAddress, socklen_t nLength)
        {
            m_hClient = s;
            return g_callConnect.Real(s, pAddress, nLength);
        }};
};
using SilentServer = CSilentServer;

TEST_F(SilentServer, IsNoticedByAnUploadClientWithinHalfAMinute)
{
    CSubmitRun run;
    ASSERT_TRUE(run.Start(m_server.GetPort()));
    m_server.WelcomeClient();
    run.m_host.m_events.WaitFor("connected");
    ExpectToBeNoticed();
}

TEST_F(SilentServer, IsNoticedByADownloadClientWithinHalfAMinute)
{
    CDownloadRun run;
    ASSERT_TRUE(run.Start(m_server.GetPort()));
    m_server.WelcomeClient();
    run.m_host.m_events.WaitFor("connected");
    ExpectToBeNoticed();
}

TEST_F(SilentServer, IsNoticedByAChannelClientWithinHalfAMinute)
{
    CChannelRun run;
    ASSERT_TRUE(run.Start(m_server.GetPort()));
    m_server.AcceptSubscriber();
    run.m_host.m_events.WaitFor("connected " + std::to_string(CHANNEL_USER));
    ExpectToBeNoticed();
}

}  // namespace
