#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "ServerFixture.h"
#include "StdoutCapture.h"
#include "TestClock.h"

namespace
{

class CStreamTest : public CServerTest
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
class CKeepAliveTest : public CServerTest
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
    ~CKeepAliveTest() override
    {
        Stop();  // before the clock goes
    }

    CTestClock m_clock;
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

}  // namespace
