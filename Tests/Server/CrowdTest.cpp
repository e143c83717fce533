// The heap of very many connections goes back to the system when most of them have gone.

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "ServerFixture.h"

namespace
{

std::atomic<int> g_nTrims{0};

}  // namespace

extern "C"
{
    int __real_malloc_trim(size_t nPad);

    int __wrap_malloc_trim(size_t nPad)
    {
        ++g_nTrims;
        return __real_malloc_trim(nPad);
    }
}

namespace
{

class CCrowdTest : public CUntimedServerTest
{
protected:
    CCrowdTest()
    {
        Start();
        g_nTrims = 0;
    }
    void Arrive(size_t nPeers)
    {
        while (m_peers.size() < nPeers)
        {
            m_peers.push_back(Named(u"one of many"));
        }
    }
    // Those that came last go, until so many are left.
    void LeaveUntil(size_t nPeers)
    {
        m_nGone += m_peers.size() - nPeers;
        m_peers.resize(nPeers);
        m_host.WaitForDisconnects(m_nGone);
        // OnDisconnect comes before the connection is gone: what follows it is answered later.
        CRawSocket next = Named(u"next");
        ExpectAlive(next);
        next.Close();
        m_host.WaitForDisconnects(++m_nGone);
    }

    std::vector<CRawSocket> m_peers;
    size_t m_nGone = 0;
};
using ServerCrowd = CCrowdTest;

TEST_F(ServerCrowd, GivesItsHeapBackOnceWhenSevenOfEightHaveGone)
{
    Arrive(300);
    LeaveUntil(40);
    EXPECT_EQ(g_nTrims, 0);
    LeaveUntil(30);
    EXPECT_EQ(g_nTrims, 1);
    LeaveUntil(0);
    EXPECT_EQ(g_nTrims, 1) << "those that are left are no crowd";
}

// It takes its time, and crowds come as often as somebody wants.
TEST_F(ServerCrowd, ThatComesAgainAtOnceKeepsTheHeap)
{
    for (int i = 0; i < 2; ++i)
    {
        Arrive(300);
        LeaveUntil(0);
        EXPECT_EQ(g_nTrims, 1);
    }
}

TEST_F(ServerCrowd, Of255IsNone)
{
    Arrive(254);
    LeaveUntil(0);
    EXPECT_EQ(g_nTrims, 0);
}

}  // namespace
