#include "Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "RawSocket.h"

namespace
{

const unsigned int LOOPBACK = 0x7F000001;

std::string Text(const CSocketAddress& addr)
{
    char szText[100] = {};
    return addr.GetIPAddressString(szText, sizeof szText) ? szText : "(none)";
}

int GetOption(int hSocket, int nLevel, int nOption)
{
    int nValue = -1;
    socklen_t nLength = sizeof nValue;
    getsockopt(hSocket, nLevel, nOption, &nValue, &nLength);
    return nValue;
}

TEST(SocketAddress, HoldsIPv4InNetworkByteOrder)
{
    const CSocketAddress addr(0xC0A80102, 8080);
    sockaddr_in in4{};
    ASSERT_EQ(addr.GetLength(), 16U);
    memcpy(&in4, addr.GetAddress(), sizeof in4);
    EXPECT_EQ(in4.sin_family, AF_INET);
    EXPECT_EQ(in4.sin_port, htons(8080));
    EXPECT_EQ(in4.sin_addr.s_addr, inet_addr("192.168.1.2"));
    EXPECT_EQ(Text(addr), "192.168.1.2");
}

TEST(SocketAddress, KnowsIPv6)
{
    CSocketAddress addr;
    sockaddr_in6 in6{};
    in6.sin6_family = AF_INET6;
    in6.sin6_addr = in6addr_loopback;
    memcpy(static_cast<void*>(addr.GetAddress()), &in6, sizeof in6);
    EXPECT_EQ(addr.GetLength(), 28U);
    EXPECT_EQ(Text(addr), "::1");
}

TEST(SocketAddress, OfAnotherFamilyHasNoLengthAndNoText)
{
    const CSocketAddress addr;
    EXPECT_EQ(addr.GetLength(), 0U);
    EXPECT_EQ(Text(addr), "(none)");
}

TEST(SocketAddress, EqualsOnlyTheSameIPv4AddressAndPort)
{
    const CSocketAddress addr(LOOPBACK, 80);
    const CSocketAddress none;
    EXPECT_TRUE(addr == CSocketAddress(LOOPBACK, 80));
    EXPECT_FALSE(addr == CSocketAddress(LOOPBACK, 81));
    EXPECT_FALSE(addr == CSocketAddress(LOOPBACK + 1, 80));
    EXPECT_FALSE(addr == none);
    EXPECT_FALSE(none == addr);
    EXPECT_TRUE(addr.IsIPAddress(LOOPBACK));
    EXPECT_FALSE(addr.IsIPAddress(LOOPBACK + 1));
    EXPECT_FALSE(none.IsIPAddress(0));
}

TEST(SocketAddress, TextThatDoesNotFitIsRefused)
{
    char szText[9];
    EXPECT_FALSE(CSocketAddress(LOOPBACK, 0).GetIPAddressString(szText, sizeof szText));
    char szFits[10];
    EXPECT_TRUE(CSocketAddress(LOOPBACK, 0).GetIPAddressString(szFits, sizeof szFits));
}

TEST(Socket, IsInvalidUntilCreatedAndAfterClose)
{
    CSocket sock;
    EXPECT_EQ(sock.m_hSocket, -1);
    EXPECT_FALSE(sock.IsValid());
    ASSERT_TRUE(sock.CreateBound(CSocketAddress(LOOPBACK, 0)));
    EXPECT_TRUE(sock.IsValid());
    sock.Close();
    EXPECT_FALSE(sock.IsValid());
    sock.Close();
}

TEST(Socket, Descriptor0IsValid)
{
    CSocket sock;
    sock.m_hSocket = 0;
    EXPECT_TRUE(sock.IsValid());
}

TEST(Socket, CreateBoundReusesTheAddressAndClosesOnExec)
{
    CSocket sock;
    ASSERT_TRUE(sock.CreateBound(CSocketAddress(LOOPBACK, 0)));
    EXPECT_NE(GetOption(sock.m_hSocket, SOL_SOCKET, SO_REUSEADDR), 0);
    EXPECT_NE(fcntl(sock.m_hSocket, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(GetOption(sock.m_hSocket, SOL_SOCKET, SO_DOMAIN), AF_INET);
    EXPECT_EQ(GetOption(sock.m_hSocket, SOL_SOCKET, SO_TYPE), SOCK_STREAM);
    sock.Close();
}

TEST(Socket, FailedBindLeavesNothingOpen)
{
    const CRawServer other;
    const int hNext = dup(0);
    close(hNext);
    CSocket sock;
    EXPECT_FALSE(sock.CreateBound(CSocketAddress(0x08080808, other.GetPort())));
    EXPECT_EQ(sock.m_hSocket, -1);
    const int hSame = dup(0);
    EXPECT_EQ(hSame, hNext) << "a descriptor was left open";
    close(hSame);
}

TEST(Socket, SetNonBlockingKeepsOtherFlagsAndFailsOnNothing)
{
    CSocket sock;
    EXPECT_FALSE(sock.SetNonBlocking());
    ASSERT_TRUE(sock.CreateBound(CSocketAddress(LOOPBACK, 0)));
    fcntl(sock.m_hSocket, F_SETFL, O_APPEND);
    EXPECT_TRUE(sock.SetNonBlocking());
    EXPECT_EQ(fcntl(sock.m_hSocket, F_GETFL) & (O_NONBLOCK | O_APPEND), O_NONBLOCK | O_APPEND);
    sock.Close();
}

TEST(Socket, SetNoDelaySetsTheOption)
{
    CSocket sock;
    EXPECT_FALSE(sock.SetNoDelay());
    ASSERT_TRUE(sock.CreateBound(CSocketAddress(LOOPBACK, 0)));
    EXPECT_TRUE(sock.SetNoDelay());
    EXPECT_NE(GetOption(sock.m_hSocket, IPPROTO_TCP, TCP_NODELAY), 0);
    sock.Close();
}

TEST(Socket, ErrorOfANonSocketIsErrno)
{
    CSocket sock;
    EXPECT_EQ(sock.GetSocketError(), EBADF);
}

TEST(Socket, ConnectSucceedsOrIsUnderWay)
{
    CRawServer server;
    CSocket sock;
    ASSERT_TRUE(sock.CreateBound(CSocketAddress(0, 0)));
    ASSERT_TRUE(sock.SetNonBlocking());
    EXPECT_TRUE(sock.Connect(CSocketAddress(LOOPBACK, server.GetPort())));
    EXPECT_TRUE(server.Accept().IsOpen());
    CSocketAddress addrPeer;
    EXPECT_TRUE(sock.GetPeerAddress(addrPeer));
    EXPECT_EQ(Text(addrPeer), "127.0.0.1");
    sock.Close();
}

TEST(Socket, ConnectThatWaitsSucceedsAtOnce)
{
    CRawServer server;
    CSocket sock;
    ASSERT_TRUE(sock.CreateBound(CSocketAddress(LOOPBACK, 0)));
    EXPECT_TRUE(sock.Connect(CSocketAddress(LOOPBACK, server.GetPort())));
    EXPECT_TRUE(server.Accept().IsOpen());
    EXPECT_FALSE(sock.IsConnectedToItself());
    sock.Close();
}

TEST(Socket, ConnectThatIsRefusedAtOnceIsFalse)
{
    CSocket sock;
    ASSERT_TRUE(sock.CreateBound(CSocketAddress(LOOPBACK, 0)));
    EXPECT_FALSE(sock.Connect(CSocketAddress(LOOPBACK, FreePort())));
    EXPECT_EQ(errno, ECONNREFUSED);
    sock.Close();
}

TEST(Socket, ShutdownSendEndsOneDirectionOnly)
{
    CSocketPair pair;
    CSocket sock;
    sock.m_hSocket = pair.m_near.GetHandle();
    sock.ShutdownSend();
    EXPECT_TRUE(pair.m_far.IsClosedByPeer());
    EXPECT_TRUE(pair.m_far.Send("still here"));
    EXPECT_EQ(pair.m_near.Receive(10), "still here");
}

}  // namespace
