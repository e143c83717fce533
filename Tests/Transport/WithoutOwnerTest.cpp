// Streams and listeners that nobody has derived from: their callbacks do nothing, and they still
// move bytes, close and end.

#include <gtest/gtest.h>

#include "ClientTCPStream.h"
#include "LoopFixture.h"
#include "OpenStream.h"
#include "RawSocket.h"
#include "TCPListener.h"

namespace
{

const unsigned int LOOPBACK = 0x7F000001;

using WithoutOwner = CLoopTest;

TEST_F(WithoutOwner, StreamConnectsSendsReceivesAndEnds)
{
    CRawServer server;
    CTCPStream stream(&m_engine);
    ASSERT_TRUE(stream.Create(CSocketAddress(0, 0)));
    ASSERT_TRUE(stream.Connect(CSocketAddress(LOOPBACK, server.GetPort())));
    CTextBuffer out("out");
    CTextBuffer in(10);
    EXPECT_TRUE(stream.Send(&out));
    EXPECT_TRUE(stream.Receive(&in));
    CRawSocket peer = server.Accept();
    peer.Send("in");
    RunUntil("both buffers", [&] { return !out.IsQueued() && in.GetText() == "in"; });
    EXPECT_EQ(peer.Receive(3), "out");
    RunPasses(2);  // the connection's own event may come behind them
    EXPECT_TRUE(stream.InitiateDestroy());
    RunPasses(1);
    EXPECT_TRUE(peer.IsClosedByPeer());
    EXPECT_FALSE(stream.IsPendingDestroy());
}

TEST_F(WithoutOwner, StreamKeepsItsSocketAfterACloseAndAReset)
{
    for (const bool bReset : {false, true})
    {
        CSocketPair pair;
        CTCPStream stream(&m_engine);
        ASSERT_TRUE(stream.Attach(pair.m_near.Release(), true));
        CTextBuffer in(10);
        EXPECT_TRUE(stream.Receive(&in));
        bReset ? pair.m_far.Reset() : pair.m_far.Close();
        RunPasses(3);
        EXPECT_EQ(m_engine.m_nIOHandlers, 1) << "the owner decides";
        EXPECT_TRUE(in.IsQueued()) << "nothing came into it";
        stream.Destroy();
        EXPECT_EQ(m_engine.m_nIOHandlers, 0);
    }
}

TEST_F(WithoutOwner, ClientStreamEnds)
{
    CSocketPair pair;
    CClientTCPStream stream(&m_engine);
    ASSERT_TRUE(stream.Attach(pair.m_near.Release(), true));
    EXPECT_TRUE(stream.InitiateDestroy());
    RunPasses(1);
    EXPECT_FALSE(stream.IsPendingDestroy());
    EXPECT_TRUE(pair.m_far.IsClosedByPeer());
}

TEST_F(WithoutOwner, ListenerOutlivesAFailedAcceptAndEnds)
{
    CTCPListener listener(&m_engine);
    ASSERT_TRUE(listener.Create(CSocketAddress(LOOPBACK, 0), 1));
    listener.ProcessInput();  // nobody is there: EAGAIN
    EXPECT_EQ(m_engine.m_nIOHandlers, 1);
    EXPECT_TRUE(listener.InitiateDestroy());
    RunPasses(1);
    EXPECT_EQ(m_engine.m_nIOHandlers, 0);
    EXPECT_TRUE(listener.Create(CSocketAddress(LOOPBACK, 0), 1)) << "and it can listen again";
}

}  // namespace
