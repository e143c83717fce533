#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "ServerFixture.h"
#include "StdoutCapture.h"
#include "SystemCalls.h"

namespace
{

class CStreamTest : public CUntimedServerTest
{
protected:
    CStreamTest()
    {
        Start();
    }
};
using ServerStream = CStreamTest;

TEST_F(ServerStream, TwoPacketsInOneReceiveAreBothProcessed)
{
    CRawSocket peer = Connect();
    peer.Send(Wire::Brow() + Wire::Namc(1, u"a") + Wire::Namc(2, u"b"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 12), 1U);
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 12), 2U);
}

TEST_F(ServerStream, PacketsSplitAtEveryByteAreProcessedOnceComplete)
{
    const std::string strRequests = Wire::Namc(5, u"\u00C4b") + Wire::Delt(6, u"/nothing/there");
    for (size_t nSplit = 1; nSplit < strRequests.size(); ++nSplit)
    {
        CRawSocket peer = Connect();
        peer.Send(Wire::Brow() + strRequests.substr(0, nSplit));
        if (nSplit >= Wire::Namc(5, u"\u00C4b").size())
        {
            // The first is answered before the second is there: the split is one of receives too.
            EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "NAMR");
            peer.Send(strRequests.substr(nSplit));
        }
        else
        {
            peer.Send(strRequests.substr(nSplit));
            EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "NAMR");
        }
        EXPECT_EQ(Hex(Wire::WithoutVersion(peer.ReceivePacket())),
                  Hex(Wire::WithoutVersion(Wire::Result("DTRT", 6, 0))))
            << nSplit;
    }
}

TEST_F(ServerStream, KeepAsTheFirstPacketIsAcceptedAndChoosesNoHandler)
{
    CRawSocket peer = Connect();
    peer.Send(Wire::Keep() + Wire::Keep());
    peer.Send(Wire::Brow());
    ExpectAlive(peer);
}

TEST_F(ServerStream, KeepWithAPayloadConsumesIt)
{
    CRawSocket peer = Connect();
    peer.Send(Wire::Packet("KEEP", Pattern(1000)) + Wire::Brow());
    ExpectAlive(peer);
}

TEST_F(ServerStream, LargestPacketIsAccepted)
{
    CRawSocket peer = Connect();
    peer.Send(Wire::Packet("KEEP", Pattern(131060)) + Wire::Brow());
    ExpectAlive(peer);
}

TEST_F(ServerStream, FirstPacketOfAnyOtherCodeIsRefused)
{
    const CStdoutCapture capture;
    int nRefused = 0;
    for (const std::string& strPacket :
         {Wire::Namc(1, u"x"), Wire::Delt(1, u"/x"), Wire::Dfil(1, 0, u"/x"), Wire::Caop(1),
          Wire::Upfb(1, 1, ""), Wire::Packet("CPKT", "data"), Wire::Packet("????", "")})
    {
        CRawSocket peer = Connect();
        peer.Send(strPacket + Wire::Brow());
        ExpectRefused(peer);
        ++nRefused;
        EXPECT_EQ(
            capture.Count("COspreyServerStream, ProcessDataReceived() ProcessRequest error\n"),
            nRefused);
    }
    EXPECT_TRUE(m_host.GetRequests().empty());
}

TEST_F(ServerStream, Code0ChoosesNoHandlerAndIsRefused)
{
    CRawSocket peer = Connect();
    peer.Send(Wire::U32(Wire::VERSION) + Wire::U32(0) + Wire::U32(4) + "data");
    ExpectRefused(peer);
}

TEST_F(ServerStream, NothingIsReadAfterARefusedPacket)
{
    CRawSocket peer = Browse();
    peer.Send(Wire::Packet("????", "") + Wire::Namc(1, u"late"));
    ExpectRefused(peer);
    EXPECT_TRUE(m_host.GetRequests().empty());
}

// The server's end of a connection, found among the descriptors of this process.
int FindServersEnd(const CRawSocket& peer)
{
    const unsigned short wPort = GetLocalPort(peer.GetHandle());
    for (int h = 0; h < 1024; ++h)
    {
        sockaddr_in addr{};
        socklen_t nLength = sizeof addr;
        if (getpeername(h, reinterpret_cast<sockaddr*>(&addr), &nLength) == 0 &&
            addr.sin_family == AF_INET && ntohs(addr.sin_port) == wPort)
        {
            return h;
        }
    }
    ADD_FAILURE() << "the server has no such connection";
    return -1;
}

int GetNoDelay(int hSocket)
{
    int nOn = -1;
    socklen_t nLength = sizeof nOn;
    getsockopt(hSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, &nLength);
    return nOn;
}

// Without it the end of each small download waits for an acknowledgement that the peer delays.
TEST_F(ServerStream, NoDelayIsSetWhenBrowsingBegins)
{
    CRawSocket peer = Connect();
    peer.Send(Wire::Keep());
    CRawSocket later = Browse();
    ExpectAlive(later);
    EXPECT_EQ(GetNoDelay(FindServersEnd(peer)), 0);
    peer.Send(Wire::Brow());
    ExpectAlive(peer);
    EXPECT_NE(GetNoDelay(FindServersEnd(peer)), 0);
}

TEST_F(ServerStream, PeerThatClosesIsDetached)
{
    const CStdoutCapture capture;
    {
        CRawSocket peer = Named(u"brief");
    }
    m_host.WaitForDisconnects(1);
    Stop();
    EXPECT_EQ(capture.Count(" ProcessDisconnected\n"), 1);
    EXPECT_EQ(capture.Count(" InitiateDetach\n"), 1);
    EXPECT_EQ(capture.Count(" ProcessDestroied\n"), 1);
}

TEST_F(ServerStream, PeerThatResetsIsDetached)
{
    const CStdoutCapture capture;
    CRawSocket peer = Named(u"brief");
    peer.Reset();
    m_host.WaitForDisconnects(1);
    EXPECT_GE(capture.Count(" ProcessNetworkError\n"), 1);
}

// The server's worker reads a clock that the test moves; a new connection makes it look.
class CKeepAliveTest : public CUntimedServerTest
{
protected:
    CKeepAliveTest()
    {
        Start();
    }
    void Advance(long long llMilliseconds)
    {
        m_clock.Advance(llMilliseconds);
        CRawSocket peer = Browse();
        ExpectAlive(peer);
    }
};
using ServerKeepAlive = CKeepAliveTest;

TEST_F(ServerKeepAlive, SilentConnectionIsDetachedAfter30Seconds)
{
    const CStdoutCapture capture;
    CRawSocket peer = Connect();
    Advance(0);
    Advance(30000);
    EXPECT_TRUE(peer.IsSilent());
    Advance(1);
    EXPECT_TRUE(peer.IsClosedByPeer());
    EXPECT_EQ(capture.Count(" ProcessKeepAliveTimeout\n"), 1);
    EXPECT_EQ(capture.Count(" ProcessKeepAliveTimeout addrRemote:127.0.0.1\n"), 1);
}

TEST_F(ServerKeepAlive, EveryReceivedByteStartsThe30SecondsAnew)
{
    CRawSocket peer = Browse();
    ExpectAlive(peer);
    Advance(20000);
    ExpectAlive(peer);
    Advance(20000);
    ExpectAlive(peer);
    Advance(30000);
    EXPECT_TRUE(peer.IsSilent());
    Advance(1);
    EXPECT_TRUE(peer.IsClosedByPeer());
}

TEST_F(ServerKeepAlive, RefusedConnectionEndsThatWayToo)
{
    CRawSocket peer = Named(u"refused");
    peer.Send(Wire::Packet("????", ""));
    ExpectRefused(peer);
    EXPECT_TRUE(m_host.GetDisconnects().empty());
    Advance(30001);
    m_host.WaitForDisconnects(1);
}

TEST_F(ServerKeepAlive, PacketThatCanNeverCompleteEndsThatWayToo)
{
    for (const uint32_t dwSize : {131061U, 0x7FFFFFF4U, 0x80000000U, 0xFFFFFFF4U, 0xFFFFFFFFU})
    {
        CRawSocket peer = Browse();
        ExpectAlive(peer);
        peer.SendWithoutWaiting(Wire::PacketWithSize("KEEP", dwSize, Pattern(200000)));
        Advance(0);
        Advance(15000);
        EXPECT_TRUE(peer.IsSilent()) << dwSize;
        Advance(30001);
        peer.ReceiveToEnd();
    }
}

// A second descriptor of the newest connection's socket shows what the system was told for it.
class CServerSocketTest : public CUntimedServerTest
{
protected:
    CServerSocketTest()
        : m_accepting(g_callAccept4,
                      [this](int s, sockaddr* pAddress, socklen_t* pLength, int nFlags)
                      {
                          const int h = g_callAccept4.Real(s, pAddress, pLength, nFlags);
                          if (h >= 0)
                          {
                              CloseTwin(dup(h));
                          }
                          return h;
                      })
    {
        Start();
    }
    ~CServerSocketTest() override
    {
        Stop();
        CloseTwin(-1);
    }
    void CloseTwin(int hNext)
    {
        const int hLast = m_hTwin.exchange(hNext);
        if (hLast >= 0)
        {
            close(hLast);
        }
    }
    // Milliseconds; -1 when this system does not know the option.
    int GetTCPOption(int nOption) const
    {
        int nValue = 0;
        socklen_t nLength = sizeof nValue;
        return getsockopt(m_hTwin, IPPROTO_TCP, nOption, &nValue, &nLength) == 0 ? nValue : -1;
    }

    static const int RTO_MAX_MS = 44;  // TCP_RTO_MAX_MS
    std::atomic<int> m_hTwin{-1};
    const CReplacedCall<int(int, sockaddr*, socklen_t*, int)> m_accepting;
};
using ServerSocket = CServerSocketTest;

// What a peer that vanished has not acknowledged stays with the system when the connection has been
// closed, megabytes perhaps, for as long as it was told.
TEST_F(ServerSocket, DoesNotLeaveWhatIsUnsentToTheSystemForLong)
{
    const CRawSocket peer = Named(u"device");
    EXPECT_EQ(GetTCPOption(TCP_USER_TIMEOUT), 24 * 60 * 60 * 1000);
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_EQ(GetTCPOption(TCP_USER_TIMEOUT), 60000);
}

// Fifteen of them are all that a peer gets whose buffers are full: tcp(7), tcp_retries2.
TEST_F(ServerSocket, RepeatsEvery2500MsForFilesAndEverySecondForChannels)
{
    const CRawSocket files = Named(u"device");
    if (GetTCPOption(RTO_MAX_MS) < 0)
    {
        GTEST_SKIP() << "this system cannot be told so";
    }
    EXPECT_EQ(GetTCPOption(RTO_MAX_MS), 2500);
    CRawSocket reader = Connect();
    reader.Send(Wire::Ochs({7}));
    char c = 'c';
    while (m_pServer->PutChannelPacket(7, &c, 1) != 0)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(GetTCPOption(RTO_MAX_MS), 1000);
}

}  // namespace
