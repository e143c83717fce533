// The channel client, with each of its calls failing in turn. Whatever fails, it goes on trying,
// and its host gets packets again without doing anything; but for the want of a socket, which hosts
// are told to watch for.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "ClientRuns.h"
#include "FaultSweep.h"
#include "LibraryLoops.h"
#include "PeerServer.h"

namespace
{

const int PACKETS = 3;
const int SLEEPS_WITH_FAULTS = 8;

// A word for what a failure may bring about: attempts and connections that fail, any number of
// them.
std::string ToWords(const std::vector<std::string>& events)
{
    std::string strWords;
    for (const std::string& strEvent : events)
    {
        const bool bLost = strEvent.find("failed") != std::string::npos ||
                           strEvent.find("disconnected") != std::string::npos;
        std::string strWord = bLost ? "end" : strEvent;
        std::replace(strWord.begin(), strWord.end(), ' ', '_');
        strWords += " " + strWord;
    }
    return strWords;
}

// Without a socket for it, an attempt is the last one.
bool IsForASocket(const CFault* pFault)
{
    const FAULT_CALL calls[] = {CALL_SOCKET, CALL_SETSOCKOPT, CALL_BIND, CALL_FCNTL,
                                CALL_EPOLL_ADD};
    return pFault != nullptr &&
           std::find(std::begin(calls), std::end(calls), pFault->eCall) != std::end(calls);
}

// Subscribes, gets everything, loses the connection, and gets everything again. The plan holds for
// the first connection or for the second one.
class CSubscriber
{
public:
    CSubscriber()
    {
        for (int i = 0; i < PACKETS; ++i)
        {
            m_peer.m_packets.push_back(std::string(500, static_cast<char>('a' + i)));
        }
    }

    std::string PlayFirst(const CFault* pFault)
    {
        const CFaultPlan plan(pFault);
        const bool bConnects = m_client.Connect(m_peer.GetPort());
        // A refusal that was not reported to the host is the end, as hosts are told.
        if (bConnects || m_client.m_host.m_host.m_events.Count("connect failed 0") > 0)
        {
            Receive(1);
            m_peer.EndConnection();
            Receive(2);
        }
        return (bConnects ? "connect:0" : "connect:1") + TakeEvents();
    }
    std::string PlaySecond(const CFault* pFault)
    {
        EXPECT_TRUE(m_client.Connect(m_peer.GetPort()));
        Receive(1);
        const CFaultPlan plan(pFault);
        m_bMayStop = IsForASocket(pFault);
        m_peer.EndConnection();
        Receive(2);
        return "connect:0" + TakeEvents() + (m_bStopped ? " stopped" : "");
    }

private:
    // Calls fail for a while; then the client must get there.
    void Receive(int nTimes)
    {
        const std::function<bool()> fnHasAll = [this, nTimes]
        {
            m_peer.Serve(0);
            return CountLast() >= nTimes;
        };
        const std::function<bool()> fnEndSilent = [this] { return m_peer.EndConnection(); };
        m_loop.RunUntil(fnHasAll, fnEndSilent, SLEEPS_WITH_FAULTS);
        CFaultPlan::Lift();
        m_bStopped = !m_loop.RunUntil(fnHasAll, fnEndSilent);
        EXPECT_TRUE(!m_bStopped || m_bMayStop)
            << "the client has ended silently:" << ToWords(m_client.m_host.m_host.m_events.Get());
    }
    int CountLast() const
    {
        return m_client.m_host.m_host.m_events.Count(PacketLine(1, m_peer.m_packets.back()));
    }
    std::string TakeEvents()
    {
        m_client.Release();
        return ToWords(m_client.m_host.m_host.m_events.Get());
    }

    bool m_bMayStop = false;
    bool m_bStopped = false;
    CSteppedLoop m_loop;
    CPeerServer m_peer;
    CChannelClient m_client;
};

std::string First(const CFault* pFault)
{
    const CNothingLeft nothing;
    std::string strOutcome = CSubscriber().PlayFirst(pFault);
    nothing.Expect();
    return strOutcome;
}

std::string Second(const CFault* pFault)
{
    const CNothingLeft nothing;
    std::string strOutcome = CSubscriber().PlaySecond(pFault);
    nothing.Expect();
    return strOutcome;
}

TEST(ChannelFaults, AnyAllocationOfTheFirstConnectionMayFail)
{
    EXPECT_GT(ShowFaults(SweepAllocations(&First)), 0);
}

TEST(ChannelFaults, AnySystemCallOfTheFirstConnectionMayFail)
{
    EXPECT_GT(ShowFaults(SweepCalls(&First)), 0);
}

TEST(ChannelFaults, AnyAllocationOfALaterConnectionMayFail)
{
    EXPECT_GT(ShowFaults(SweepAllocations(&Second)), 0);
}

TEST(ChannelFaults, AnySystemCallOfALaterConnectionMayFail)
{
    EXPECT_GT(ShowFaults(SweepCalls(&Second)), 0);
}

}  // namespace
