#include <gtest/gtest.h>

#include <cerrno>

#include "LoopFixture.h"
#include "OpenStream.h"
#include "StdoutCapture.h"

namespace
{

const unsigned int LOOPBACK = 0x7F000001;

class CConnectTest : public CLoopTest
{
protected:
    CConnectTest()
    {
        EXPECT_TRUE(m_stream.Create(CSocketAddress(0, 0)));
    }
    void Connect(unsigned short wPort)
    {
        EXPECT_TRUE(m_stream.Connect(CSocketAddress(LOOPBACK, wPort)));
    }

    CRawServer m_server;
    COpenStream m_stream{&m_engine};
};
using TCPStreamConnect = CConnectTest;

TEST_F(TCPStreamConnect, SucceedsOnceAndCarriesData)
{
    Connect(m_server.GetPort());
    EXPECT_FALSE(m_stream.m_bConnected);
    RunUntil("the connection", [&] { return m_stream.m_bConnected; });
    CRawSocket peer = m_server.Accept();
    CTextBuffer out("out");
    CTextBuffer in(10);
    m_stream.Send(&out);
    m_stream.Receive(&in);
    peer.Send("in");
    RunUntil("both buffers",
             [&] { return m_stream.m_nReceived == 1 && m_stream.m_sent.size() == 1; });
    EXPECT_EQ(peer.Receive(3), "out");
    EXPECT_EQ(in.GetText(), "in");
    EXPECT_EQ(m_stream.Count("connected"), 1);
}

TEST_F(TCPStreamConnect, RefusedIsANetworkErrorAndNeverConnected)
{
    const CStdoutCapture capture;
    Connect(FreePort());
    RunUntil("the refusal", [&] { return !m_stream.m_errors.empty(); });
    EXPECT_EQ(m_stream.m_errors.front(), ECONNREFUSED);
    EXPECT_EQ(m_stream.Count("connected"), 0);
    EXPECT_EQ(capture.Count("CTCPStream::ProcessOutputError 1\r\n"), 1);
    EXPECT_TRUE(m_stream.m_sock.IsValid()) << "the owner decides";
}

// Registered but not connected, a socket reports itself writable and hung up.
TEST_F(TCPStreamConnect, SocketThatIsNotConnectedYetReportsNothing)
{
    RunPasses(3);
    EXPECT_TRUE(m_stream.m_calls.empty());
    EXPECT_FALSE(m_stream.m_bConnected);
    Connect(m_server.GetPort());
    RunUntil("the connection", [&] { return m_stream.m_bConnected; });
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"connected"}));
}

TEST_F(TCPStreamConnect, BuffersQueuedBeforeItGoOutAfterIt)
{
    CTextBuffer out("first");
    Connect(m_server.GetPort());
    m_stream.Send(&out);
    RunUntil("the buffer", [&] { return m_stream.m_sent.size() == 1; });
    EXPECT_EQ(m_server.Accept().Receive(5), "first");
}

TEST_F(TCPStreamConnect, CallbackMayDestroyTheStream)
{
    m_stream.m_fnOnCall = [&](const std::string&) { m_stream.Destroy(); };
    CTextBuffer out("never");
    Connect(m_server.GetPort());
    RunUntil("the connection", [&] { return m_stream.Count("connected") == 1; });
    m_stream.m_fnOnCall = nullptr;
    RunPasses(2);
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"connected"}));
    EXPECT_TRUE(m_server.Accept().IsClosedByPeer());
}

TEST_F(TCPStreamConnect, CallbackMayInitiateDestroyAndNothingIsSent)
{
    m_stream.m_fnOnCall = [&](const std::string&) { m_stream.InitiateDestroy(); };
    CTextBuffer out("never");
    Connect(m_server.GetPort());
    m_stream.m_bCanSend = false;
    m_stream.Send(&out);
    RunUntil("the destroy", [&] { return m_stream.Count("destroyed") == 1; });
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"connected", "destroyed"}));
    EXPECT_EQ(m_server.Accept().ReceiveToEnd(), "");
}

TEST_F(TCPStreamConnect, CallbackMayReplaceTheConnectionAndNothingOfTheOldOneIsSent)
{
    CSocketPair pair;
    CTextBuffer out("never");
    m_stream.m_fnOnCall = [&](const std::string& strWhat)
    {
        if (strWhat == "connected")
        {
            m_stream.Destroy();
            EXPECT_TRUE(m_stream.Adopt(pair.m_near));
        }
    };
    Connect(m_server.GetPort());
    m_stream.m_bCanSend = false;
    m_stream.Send(&out);
    RunUntil("the connection", [&] { return m_stream.Count("connected") == 1; });
    RunPasses(2);
    EXPECT_TRUE(m_server.Accept().IsClosedByPeer());
    EXPECT_TRUE(pair.m_far.IsSilent());
    EXPECT_FALSE(out.IsQueued());
}

TEST_F(TCPStreamConnect, RefusedMayConnectAgainInsideTheCallback)
{
    int nErrors = 0;
    m_stream.m_fnOnCall = [&](const std::string& strWhat)
    {
        if (strWhat == "error" && ++nErrors == 1)
        {
            m_stream.Destroy();
            m_stream.Create(CSocketAddress(0, 0));
            m_stream.Connect(CSocketAddress(LOOPBACK, m_server.GetPort()));
        }
    };
    Connect(FreePort());
    RunUntil("the second attempt", [&] { return m_stream.m_bConnected; });
    EXPECT_TRUE(m_server.Accept().IsOpen());
    EXPECT_EQ(m_stream.Count("connected"), 1);
}

TEST_F(TCPStreamConnect, CreateOnATakenPortFailsAndLeavesNothing)
{
    COpenStream stream(&m_engine);
    const int nBefore = m_engine.m_nIOHandlers;
    EXPECT_FALSE(stream.Create(CSocketAddress(0x08080808, 0)));
    EXPECT_FALSE(stream.m_sock.IsValid());
    EXPECT_EQ(m_engine.m_nIOHandlers, nBefore);
}

TEST_F(TCPStreamConnect, FailedCreateUnlinksWhatWasQueuedBefore)
{
    COpenStream stream(&m_engine);
    CTextBuffer out("never");
    CTextBuffer in(10);
    stream.Send(&out);
    stream.Receive(&in);
    EXPECT_FALSE(stream.Create(CSocketAddress(0x08080808, 0)));
    EXPECT_FALSE(out.IsQueued());
    EXPECT_FALSE(in.IsQueued());
    EXPECT_FALSE(stream.m_handlerDeferredIO.m_bQueued);
}

TEST_F(TCPStreamConnect, CreateWithoutAnEngineFailsAndClosesTheSocket)
{
    CIOEngine engine;
    COpenStream stream(&engine);
    EXPECT_FALSE(stream.Create(CSocketAddress(0, 0)));
    EXPECT_FALSE(stream.m_sock.IsValid());
}

}  // namespace
