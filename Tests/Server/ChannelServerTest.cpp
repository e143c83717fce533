// Channels as a host meets them: the exported server object with its worker running.

#include <gtest/gtest.h>
#include <netinet/in.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "ServerFixture.h"

namespace
{

const unsigned int NO_READER = 5;

class CChannelServerTest : public CServerTest
{
protected:
    unsigned int Put(unsigned int dwChannel, const std::string& strData)
    {
        std::string strCopy = strData;
        return m_pServer->PutChannelPacket(dwChannel, strCopy.data(),
                                           static_cast<unsigned int>(strCopy.size()));
    }
    // A connection that reads the channel.
    CRawSocket Subscribe(unsigned int dwChannel, unsigned int dwFrom = INADDR_LOOPBACK)
    {
        CRawSocket peer;
        EXPECT_TRUE(peer.ConnectFrom(dwFrom, m_wPort));
        peer.Send(Wire::Ochs({dwChannel}));
        EXPECT_TRUE(ComesTrue([&] { return Put(dwChannel, "") == 0; })) << "not opened";
        return peer;
    }
    void ExpectClosed(unsigned int dwChannel)
    {
        EXPECT_TRUE(ComesTrue([&] { return Put(dwChannel, "") == NO_READER; })) << "still open";
    }
    // The next packet that holds data.
    static std::string Receive(CRawSocket& peer)
    {
        std::string strPacket = peer.ReceivePacket();
        while (strPacket.size() == 16)
        {
            strPacket = peer.ReceivePacket();
        }
        return strPacket.size() > 16 ? strPacket.substr(16) : "(nothing)";
    }

private:
    // Looks after each round trip of another connection: the worker has had a pass then.
    bool ComesTrue(const std::function<bool()>& fnCondition)
    {
        CRawSocket other = Browse();
        for (int i = 0; i < 1000; ++i)
        {
            ExpectAlive(other);
            if (fnCondition())
            {
                return true;
            }
        }
        return false;
    }
};
using ChannelServer = CChannelServerTest;

TEST_F(ChannelServer, PutBeforeStartupGives5AndTheUsageIs0)
{
    EXPECT_EQ(Put(7, "x"), NO_READER);
    EXPECT_EQ(m_pServer->PutChannelPacket(7, nullptr, 0xFFFFFFFF), NO_READER);
    EXPECT_EQ(m_pServer->GetChannelMaxBufferUsage(), 0.0F);
}

TEST_F(ChannelServer, PutOnAChannelThatNobodyReadsGives5)
{
    Start();
    EXPECT_EQ(Put(7, "x"), NO_READER);
    CRawSocket peer = Subscribe(7);
    EXPECT_EQ(Put(8, "x"), NO_READER);
    EXPECT_EQ(Put(7, "x"), 0U);
    EXPECT_EQ(Receive(peer), "x");
    peer.Close();
    ExpectClosed(7);
}

TEST_F(ChannelServer, TooMuchDataOrNoneIsRefusedOnAnOpenChannelOnly)
{
    Start();
    const CRawSocket peer = Subscribe(7);
    EXPECT_EQ(Put(7, std::string(1500, 'x')), 0U);
    EXPECT_EQ(Put(7, std::string(1501, 'x')), 4U);
    EXPECT_EQ(m_pServer->PutChannelPacket(7, nullptr, 1), 4U);
    EXPECT_EQ(m_pServer->PutChannelPacket(7, nullptr, 0xFFFFFFFF), 4U);
    EXPECT_EQ(m_pServer->PutChannelPacket(7, nullptr, 0), 0U);
    EXPECT_EQ(Put(8, std::string(1501, 'x')), NO_READER);
}

// Also right after each put, when a reader of another address than 127.0.0.1 is surely behind.
TEST_F(ChannelServer, UsageIsAlways0)
{
    Start();
    CRawSocket peer = Subscribe(7, INADDR_LOOPBACK + 1);
    for (int i = 0; i < 3000; ++i)
    {
        ASSERT_EQ(Put(7, std::string(1500, 'x')), 0U);
        ASSERT_EQ(m_pServer->GetChannelMaxBufferUsage(), 0.0F);
    }
}

TEST_F(ChannelServer, PutAfterShutdownGives5WhenNoConnectionWasLeft)
{
    Start();
    CRawSocket peer = Subscribe(7);
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_TRUE(m_pServer->Shutdown());
    EXPECT_EQ(Put(7, "x"), NO_READER);
    EXPECT_EQ(m_pServer->GetChannelMaxBufferUsage(), 0.0F);
}

TEST_F(ChannelServer, ConnectionThatOutlivesShutdownKeepsItsChannelUntilItIsEnded)
{
    Start();
    CRawSocket peer = Subscribe(7);
    EXPECT_TRUE(m_pServer->Shutdown());
    for (int i = 0; i < 3000; ++i)
    {
        ASSERT_EQ(Put(7, "x"), 0U);
    }
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_EQ(Put(7, "x"), NO_READER);
}

TEST_F(ChannelServer, NextRunBeginsWithoutChannels)
{
    Start();
    CRawSocket peer = Subscribe(7);
    peer.Send(Wire::Ochs({8}));  // leaves 7 behind
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_TRUE(m_pServer->Shutdown());
    EXPECT_EQ(Put(7, "old"), 0U) << "left behind: registered for good";
    Start();
    EXPECT_EQ(Put(7, "x"), NO_READER);
    CRawSocket again = Subscribe(7);
    EXPECT_EQ(Put(7, "new"), 0U);
    EXPECT_EQ(Receive(again), "new");
}

// A host that starts when its first put is taken loses nothing on the reader that let it in.
TEST_F(ChannelServer, FirstPutThatIsStoredIsTheFirstPacketOfTheNewReader)
{
    Start();
    for (unsigned int dwChannel = 1; dwChannel <= 200; ++dwChannel)
    {
        CRawSocket peer = Connect();
        peer.Send(Wire::Ochs({dwChannel}));
        while (Put(dwChannel, "0") == NO_READER)
        {
        }
        EXPECT_EQ(Put(dwChannel, "1"), 0U);
        EXPECT_EQ(Put(dwChannel, "2"), 0U);
        for (const char* pszExpected : {"0", "1", "2"})
        {
            ASSERT_EQ(Receive(peer), pszExpected);
        }
    }
}

TEST_F(ChannelServer, ChannelsAndFilesAreServedSideBySide)
{
    Start();
    CRawSocket reader = Subscribe(7);
    CRawSocket browser = Named(u"files");
    for (int i = 0; i < 50; ++i)
    {
        EXPECT_EQ(Put(7, std::to_string(i)), 0U);
        ExpectAlive(browser);
    }
    for (int i = 0; i < 50; ++i)
    {
        EXPECT_EQ(Receive(reader), std::to_string(i));
    }
}

TEST_F(ChannelServer, PutsGoOnWhileTheServerEndsAndStartsAgain)
{
    std::atomic<bool> bOver{false};
    std::atomic<long long> llOther{0};
    std::thread host(
        [&]
        {
            while (!bOver)
            {
                const unsigned int dwResult = Put(7, "host");
                llOther += dwResult != 0 && dwResult != NO_READER ? 1 : 0;
                m_pServer->GetChannelMaxBufferUsage();
                std::this_thread::yield();
            }
        });
    for (int i = 0; i < 5; ++i)
    {
        Start();
        CRawSocket peer = Connect();
        peer.Send(Wire::Ochs({7}));
        EXPECT_EQ(Receive(peer), "host");
        EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
        EXPECT_TRUE(m_pServer->Shutdown());
    }
    bOver = true;
    host.join();
    EXPECT_EQ(llOther, 0);
}

}  // namespace
