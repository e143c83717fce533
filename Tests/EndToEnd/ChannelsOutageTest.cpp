// Subscribers whose publisher, or whose way to it, goes away and comes back.

#include <gtest/gtest.h>

#include <thread>
#include <utility>

#include "OwnNetwork.h"
#include "ServerProcess.h"
#include "Subscribers.h"

namespace
{

using std::chrono::milliseconds;

const std::vector<unsigned int> CHANNELS = {1, 2, 3};

// Where a publisher's numbers begin, so that a packet tells whose it is.
const unsigned int FIRST = 1000000;
const unsigned int SECOND = 2000000;

void ExpectWhole(const CSubscriber& client, unsigned int dwFrom)
{
    client.Look(
        [&]
        {
            EXPECT_EQ(client.m_records.size(), CHANNELS.size());
            for (const auto& record : client.m_records)
            {
                EXPECT_TRUE(record.second.IsWhole()) << record.second.m_gaps.size() << " gaps";
                EXPECT_GE(record.second.m_dwFirst, dwFrom);
            }
        });
}

TEST(Publisher, KilledAndStartedAgainIsFoundByItsSubscribers)
{
    const unsigned short wPort = FreePort();
    CServerProcess first(wPort, FIRST);
    CSubscriber clients[] = {CSubscriber(CHANNELS), CSubscriber(CHANNELS), CSubscriber(CHANNELS)};
    for (CSubscriber& client : clients)
    {
        ASSERT_TRUE(client.Start(wPort));
        client.WaitForNumber(FIRST + 50);
        ExpectWhole(client, FIRST);
    }
    first.Kill();
    const CServerProcess second(wPort, SECOND);
    for (CSubscriber& client : clients)
    {
        client.WaitForNumber(SECOND + 50);
        ExpectWhole(client, SECOND);
        client.Look(
            [&]
            {
                EXPECT_EQ(client.m_nConnected, 2);
                EXPECT_EQ(client.m_nDisconnected, 1);
                EXPECT_GE(client.GetDownMs(), 999);
            });
    }
}

TEST(Publisher, KilledAndStartedLaterIsAskedForEverySecond)
{
    const unsigned short wPort = FreePort();
    CServerProcess first(wPort, FIRST);
    CSubscriber client(CHANNELS);
    ASSERT_TRUE(client.Start(wPort));
    client.WaitForNumber(FIRST);
    first.Kill();
    client.WaitFor("two failed attempts", [&] { return client.m_nFailed >= 2; });
    const CServerProcess second(wPort, SECOND);
    client.WaitForNumber(SECOND + 50);
    ExpectWhole(client, SECOND);
    client.Look(
        [&]
        {
            EXPECT_EQ(client.m_nConnected, 2);
            EXPECT_EQ(client.m_nDisconnected, 1);
            EXPECT_EQ(client.m_nFailedAtOnce, 0);
            EXPECT_GE(client.GetDownMs(), 999 * (client.m_nFailed + 1));
        });
}

// The only port that the system can choose for the client's own end is the one that it connects to,
// which over many attempts comes by itself: TCP then joins the socket to itself.
void MeetNobodyButItself()
{
    const unsigned short wPort = 40001;
    UseLoopbackWithPorts(wPort, wPort);
    CSubscriber client(CHANNELS);
    client.Start(wPort);
    client.WaitFor("the end of the first attempt",
                   [&] { return client.m_nConnected + client.m_nFailed > 0; });
    client.Look([&] { EXPECT_EQ(client.m_nConnected, 0) << "connected to itself"; });
    UseLoopbackWithPorts(wPort, wPort + 100);
    const CServerProcess publisher(wPort, FIRST);
    client.WaitForNumber(FIRST + 50);
}

TEST(Publisher, IsNotTakenForThereWhenTheClientMeetsItself)
{
    RunInOwnNetwork(&MeetNobodyButItself);
}

const unsigned short PORT = 7070;  // nobody else is in these networks

// A client at this end of a link; its publisher is at the far end.
struct CLinked
{
    bool Start(unsigned int dwTimeoutMs = 20000)
    {
        return m_client.Start(PORT, m_network.GetFarAddress(), dwTimeoutMs);
    }
    // The newest number of channel 1.
    unsigned int GetLast() const
    {
        unsigned int dwLast = 0;
        m_client.Look([&] { dwLast = m_client.m_records.at(1).GetLast(); });
        return dwLast;
    }

    // Waits until no packet has come for so long; returns the newest number.
    unsigned int WaitForRest(milliseconds rest) const
    {
        unsigned int dwLast = GetLast();
        for (milliseconds waited(0); waited < milliseconds(WAIT_MS); waited += rest)
        {
            std::this_thread::sleep_for(rest);  // the rest itself
            const unsigned int dwBefore = std::exchange(dwLast, GetLast());
            if (dwBefore == dwLast)
            {
                return dwLast;
            }
        }
        ADD_FAILURE() << "waited in vain for the stream to rest";
        return dwLast;
    }

    COwnNetwork m_network;
    CServerProcess m_publisher{PORT, FIRST, m_network.GetFarEnd()};
    CSubscriber m_client{CHANNELS};
};

void LoseNothing()
{
    CLinked linked;
    ASSERT_TRUE(linked.Start());
    linked.m_client.WaitForNumber(FIRST + 50);
    linked.m_network.SetFarUp(false);
    // What was on its way may still arrive, and a slow machine takes its time over that.
    const unsigned int dwCut = linked.WaitForRest(milliseconds(1500));
    linked.m_network.SetFarUp(true);
    linked.m_client.WaitForNumber(dwCut + 150);
    ExpectWhole(linked.m_client, FIRST);
    linked.m_client.Look(
        [&]
        {
            EXPECT_EQ(linked.m_client.m_nConnected, 1);
            EXPECT_EQ(linked.m_client.m_nDisconnected, 0);
        });
}

TEST(CutLink, OfTwoSecondsLosesNothing)
{
    RunInOwnNetwork(&LoseNothing);
}

void LearnOfTheNewPublisher()
{
    CLinked linked;
    ASSERT_TRUE(linked.Start());
    linked.m_client.WaitForNumber(FIRST + 50);
    linked.m_network.SetFarUp(false);
    linked.m_publisher.Kill();
    const CServerProcess second(PORT, SECOND, linked.m_network.GetFarEnd());
    linked.m_client.Look([&] { EXPECT_EQ(linked.m_client.m_nDisconnected, 0); });
    linked.m_network.SetFarUp(true);
    linked.m_client.WaitForNumber(SECOND + 50);
    ExpectWhole(linked.m_client, SECOND);
    linked.m_client.Look(
        [&]
        {
            EXPECT_EQ(linked.m_client.m_nConnected, 2);
            EXPECT_EQ(linked.m_client.m_nDisconnected, 1);
        });
}

// The subscriber hears nothing of the old publisher's end before the link is back.
TEST(CutLink, BehindWhichThePublisherWasReplacedLeadsToTheNewOne)
{
    RunInOwnNetwork(&LearnOfTheNewPublisher);
}

void WaitForTheNetwork()
{
    CLinked linked;
    linked.m_network.SetNearUp(false);
    EXPECT_FALSE(linked.Start(300));
    linked.m_client.Look([&] { EXPECT_EQ(linked.m_client.m_strFailures.substr(0, 1), "0"); });
    linked.m_client.WaitFor("another attempt that fails at once",
                            [&] { return linked.m_client.m_nFailedAtOnce >= 2; });
    linked.m_client.Look([&] { EXPECT_EQ(linked.m_client.m_strFailures.substr(0, 3), "0f0"); });
    linked.m_network.SetNearUp(true);
    linked.m_client.WaitForNumber(FIRST + 50);
    ExpectWhole(linked.m_client, FIRST);
    linked.m_client.Look(
        [&]
        {
            EXPECT_EQ(linked.m_client.m_nConnected, 1);
            EXPECT_EQ(linked.m_client.m_nDisconnected, 0);
        });
}

TEST(CutLink, AtTheSubscribersSideFailsAtOnceUntilItIsUp)
{
    RunInOwnNetwork(&WaitForTheNetwork);
}

}  // namespace
