// Channels and servers that end while packets are being put.

#include <algorithm>

#include "ChannelsFixture.h"
#include "Leftovers.h"
#include "WireRecords.h"

namespace
{

using std::chrono::microseconds;
using std::chrono::milliseconds;
using ChannelsEnd = CChannelsTest;

// The answer to a put: stored, or nobody reads the channel.
const unsigned int STORED = 0;
const unsigned int NO_READER = 5;

// A server with 100 subscribers on three channels, into which packets are being put.
class CChannelsCrowd : public CChannelsTest
{
protected:
    CChannelsCrowd()
    {
        StartPutters(3, milliseconds(5), 1);
        m_clients = Subscribe(10, {1, 2, 3});
        m_pRaw = std::make_unique<CRawSubscribers>(m_wPort, 90, std::vector<unsigned int>{1, 2, 3});
        PutUpTo(20);
        m_pRaw->WaitForNumber(19);
        PutUpTo(CPutter::NO_LIMIT);  // a slow machine need not keep up with that
    }
    // The server has ended; putting went on until now.
    void ExpectEveryoneWasTold()
    {
        m_pRaw->WaitFor("the end of every connection",
                        [this]
                        {
                            return std::all_of(m_pRaw->m_peers.begin(), m_pRaw->m_peers.end(),
                                               [](const CRawSubscribers::CPeer& peer)
                                               { return peer.m_bEnded; });
                        });
        for (const auto& pClient : m_clients)
        {
            pClient->WaitFor("the loss", [&] { return pClient->m_nDisconnected == 1; });
        }
    }
    void ExpectNobodyReads()
    {
        for (unsigned int dwChannel = 1; dwChannel <= 3; ++dwChannel)
        {
            char c = 'c';
            EXPECT_EQ(m_pServer->PutChannelPacket(dwChannel, &c, 1), NO_READER);
        }
    }
    void EndPutting()
    {
        for (const auto& pPutter : m_putters)
        {
            pPutter->WaitForRefusal();
        }
        StopPutters();
        for (const auto& pPutter : m_putters)
        {
            EXPECT_EQ(pPutter->GetResults(), (std::set<unsigned int>{STORED, NO_READER}));
        }
    }

    std::vector<std::unique_ptr<CSubscriber>> m_clients;
    std::unique_ptr<CRawSubscribers> m_pRaw;
};
using ChannelsCrowd = CChannelsCrowd;

TEST_F(ChannelsCrowd, IsEndedThenTheServerStopsAndGoesWhilePacketsArePut)
{
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    ExpectNobodyReads();
    EXPECT_TRUE(m_pServer->Shutdown());
    ExpectNobodyReads();
    ExpectEveryoneWasTold();
    EndPutting();
    m_pServer->Release();
    m_pServer = nullptr;
}

TEST_F(ChannelsCrowd, IsEndedAfterTheServerHasStoppedWhilePacketsArePut)
{
    EXPECT_TRUE(m_pServer->Shutdown());
    for (const auto& pPutter : m_putters)
    {
        pPutter->WaitForStored(pPutter->GetStored() + 5);  // the channels are still there
    }
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    ExpectNobodyReads();
    ExpectEveryoneWasTold();
    EndPutting();
    m_pServer->Release();
    m_pServer = nullptr;
}

TEST_F(ChannelsCrowd, FindsTheServerAgainByItself)
{
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_TRUE(m_pServer->Shutdown());
    ExpectEveryoneWasTold();
    const unsigned int dwStored = GetStored();
    for (const auto& pPutter : m_putters)
    {
        pPutter->WaitForRefusal();
        pPutter->PutUpTo(pPutter->GetStored() + 1000);  // less than a channel keeps
    }
    ASSERT_TRUE(m_pServer->Startup(0, m_wPort));
    for (const auto& pClient : m_clients)
    {
        pClient->WaitForNumber(dwStored + 50);
        pClient->Look(
            [&]
            {
                ExpectWhole(pClient->m_records, 3);
                EXPECT_EQ(pClient->m_nConnected, 2);
                EXPECT_GE(pClient->GetDownMs(), 999);
            });
    }
    EndPutting();
}

// Subscribers come, take a packet and go, each in its own way, so that every channel is made and
// removed again and again under the hands of those who put.
TEST_F(ChannelsEnd, AreMadeAndRemovedWhilePacketsArePut)
{
    const CLeftovers leftovers;
    StartPutters(4, microseconds(200));
    for (unsigned int i = 0; i < 60; ++i)
    {
        const unsigned int dwChannel = i % 4 + 1;
        CRawSocket peer;
        ASSERT_TRUE(peer.Connect(m_wPort));
        peer.Send(Wire::Ochs({dwChannel, (i + 1) % 4 + 1}));
        CSubscriber client({dwChannel});
        if (i % 10 == 0)
        {
            ASSERT_TRUE(client.Start(m_wPort));
            client.WaitForNumber(0);
        }
        if (i % 3 != 0)
        {
            const std::string strPacket = peer.ReceivePacket();
            EXPECT_EQ(Wire::GetCode(strPacket), "CPKT");
            EXPECT_EQ(strPacket.substr(16),
                      NumberedPacket(Wire::GetU32(strPacket, 12), Wire::GetU32(strPacket, 20)));
        }
        i % 2 == 0 ? peer.Reset() : peer.Close();
    }
    for (unsigned int dwChannel = 1; dwChannel <= 4; ++dwChannel)
    {
        char c = 'c';
        for (int nMs = 0;
             m_pServer->PutChannelPacket(dwChannel, &c, 1) != NO_READER && nMs < WAIT_MS; ++nMs)
        {
            std::this_thread::sleep_for(milliseconds(1));
        }
        EXPECT_EQ(m_pServer->PutChannelPacket(dwChannel, &c, 1), NO_READER);
    }
    StopPutters();
    for (const auto& pPutter : m_putters)
    {
        EXPECT_EQ(pPutter->GetResults(), (std::set<unsigned int>{STORED, NO_READER}));
    }
    leftovers.ExpectNone();
}

}  // namespace
