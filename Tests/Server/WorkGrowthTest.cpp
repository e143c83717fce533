// Work that is asked for OSPREY_WORK times, 100 without that: scripts/growth counts the
// instructions that each case takes, and those of twice as much. Everything runs on the test's own
// thread.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ChannelFixture.h"
#include "TempFolder.h"

namespace
{

uint32_t GetWork()
{
    const char* pszWork = getenv("OSPREY_WORK");
    return pszWork != nullptr ? static_cast<uint32_t>(strtoul(pszWork, nullptr, 10)) : 100;
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

    const uint32_t m_dwWork = GetWork();
    const CTempFolder m_folder;
};
using WorkGrowth = CWorkTest;

TEST_F(WorkGrowth, Packets)
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
TEST_F(WorkGrowth, Ids)
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

TEST_F(WorkGrowth, Channels)
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

TEST_F(WorkGrowth, ChannelPackets)
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

TEST_F(WorkGrowth, Readers)
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
