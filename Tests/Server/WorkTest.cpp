// Work that is asked for OSPREY_WORK times, 100 without that: scripts/growth and scripts/counts
// count the instructions that each case takes, and those of twice as much. OSPREY_CONNECTIONS, 100
// without that, is how many stand beside it. Everything runs on the test's own thread.

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "ChannelFixture.h"
#include "TempFolder.h"

namespace
{

uint32_t GetNumber(const char* pszName)
{
    const char* pszNumber = getenv(pszName);
    return pszNumber != nullptr ? static_cast<uint32_t>(strtoul(pszNumber, nullptr, 10)) : 100;
}

class CWorkTest : public CChannelTest
{
protected:
    // All in one piece, so that the server finds it all at once; waits for the end of the answers.
    void Exchange(CPeer& peer, const std::string& strRequests, size_t nAnswers)
    {
        peer.m_socket.Send(strRequests + Wire::Namc(0xFFFF, u"last"));
        const std::string strAnswers = ReceiveWhileRunning(peer, nAnswers + 20);
        EXPECT_EQ(strAnswers.size(), nAnswers + 20);
    }

    // Connections on which nothing ever comes. Each is a socket that is connected to itself: with
    // one descriptor instead of two, ten thousand keep below the usual limit.
    void ConnectIdle(uint32_t dwCount)
    {
        for (uint32_t i = 0; i < dwCount; ++i)
        {
            CRawSocket socket;
            ASSERT_TRUE(socket.ConnectToItself());
            m_core.ProcessClientConnect(socket.Release(), CSocketAddress(INADDR_LOOPBACK, 0));
        }
    }
    // One after the other.
    void Request(CPeer& peer)
    {
        for (uint32_t i = 0; i < m_dwWork; ++i)
        {
            peer.m_socket.Send(Wire::Namc(i, u"name"));
            EXPECT_EQ(ReceiveWhileRunning(peer, 20).size(), 20U);
        }
    }

    const uint32_t m_dwWork = GetNumber("OSPREY_WORK");
    const CTempFolder m_folder;
};
using Work = CWorkTest;

TEST_F(Work, Packets)
{
    CPeer peer = Connect();
    std::string strBytes = Wire::Brow();
    for (uint32_t i = 0; i < m_dwWork; ++i)
    {
        strBytes += Wire::Caop(i);
    }
    Exchange(peer, strBytes, 0);
}

// As many uploads open at once on one connection; above 256 they are refused.
TEST_F(Work, Ids)
{
    CPeer peer = Connect();
    std::string strBytes = Wire::Brow();
    for (uint32_t i = 0; i < m_dwWork; ++i)
    {
        const std::string strName = m_folder.GetPath(std::to_string(i));
        strBytes += Wire::Upfi(i, 10, 0, std::u16string(strName.begin(), strName.end()));
    }
    for (uint32_t i = 0; i < m_dwWork; ++i)
    {
        strBytes += Wire::Caop(i);
    }
    Exchange(peer, strBytes, m_dwWork * Wire::Upfr(0, 0, 0).size());
}

TEST_F(Work, Requests)
{
    CPeer peer = Connect();
    Exchange(peer, Wire::Brow(), 0);
    Request(peer);
}

TEST_F(Work, RequestsBesideIdleConnections)
{
    ConnectIdle(GetNumber("OSPREY_CONNECTIONS"));
    CPeer peer = Connect();
    Exchange(peer, Wire::Brow(), 0);
    Request(peer);
}

TEST_F(Work, Connections)
{
    ConnectIdle(m_dwWork);
    RunPasses(3);
    EXPECT_EQ(m_core.GetStreamCount(), static_cast<int>(m_dwWork));
}

TEST_F(Work, Files)
{
    const std::string strName = m_folder.WriteFile("file", std::string(100, 'x'));
    CPeer peer = Connect();
    Exchange(peer, Wire::Brow(), 0);
    const size_t nAnswer = Wire::Dfrt(1, 0, 0, 0).size() + 16 + 100 + 16;
    for (uint32_t i = 0; i < m_dwWork; ++i)
    {
        peer.m_socket.Send(Wire::Dfil(i, 0, std::u16string(strName.begin(), strName.end())));
        EXPECT_EQ(ReceiveWhileRunning(peer, nAnswer).size(), nAnswer);
    }
}

TEST_F(Work, UploadBlocks)
{
    CPeer peer = Connect();
    const std::string strName = m_folder.GetPath("upload");
    Exchange(peer,
             Wire::Brow() + Wire::Upfi(1, ~0U, 0, std::u16string(strName.begin(), strName.end())),
             Wire::Upfr(0, 0, 0).size());
    const std::string strBlock = Wire::Upfb(1, 0, std::string(32768, 'x'));
    for (uint32_t i = 0; i < m_dwWork; ++i)
    {
        peer.m_socket.Send(strBlock);
        EXPECT_EQ(ReceiveWhileRunning(peer, 20).size(), 20U);
    }
}

TEST_F(Work, DownloadBlocks)
{
    const size_t nBlock = 65536;
    const std::string strName = m_folder.WriteFile("download", std::string(m_dwWork * nBlock, 'x'));
    CPeer peer = Connect();
    Exchange(peer, Wire::Brow(), 0);
    peer.m_socket.Send(Wire::Dfil(1, 0, std::u16string(strName.begin(), strName.end())));
    const size_t nSize = Wire::Dfrt(1, 0, 0, 0).size() + m_dwWork * (nBlock + 16) + 16;
    EXPECT_EQ(ReceiveWhileRunning(peer, nSize).size(), nSize);
}

// A timer that fires and is armed again, among a thousand that wait.
TEST_F(Work, Timers)
{
    std::vector<std::unique_ptr<CCallTimer>> waiting;
    for (unsigned int i = 0; i < 1000; ++i)
    {
        waiting.push_back(std::make_unique<CCallTimer>(m_engine));
        waiting.back()->m_dwInterval = 1000000000 + i;
        m_engine.AddTimerHandler(waiting.back().get());
    }
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 10;
    for (uint32_t i = 0; i < m_dwWork; ++i)
    {
        m_engine.AddTimerHandler(&timer);
        Pass(11);
    }
    EXPECT_EQ(timer.m_nCalls, static_cast<int>(m_dwWork));
}

TEST_F(Work, TimersAtOnce)
{
    std::vector<std::unique_ptr<CCallTimer>> timers;
    for (unsigned int i = 0; i < m_dwWork; ++i)
    {
        timers.push_back(std::make_unique<CCallTimer>(m_engine));
        timers.back()->m_dwInterval = 10 + i * 7919 % 1000;
        m_engine.AddTimerHandler(timers.back().get());
    }
    Pass(1011);
    for (const auto& pTimer : timers)
    {
        EXPECT_EQ(pTimer->m_nCalls, 1);
    }
}

TEST_F(Work, Channels)
{
    for (uint32_t i = 0; i < m_dwWork; ++i)
    {
        GetStore().AddChannel(i, 1, 0);
        Put(i, "packet");
    }
    for (uint32_t i = 0; i < m_dwWork; ++i)
    {
        CChannelPacketItem* pItem = GetStore().GetChannelPacket(i, 1, 0);
        ASSERT_NE(pItem, nullptr);
        pItem->Release();
    }
    for (uint32_t i = 0; i < m_dwWork; ++i)
    {
        GetStore().RemoveChannel(i, 1);
    }
}

TEST_F(Work, ChannelPackets)
{
    CPeer peer = Open({7});
    for (uint32_t i = 0; i < m_dwWork; ++i)
    {
        Put(7, "packet");
    }
    Pass(101);
    const std::string strAll = ReceiveWhileRunning(peer, m_dwWork * Wire::Cpkt(7, "packet").size());
    EXPECT_EQ(strAll.size(), m_dwWork * Wire::Cpkt(7, "packet").size());
}

TEST_F(Work, Readers)
{
    std::vector<CPeer> peers;
    for (uint32_t i = 0; i < m_dwWork; ++i)
    {
        peers.push_back(Open({7}));
    }
    Put(7, "packet");
    Pass(101);
    for (CPeer& peer : peers)
    {
        EXPECT_EQ(ReceiveWhileRunning(peer, 22).size(), 22U);
    }
}

}  // namespace
