// What one peer may cost the others: memory, open files, and the worker's time.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <thread>
#include <vector>

#include "ServerFixture.h"

namespace
{

using ServerFairness = CUntimedServerTest;

const size_t BLOCK_SIZE = 65536;

// A sparse file of many blocks, each of which begins with its number.
std::string WriteNumberedBlocks(const CTempFolder& folder, uint32_t dwBlocks)
{
    std::string strPath = folder.WriteFile("numbered", "");
    std::fstream file(strPath, std::ios::in | std::ios::out | std::ios::binary);
    for (uint32_t i = 0; i < dwBlocks; ++i)
    {
        file.seekp(static_cast<std::streamoff>(i * BLOCK_SIZE));
        file << Wire::U32(i);
    }
    file.close();
    EXPECT_EQ(truncate(strPath.c_str(), static_cast<off_t>(dwBlocks * BLOCK_SIZE)), 0);
    return strPath;
}

// Expects replies to nRequests requests of one file, in which blocks of replaced requests may
// stand, and after the last of them the whole file.
void ExpectFileAfterReplies(CRawSocket& peer, int nRequests, uint32_t dwBlocks)
{
    std::string strPacket = peer.ReceivePacket();
    for (int nReplies = 0; nReplies < nRequests; strPacket = peer.ReceivePacket())
    {
        ASSERT_FALSE(strPacket.empty());
        nReplies += Wire::GetCode(strPacket) == "DFRT" ? 1 : 0;
    }
    for (uint32_t i = 0; i < dwBlocks; ++i, strPacket = peer.ReceivePacket())
    {
        ASSERT_EQ(Wire::GetCode(strPacket), "DFRB");
        ASSERT_EQ(strPacket.size(), 16 + BLOCK_SIZE);
        ASSERT_EQ(Wire::GetU32(strPacket, 16), i);
    }
    EXPECT_EQ(strPacket.size(), 16U) << "the empty block that ends the file";
}

// A block is read when the one before it has left: for the newest request of an id, not once for
// each request that ever had it.
TEST_F(ServerFairness, AThousandDownloadsUnderOneIdQueueNoMoreBlocksThanOne)
{
    const int REQUESTS = 1000;
    const uint32_t BLOCKS = 1200;
    m_host.m_bProgress = true;
    Start();
    const std::string strPath = WriteNumberedBlocks(m_folder, BLOCKS);
    CRawSocket peer = Browse();
    CRawSocket other = Browse();
    std::string strRequests;
    for (int i = 0; i < REQUESTS; ++i)
    {
        strRequests += Wire::Dfil(7, 0, Widen(strPath));
    }
    peer.Send(strRequests);
    m_host.WaitForRequests(REQUESTS);
    // The replies leave in portions, a pass each; so do the answers here.
    for (int i = 0; i < 100; ++i)
    {
        ExpectAlive(other);
    }
    // What the sockets hold has been read too: a few megabytes.
    EXPECT_LT(m_host.GetProgress().size(), 300U) << "each call is a block read";
    ExpectFileAfterReplies(peer, REQUESTS, BLOCKS);
    ExpectAlive(peer);
}

// A host that takes its time over every request, and a row of requests in one piece.
class CSlowHostTest : public CUntimedServerTest
{
protected:
    static const int ROW = 60;

    CSlowHostTest()
    {
        m_host.m_fnOnRequest = [this](const CRecordingHost::CRequest& request)
        {
            if (request.m_strName.compare(0, 3, "row") == 0)
            {
                if (request.m_strName == "row1" && m_fnOnFirst)
                {
                    m_fnOnFirst();
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        };
        Start();
        m_slow = Named(u"slow");
        m_other = Named(u"other");
    }
    ~CSlowHostTest() override
    {
        Stop();  // before what the host calls goes
    }
    // The requests have the ids and names 1 to ROW.
    void SendRow()
    {
        std::string strRow;
        for (uint32_t dwID = 1; dwID <= ROW; ++dwID)
        {
            strRow += Wire::Namc(dwID, u"row" + Widen(std::to_string(dwID)));
        }
        m_slow.Send(strRow);
    }
    void ExpectRowAnswered()
    {
        for (uint32_t dwID = 1; dwID <= ROW; ++dwID)
        {
            EXPECT_EQ(Hex(Wire::WithoutVersion(m_slow.ReceivePacket())),
                      Hex(Wire::WithoutVersion(Wire::Result("NAMR", dwID, 0))));
        }
    }
    std::vector<std::string> GetNames() const
    {
        std::vector<std::string> names;
        for (const CRecordingHost::CRequest& request : m_host.GetRequests())
        {
            names.push_back(request.m_strName);
        }
        return names;
    }

    std::function<void()> m_fnOnFirst;  // on the worker, inside the row's first request
    CRawSocket m_slow;
    CRawSocket m_other;
};
using ServerSlowRequests = CSlowHostTest;

TEST_F(ServerSlowRequests, RowOfThemDoesNotHoldUpAnotherConnection)
{
    m_fnOnFirst = [this] { m_other.Send(Wire::Namc(9, u"meanwhile")); };
    SendRow();
    ExpectRowAnswered();
    EXPECT_EQ(Wire::GetCode(m_other.ReceivePacket()), "NAMR");
    const std::vector<std::string> names = GetNames();
    ASSERT_EQ(names.size(), 2U + ROW + 1U);
    EXPECT_LT(std::find(names.begin(), names.end(), "meanwhile") - names.begin(), 2 + ROW / 2);
}

TEST_F(ServerSlowRequests, RowIsServedInItsOrder)
{
    SendRow();
    ExpectRowAnswered();
    const std::vector<std::string> names = GetNames();
    ASSERT_EQ(names.size(), 2U + ROW);
    for (int i = 0; i < ROW; ++i)
    {
        EXPECT_EQ(names[2 + static_cast<size_t>(i)], "row" + std::to_string(i + 1));
    }
    ExpectAlive(m_slow);
}

// The pieces that follow lie behind the row in the ring, or still in the socket.
TEST_F(ServerSlowRequests, WhatArrivesMeanwhileIsServedAfterTheRow)
{
    m_fnOnFirst = [this] { m_slow.Send(Wire::Namc(ROW + 1, u"after the row")); };
    SendRow();
    ExpectRowAnswered();
    EXPECT_EQ(Wire::GetU32(m_slow.ReceivePacket(), 12), static_cast<uint32_t>(ROW + 1));
    EXPECT_EQ(GetNames().back(), "after the row");
}

TEST_F(ServerSlowRequests, RowOfAPeerThatHasFinishedSendingIsServedToItsEnd)
{
    SendRow();
    m_slow.ShutdownSend();
    m_host.WaitForDisconnects(1);
    EXPECT_EQ(GetNames().back(), "row" + std::to_string(ROW));
    EXPECT_EQ(m_host.GetDisconnects().back(), "row" + std::to_string(ROW));
}

TEST_F(ServerSlowRequests, ConnectionTerminatedInItsRowEndsOnce)
{
    m_fnOnFirst = [this] { EXPECT_TRUE(m_pServer->TerminateTask(GetTask())); };
    SendRow();
    m_slow.ReceiveToEnd();
    m_host.WaitForDisconnects(1);
    const size_t nServed = GetNames().size();
    EXPECT_LT(nServed, 2U + ROW / 2) << "the end waits for one portion of the row only";
    ExpectAlive(m_other);
    EXPECT_EQ(m_host.GetDisconnects().size(), 1U);
    EXPECT_EQ(GetNames().size(), nServed + 1) << "nothing of the row is served afterwards";
}

TEST_F(ServerSlowRequests, RowThatTakesLongerThanTheKeepAliveTimeIsServedToItsEnd)
{
    m_fnOnFirst = [this] { m_clock.Advance(30001); };
    SendRow();
    m_host.WaitForRequests(2U + ROW);
    EXPECT_EQ(GetNames().back(), "row" + std::to_string(ROW));
}

TEST_F(ServerSlowRequests, PeerThatResetsInItsRowEndsOnce)
{
    m_fnOnFirst = [this] { m_slow.Reset(); };
    SendRow();
    m_host.WaitForDisconnects(1);
    ExpectAlive(m_other);
    EXPECT_EQ(m_host.GetDisconnects().size(), 1U);
}

}  // namespace
