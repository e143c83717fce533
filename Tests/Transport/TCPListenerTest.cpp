#include "TCPListener.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "LoopFixture.h"
#include "RawSocket.h"
#include "SystemCalls.h"
#include "TestClock.h"

namespace
{

const unsigned int LOOPBACK = 0x7F000001;

class COpenListener final : public CTCPListener
{
public:
    using CTCPListener::m_bPendingDestroy;
    using CTCPListener::m_sock;

    using CTCPListener::CTCPListener;

    bool Open()
    {
        return Create(CSocketAddress(LOOPBACK, 0), 10);
    }
    unsigned short GetPort() const
    {
        return GetLocalPort(m_sock.m_hSocket);
    }

    void ProcessClientConnect(int s, const CSocketAddress& addrRemote) override
    {
        if (m_bBase)
        {
            CTCPListener::ProcessClientConnect(s, addrRemote);
            return;
        }
        char szText[100] = {};
        addrRemote.GetIPAddressString(szText, sizeof szText);
        m_strPeer = szText;
        m_accepted.emplace_back(s);
    }
    void ProcessError(int nError) override
    {
        m_errors.push_back(nError);
    }
    void ProcessDestroied() override
    {
        ++m_nDestroyed;
    }

    bool m_bBase = false;
    std::string m_strPeer;
    std::vector<CRawSocket> m_accepted;
    std::vector<int> m_errors;
    int m_nDestroyed = 0;
};

class CListenerTest : public CLoopTest
{
protected:
    COpenListener m_listener{&m_engine};
};
using TCPListener = CListenerTest;

TEST_F(TCPListener, ThreeConnectionsAreAcceptedInThreePasses)
{
    ASSERT_TRUE(m_listener.Open());
    CRawSocket peers[3];
    for (CRawSocket& peer : peers)
    {
        ASSERT_TRUE(peer.Connect(m_listener.GetPort()));
    }
    std::vector<size_t> counts;
    m_engine.m_fnAfterPass = nullptr;
    const CReplacedCall wait(g_callEpollWait,
                             [&](int h, epoll_event* pEvents, int n, int nMs)
                             {
                                 counts.push_back(m_listener.m_accepted.size());
                                 return g_callEpollWait.Real(h, pEvents, n, nMs);
                             });
    RunUntil("three connections", [&] { return m_listener.m_accepted.size() == 3; });
    EXPECT_EQ(counts, (std::vector<size_t>{0, 1, 2}));
    EXPECT_EQ(m_listener.m_strPeer, "127.0.0.1");
}

TEST_F(TCPListener, AcceptedSocketBlocksAndClosesOnExec)
{
    ASSERT_TRUE(m_listener.Open());
    CRawSocket peer;
    peer.Connect(m_listener.GetPort());
    RunUntil("the connection", [&] { return !m_listener.m_accepted.empty(); });
    const int hAccepted = m_listener.m_accepted.front().GetHandle();
    EXPECT_EQ(fcntl(hAccepted, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(hAccepted, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(TCPListener, BaseClosesAnAcceptedConnectionAtOnce)
{
    m_listener.m_bBase = true;
    ASSERT_TRUE(m_listener.Open());
    CRawSocket peer;
    peer.Connect(m_listener.GetPort());
    RunPasses(2);
    EXPECT_TRUE(peer.IsClosedByPeer());
}

TEST_F(TCPListener, InitiateDestroyWithoutASocketIsRefused)
{
    EXPECT_FALSE(m_listener.InitiateDestroy());
    RunPasses(1);
    EXPECT_EQ(m_listener.m_nDestroyed, 0);
}

TEST_F(TCPListener, InitiateDestroyClosesInTheNextDeferredPass)
{
    const unsigned short wPort = FreePort();  // nobody else listens there afterwards
    ASSERT_TRUE(m_listener.Create(CSocketAddress(LOOPBACK, wPort), 10));
    CRawSocket early;
    early.Connect(wPort);
    EXPECT_TRUE(m_listener.InitiateDestroy());
    EXPECT_FALSE(m_listener.InitiateDestroy());
    m_listener.ProcessInput();
    EXPECT_TRUE(m_listener.m_accepted.empty()) << "events are ignored from now on";
    RunPasses(1);
    EXPECT_EQ(m_listener.m_nDestroyed, 1);
    EXPECT_FALSE(m_listener.m_sock.IsValid());
    EXPECT_EQ(m_engine.m_nIOHandlers, 0);
    EXPECT_FALSE(CRawSocket().Connect(wPort));
}

TEST_F(TCPListener, DestroyMayComeWhileADestroyIsPending)
{
    ASSERT_TRUE(m_listener.Open());
    m_listener.InitiateDestroy();
    m_listener.Destroy();
    m_listener.Destroy();
    RunPasses(1);
    EXPECT_EQ(m_listener.m_nDestroyed, 1);
}

TEST_F(TCPListener, CreateWithdrawsAStaleDestroy)
{
    ASSERT_TRUE(m_listener.Open());
    m_listener.InitiateDestroy();
    m_listener.Destroy();
    ASSERT_TRUE(m_listener.Open());
    RunPasses(2);
    EXPECT_TRUE(m_listener.m_sock.IsValid());
    EXPECT_EQ(m_listener.m_nDestroyed, 0);
}

TEST_F(TCPListener, CreateWithdrawsADestroyThatTheEngineDropped)
{
    ASSERT_TRUE(m_listener.Open());
    m_listener.InitiateDestroy();
    m_engine.Destroy();
    m_listener.Destroy();
    ASSERT_TRUE(m_engine.Create(64));
    ASSERT_TRUE(m_listener.Open());
    EXPECT_FALSE(m_listener.m_bPendingDestroy);
    EXPECT_TRUE(m_listener.InitiateDestroy());
    RunPasses(1);
    EXPECT_EQ(m_listener.m_nDestroyed, 1);
}

TEST_F(TCPListener, FailedBindLeavesNothingOpen)
{
    const CRawServer other;
    EXPECT_FALSE(m_listener.Create(CSocketAddress(LOOPBACK, other.GetPort()), 10));
    EXPECT_EQ(m_listener.m_sock.m_hSocket, -1);
    EXPECT_EQ(m_engine.m_nIOHandlers, 0);
    EXPECT_TRUE(m_listener.Open()) << "it may be tried again";
}

TEST_F(TCPListener, FailedRegistrationLeavesNothingOpen)
{
    CIOEngine engine;
    COpenListener listener(&engine);
    EXPECT_FALSE(listener.Open());
    EXPECT_EQ(listener.m_sock.m_hSocket, -1);
}

TEST_F(TCPListener, ConnectionThatVanishedIsReportedAndListeningGoesOn)
{
    ASSERT_TRUE(m_listener.Open());
    EXPECT_NE(fcntl(m_listener.m_sock.m_hSocket, F_GETFL) & O_NONBLOCK, 0)
        << "accept would wait for the next one";
    CRawSocket peer;
    peer.Connect(m_listener.GetPort());
    {
        const CReplacedCall vanish(g_callAccept4,
                                   [](int, sockaddr*, socklen_t*, int)
                                   {
                                       errno = ECONNABORTED;
                                       return -1;
                                   });
        RunPasses(1);
        EXPECT_EQ(m_listener.m_errors, (std::vector<int>{ECONNABORTED}));
    }
    RunUntil("the connection", [&] { return m_listener.m_accepted.size() == 1; });
    m_listener.ProcessInput();
    EXPECT_EQ(m_listener.m_errors, (std::vector<int>{ECONNABORTED, EAGAIN}));
}

// Uses up all descriptors for the length of a block.
class CNoDescriptors
{
public:
    CNoDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &m_limit);
        const int hNext = dup(STDOUT_FILENO);
        rlimit low = m_limit;
        low.rlim_cur = static_cast<rlim_t>(hNext) + 8;
        setrlimit(RLIMIT_NOFILE, &low);
        for (int h = hNext; h >= 0; h = dup(STDOUT_FILENO))
        {
            m_taken.push_back(h);
        }
        EXPECT_EQ(errno, EMFILE);
    }
    ~CNoDescriptors()
    {
        for (const int h : m_taken)
        {
            close(h);
        }
        setrlimit(RLIMIT_NOFILE, &m_limit);
    }
    CNoDescriptors(const CNoDescriptors&) = delete;
    CNoDescriptors& operator=(const CNoDescriptors&) = delete;

private:
    rlimit m_limit{};
    std::vector<int> m_taken;
};

TEST_F(TCPListener, WithoutDescriptorsNewcomersAreClosedInsteadOfSpunOn)
{
    ASSERT_TRUE(m_listener.Open());
    // Sanitizers look at a type the first time it is used, and need descriptors for that.
    CRawSocket first;
    first.Connect(m_listener.GetPort());
    RunPasses(2);
    m_listener.ProcessInput();
    m_listener.m_accepted.clear();
    m_listener.m_errors.clear();
    CRawSocket peers[3];
    for (CRawSocket& peer : peers)
    {
        ASSERT_TRUE(peer.Connect(m_listener.GetPort()));
    }
    {
        const CNoDescriptors none;
        RunPasses(20);
    }
    EXPECT_EQ(m_listener.m_errors, (std::vector<int>{EMFILE, EMFILE, EMFILE}))
        << "one report a newcomer";
    for (CRawSocket& peer : peers)
    {
        EXPECT_TRUE(peer.IsClosedByPeer());
    }
    CRawSocket late;
    ASSERT_TRUE(late.Connect(m_listener.GetPort()));
    RunUntil("a connection after that", [&] { return m_listener.m_accepted.size() == 1; });
}

// Every accept fails, the one that would turn a newcomer away too: other threads of the process may
// be quicker to take the descriptor that was kept for it.
class CListenerShortageTest : public CListenerTest, public ::testing::WithParamInterface<int>
{
protected:
    CListenerShortageTest()
    {
        EXPECT_TRUE(m_listener.Open());
        EXPECT_TRUE(m_peer.Connect(m_listener.GetPort()));
    }
    // How often the listener has tried in so many passes.
    size_t CountTries(int nPasses)
    {
        m_listener.m_errors.clear();
        RunPasses(nPasses);
        return m_listener.m_errors.size();
    }

    CTestClock m_clock;
    CRawSocket m_peer;
    const int m_nError = GetParam();
};
using TCPListenerShortage = CListenerShortageTest;

TEST_P(TCPListenerShortage, IsLookedAtEvery100msAndOverOnceAcceptWorks)
{
    {
        const CReplacedCall none(g_callAccept4,
                                 [&](int, sockaddr*, socklen_t*, int)
                                 {
                                     errno = m_nError;
                                     return -1;
                                 });
        EXPECT_EQ(CountTries(20), 1U);
        EXPECT_EQ(m_listener.m_errors, (std::vector<int>{m_nError}));
        m_clock.Advance(100);
        EXPECT_EQ(CountTries(20), 0U);
        m_clock.Advance(1);
        EXPECT_EQ(CountTries(20), 1U);
        m_clock.Advance(101);
        EXPECT_EQ(CountTries(20), 1U);
    }
    EXPECT_TRUE(m_listener.m_accepted.empty());
    m_clock.Advance(101);
    RunUntil("the connection that waited", [&] { return m_listener.m_accepted.size() == 1; });
    EXPECT_EQ(m_engine.CalcNextTimeout(), -1) << "no timer is left";
}

TEST_P(TCPListenerShortage, EndsWithTheListener)
{
    {
        const CReplacedCall none(g_callAccept4,
                                 [&](int, sockaddr*, socklen_t*, int)
                                 {
                                     errno = m_nError;
                                     return -1;
                                 });
        EXPECT_EQ(CountTries(2), 1U);
    }
    EXPECT_TRUE(m_listener.InitiateDestroy());
    m_clock.Advance(101);
    RunPasses(2);
    EXPECT_EQ(m_listener.m_nDestroyed, 1);
    EXPECT_EQ(m_engine.CalcNextTimeout(), -1);
    EXPECT_EQ(m_engine.m_nIOHandlers, 0);
    EXPECT_TRUE(m_listener.Open()) << "and it can listen again";
}

INSTANTIATE_TEST_SUITE_P(Errors, TCPListenerShortage,
                         ::testing::Values(EMFILE, ENFILE, ENOBUFS, ENOMEM));

TEST_F(TCPListener, DestroyClosesTheSpareDescriptorToo)
{
    const int hNext = dup(STDOUT_FILENO);
    close(hNext);
    ASSERT_TRUE(m_listener.Open());
    m_listener.Destroy();
    const int hSame = dup(STDOUT_FILENO);
    EXPECT_EQ(hSame, hNext);
    close(hSame);
}

using TCPListenerDeathTest = CListenerTest;

TEST_F(TCPListenerDeathTest, CreateAbortsWhenThereIsASocket)
{
    ASSERT_TRUE(m_listener.Open());
    EXPECT_DEATH(m_listener.Open(),
                 "Source/Libraries/LibOspreyClient/TCPListener.*`!m_sock.IsValid\\(\\)' failed");
}

}  // namespace
