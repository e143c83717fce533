// Live channels, library against library: many subscribers, slow ones, files beside them.

#include <algorithm>

#include "ChannelsFixture.h"
#include "Hex.h"
#include "Leftovers.h"
#include "SteppedLoops.h"
#include "WireRecords.h"

namespace
{

using std::chrono::milliseconds;
using Channels = CChannelsTest;

const unsigned int STORED_PACKETS = 2048;  // what a channel keeps

// 20 clients, 179 plain connections that read, one that does not until all is over. A channel keeps
// everything that is put after they have come: so nobody may miss a packet, however slow.
TEST_F(Channels, ThreeReachTwoHundredSubscribersWhole)
{
    const std::vector<unsigned int> channels = {1, 2, 3};
    const CLeftovers leftovers;
    const int nThreads = CountThreads();
    const int nDescriptors = CountDescriptors();
    {
        StartPutters(3, milliseconds(5), 1);
        const auto clients = Subscribe(20, channels);
        CRawSubscribers raw(m_wPort, 179, channels);
        CLazySubscriber lazy(m_wPort, channels);
        lazy.ReadTo(1, 0);  // it is there; from now on it reads nothing
        const unsigned int dwLast = 150;
        PutUpTo(dwLast + 1);
        raw.WaitForNumber(dwLast);
        // Client: a thread, an epoll, a pipe and a socket; and the other ends of all connections.
        EXPECT_EQ(CountThreads() - nThreads, 20 + 1 + 1 + 3);
        EXPECT_EQ(CountDescriptors() - nDescriptors, 20 * 4 + 180 + 200);
        EXPECT_EQ(StopPutters(), dwLast);
        for (const auto& pClient : clients)
        {
            pClient->WaitForNumber(dwLast);
            pClient->Look([&] { ExpectWhole(pClient->m_records, 3); });
            EXPECT_EQ(pClient->m_nConnected, 1);
        }
        raw.Look(
            [&]
            {
                for (const CRawSubscribers::CPeer& peer : raw.m_peers)
                {
                    ExpectWhole(peer.m_records, 3);
                    EXPECT_FALSE(peer.m_bEnded);
                }
            });
        for (const unsigned int dwChannel : channels)
        {
            lazy.ReadTo(dwChannel, dwLast);
        }
        ExpectWhole(lazy.m_records, 3);
    }
    leftovers.ExpectNone();
}

// Far more than a channel keeps, at the pace of one who reads: another, who does not, holds up
// neither of them, and misses what was dropped meanwhile, and nothing else.
TEST_F(Channels, OneWhoReadsNothingHoldsUpNobodyAndMissesOnlyWhatWasDropped)
{
    CLazySubscriber lazy(m_wPort, {1});
    CSubscriber reader;
    ASSERT_TRUE(reader.Start(m_wPort));
    unsigned int dwNumber = 0;
    const auto fnPut = [&]
    {
        std::string strPacket = NumberedPacket(1, dwNumber);
        const unsigned int dwResult = m_pServer->PutChannelPacket(
            1, strPacket.data(), static_cast<unsigned int>(strPacket.size()));
        dwNumber += dwResult == 0 ? 1 : 0;
        return dwResult;
    };
    // The channel is there as soon as the first of the two has asked for it; both must have.
    while (fnPut() != 0)
    {
        std::this_thread::sleep_for(milliseconds(1));
    }
    lazy.ReadTo(1, 0);
    reader.WaitForNumber(0);
    const unsigned int dwPackets = 6000;
    while (dwNumber < dwPackets && !HasFailure())
    {
        ASSERT_EQ(fnPut(), 0U);
        if (dwNumber % 1000 == 0)
        {
            reader.WaitForNumber(dwNumber - 1);
        }
    }
    reader.Look([&] { ExpectWhole(reader.m_records, 1); });
    EXPECT_EQ(reader.m_records[1].m_nPackets, static_cast<int>(dwPackets));

    lazy.ReadTo(1, dwPackets - 1);
    const CChannelRecord& record = lazy.m_records[1];
    EXPECT_EQ(record.m_dwFirst, 0U);
    EXPECT_EQ(record.m_nDamaged, 0);
    // One gap as a rule; more when the system found room for some packets in between.
    ASSERT_FALSE(record.m_gaps.empty());
    EXPECT_LE(record.m_gaps.back().second, dwPackets - STORED_PACKETS) << "this one was still kept";
}

TEST_F(Channels, AndFilesTravelBesideEachOther)
{
    StartPutters(3, milliseconds(5), 1);
    const auto clients = Subscribe(5, {3, 1, 2});
    const std::string strData = Pattern(10000000);
    m_local.WriteFile("file", strData);
    // Less than a channel keeps: nobody may miss a packet, however slow the machine.
    const unsigned int dwLimit = STORED_PACKETS - 48;
    PutUpTo(dwLimit);
    for (int i = 0; i < 2; ++i)
    {
        const unsigned int dwBefore = GetStored();
        Upload({"file"});
        ASSERT_TRUE(ReadFile(ServerPath("file")) == strData);
        ASSERT_EQ(remove(m_local.GetPath("file").c_str()), 0);
        Download({"file"});
        ASSERT_TRUE(ReadFile(m_local.GetPath("file")) == strData);
        for (const auto& pPutter : m_putters)
        {
            pPutter->WaitForStored(std::min(dwBefore + 1, dwLimit));
        }
    }
    const unsigned int dwLast = StopPutters();
    for (const auto& pClient : clients)
    {
        pClient->WaitForNumber(dwLast);
        pClient->Look([&] { ExpectWhole(pClient->m_records, 3); });
        EXPECT_EQ(pClient->m_nConnected, 1);
    }
}

// A slow server reads the request before it in the same call.
bool EndsInKeep(const void* pData, ssize_t nSize)
{
    const std::string strKeep = Wire::Keep();
    const std::string strData(static_cast<const char*>(pData), nSize > 0 ? nSize : 0);
    return strData.size() >= strKeep.size() &&
           strData.compare(strData.size() - strKeep.size(), strKeep.size(), strKeep) == 0;
}

// Two connections on which no packet comes: the client's lives on, since it says so every five
// seconds; the other, which says nothing, ends after thirty.
TEST(ChannelsAtRest, KeepTheirConnectionBeyondTheServersIdleLimit)
{
    CSteppedLoops loops;
    std::atomic<int> nKeeps{0};
    const CReplacedCall receiving(g_callRecv,
                                  [&](int s, void* pData, size_t nSize, int nFlags)
                                  {
                                      const ssize_t n = g_callRecv.Real(s, pData, nSize, nFlags);
                                      nKeeps += EndsInKeep(pData, n) ? 1 : 0;
                                      return n;
                                  });
    const unsigned short wPort = FreePort();
    IOspreyServer* pServer = CreateOspreyServer(nullptr);
    ASSERT_TRUE(pServer->Startup(0, wPort));
    CSubscriber client;
    CRawSocket silent;
    ASSERT_TRUE(silent.Connect(wPort));
    silent.Send(Wire::Ochs({1}));
    ASSERT_TRUE(client.Start(wPort));
    for (int i = 1; i <= 12; ++i)
    {
        loops.WaitForSleep(5000);
        loops.Advance(5001);
        for (int nMs = 0; nKeeps < i && nMs < WAIT_MS; ++nMs)
        {
            std::this_thread::sleep_for(milliseconds(1));
        }
        ASSERT_EQ(nKeeps, i);
        client.Look([&] { EXPECT_EQ(client.m_nDisconnected, 0) << i; });
        if (i == 5)
        {
            EXPECT_TRUE(silent.IsSilent());
        }
    }
    EXPECT_TRUE(silent.IsClosedByPeer());
    client.Look([&] { EXPECT_EQ(client.m_nConnected, 1); });
    EXPECT_TRUE(pServer->EndAllConnections(WAIT_MS));
    pServer->Shutdown();
    pServer->Release();
}

}  // namespace
