#include "TCPStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "Hex.h"
#include "LoopFixture.h"
#include "OpenStream.h"
#include "StdoutCapture.h"
#include "SystemCalls.h"

namespace
{

class CStreamTest : public CLoopTest
{
protected:
    CStreamTest()
    {
        EXPECT_TRUE(m_stream.Adopt(m_pair.m_near));
    }
    // The edge that says writable comes with the registration.
    void Settle()
    {
        RunPasses(2);
    }

    CSocketPair m_pair;
    COpenStream m_stream{&m_engine};
};
using TCPStream = CStreamTest;

TEST_F(TCPStream, StartsWithoutASocketAndPresumedReady)
{
    const COpenStream stream(&m_engine);
    EXPECT_FALSE(stream.m_sock.IsValid());
    EXPECT_FALSE(stream.m_bPendingDestroy);
    EXPECT_FALSE(stream.m_bConnected);
    EXPECT_TRUE(stream.m_bCanSend);
    EXPECT_TRUE(stream.m_bCanReceive);
}

TEST_F(TCPStream, AttachMakesTheSocketNonBlockingAndIsNoConnect)
{
    EXPECT_NE(fcntl(m_stream.m_sock.m_hSocket, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(m_stream.m_bConnected);
    EXPECT_EQ(m_engine.m_nIOHandlers, 1);
    Settle();
    EXPECT_TRUE(m_stream.m_calls.empty());
}

TEST_F(TCPStream, AttachOfABadDescriptorFailsAndLeavesItToTheCaller)
{
    COpenStream stream(&m_engine);
    EXPECT_FALSE(stream.Attach(9999, true));
    EXPECT_FALSE(stream.m_sock.IsValid());
    // A regular file is a good descriptor, but none that epoll takes.
    FILE* pFile = tmpfile();
    EXPECT_FALSE(stream.Attach(fileno(pFile), true));
    EXPECT_FALSE(stream.m_sock.IsValid());
    EXPECT_NE(fcntl(fileno(pFile), F_GETFD), -1) << "not the stream's to close";
    fclose(pFile);
}

TEST_F(TCPStream, SystemIsToldWhatMoreFollows)
{
    Settle();
    std::vector<int> flags;
    const CReplacedCall sending(g_callSend,
                                [&](int s, const void* pData, size_t nSize, int nFlags)
                                {
                                    flags.push_back(nFlags);
                                    return g_callSend.Real(s, pData, nSize, nFlags);
                                });
    CTextBuffer first("first");
    CTextBuffer last("last");
    first.m_bMoreFollows = true;
    m_stream.Send(&first);
    m_stream.Send(&last);
    RunPasses(1);
    EXPECT_EQ(flags, (std::vector<int>{MSG_NOSIGNAL | MSG_MORE, MSG_NOSIGNAL}));
    EXPECT_EQ(m_pair.m_far.Receive(9), "firstlast");
}

TEST_F(TCPStream, SendOfAnEmptyBufferIsRefused)
{
    CTextBuffer buffer(10);
    EXPECT_FALSE(m_stream.Send(&buffer));
    EXPECT_EQ(m_stream.m_listSend.GetSize(), 0);
    EXPECT_FALSE(m_stream.m_handlerDeferredIO.m_bQueued);
}

TEST_F(TCPStream, ReceiveIntoAFullBufferIsRefused)
{
    CTextBuffer buffer("full");
    EXPECT_FALSE(m_stream.Receive(&buffer));
    EXPECT_EQ(m_stream.m_listReceive.GetSize(), 0);
}

TEST_F(TCPStream, NothingIsSentInsideSend)
{
    CTextBuffer buffer("hello");
    EXPECT_TRUE(m_stream.Send(&buffer));
    EXPECT_TRUE(m_pair.m_far.IsSilent());
    EXPECT_EQ(buffer.GetDataSize(), 5);
    RunPasses(1);
    EXPECT_EQ(m_pair.m_far.Receive(5), "hello");
}

TEST_F(TCPStream, BufferQueuedAlreadyIsNotQueuedTwice)
{
    CTextBuffer buffer("once");
    EXPECT_TRUE(m_stream.Send(&buffer));
    EXPECT_TRUE(m_stream.Send(&buffer));
    EXPECT_EQ(m_stream.m_listSend.GetSize(), 1);
    RunPasses(2);
    EXPECT_EQ(m_stream.Count("sent"), 1);
}

TEST_F(TCPStream, TwoSendsGiveOneDeferredAttemptThatSendsBothInOrder)
{
    Settle();
    CTextBuffer first("first ");
    CTextBuffer second("second");
    m_stream.Send(&first);
    m_stream.Send(&second);
    EXPECT_EQ(m_engine.m_listDeferred.GetSize(), 1);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(m_stream.m_sent, (std::vector<CTCPStreamBuffer*>{&first, &second}));
    EXPECT_EQ(m_pair.m_far.Receive(12), "first second");
}

TEST_F(TCPStream, WhileNotWritableSendWaitsForTheEdge)
{
    Settle();
    m_stream.m_bCanSend = false;
    CTextBuffer buffer("later");
    EXPECT_TRUE(m_stream.Send(&buffer));
    EXPECT_FALSE(m_stream.m_handlerDeferredIO.m_bQueued);
    EXPECT_EQ(m_stream.m_listSend.GetSize(), 1);
    m_stream.ProcessOutput();
    EXPECT_EQ(m_stream.Count("sent"), 1);
}

TEST_F(TCPStream, PartiallySentBufferStaysAheadOfLaterOnes)
{
    Settle();
    CTextBuffer first("0123456789");
    CTextBuffer second("abc");
    m_stream.Send(&first);
    m_stream.Send(&second);
    {
        int nCalls = 0;
        const CReplacedCall some(g_callSend,
                                 [&](int s, const void* pData, size_t, int nFlags)
                                 {
                                     if (++nCalls == 1)
                                     {
                                         return g_callSend.Real(s, pData, 4, nFlags);
                                     }
                                     errno = EAGAIN;
                                     return static_cast<ssize_t>(-1);
                                 });
        m_engine.ProcessDeferredHandlers();
        EXPECT_EQ(nCalls, 2);
    }
    EXPECT_TRUE(m_stream.m_sent.empty());
    EXPECT_FALSE(m_stream.m_bCanSend);
    EXPECT_EQ(first.GetText(), "456789");
    EXPECT_EQ(m_stream.m_listSend.GetHead(), &first);
    CTextBuffer third("XYZ");
    m_stream.Send(&third);
    m_stream.ProcessOutput();
    EXPECT_EQ(m_stream.m_sent, (std::vector<CTCPStreamBuffer*>{&first, &second, &third}));
    EXPECT_EQ(m_pair.m_far.Receive(16), "0123456789abcXYZ");
}

TEST_F(TCPStream, MoreThanTheSocketHoldsArrivesWholeAndInOrder)
{
    const int nSmall = 8192;
    setsockopt(m_stream.m_sock.m_hSocket, SOL_SOCKET, SO_SNDBUF, &nSmall, sizeof nSmall);
    const std::string strBig = Pattern(3000000);
    CTextBuffer big(strBig);
    CTextBuffer tail("tail");
    m_stream.Send(&big);
    m_stream.Send(&tail);
    std::string strArrived;
    RunUntil("everything to be sent",
             [&]
             {
                 char szPart[65536];
                 ssize_t nPart = 0;
                 while ((nPart = recv(m_pair.m_far.GetHandle(), szPart, sizeof szPart,
                                      MSG_DONTWAIT)) > 0)
                 {
                     strArrived.append(szPart, static_cast<size_t>(nPart));
                 }
                 return strArrived.size() == strBig.size() + 4;
             });
    EXPECT_EQ(Hex(strArrived), Hex(strBig + "tail"));
    EXPECT_EQ(m_stream.m_sent, (std::vector<CTCPStreamBuffer*>{&big, &tail}));
}

TEST_F(TCPStream, EachReceiveGivesOneRecvWhetherFullOrNot)
{
    CTextBuffer first(100);
    CTextBuffer second(3);
    CTextBuffer third(100);
    m_stream.Receive(&first);
    m_pair.m_far.Send("hello");
    RunUntil("the first buffer", [&] { return m_stream.m_nReceived == 1; });
    EXPECT_EQ(m_stream.m_pLast, &first);
    EXPECT_EQ(first.GetText(), "hello");
    m_stream.Receive(&second);
    m_stream.Receive(&third);
    m_pair.m_far.Send("world");
    RunUntil("two more buffers", [&] { return m_stream.m_nReceived == 3; });
    EXPECT_EQ(second.GetText(), "wor");
    EXPECT_EQ(third.GetText(), "ld");
    EXPECT_FALSE(first.IsQueued()) << "back in the owner's hands";
}

TEST_F(TCPStream, ReadinessWithoutABufferIsKeptForTheNextReceive)
{
    m_pair.m_far.Send("early");
    RunPasses(3);
    EXPECT_TRUE(m_stream.m_bCanReceive);
    CTextBuffer buffer(100);
    m_stream.Receive(&buffer);
    EXPECT_EQ(m_stream.m_nReceived, 0);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(m_stream.m_nReceived, 1);
    EXPECT_EQ(buffer.GetText(), "early");
}

TEST_F(TCPStream, InterruptedCallsAreRepeatedAtOnce)
{
    CTextBuffer out("out");
    CTextBuffer in(10);
    m_pair.m_far.Send("in");
    int nCalls = 0;
    const auto interrupt = [&nCalls]
    {
        errno = EINTR;
        return ++nCalls % 2 != 0;
    };
    const CReplacedCall sendCall(
        g_callSend, [&](int s, const void* pData, size_t n, int nFlags)
        { return interrupt() ? -1 : g_callSend.Real(s, pData, n, nFlags); });
    const CReplacedCall recvCall(
        g_callRecv, [&](int s, void* pData, size_t n, int nFlags)
        { return interrupt() ? -1 : g_callRecv.Real(s, pData, n, nFlags); });
    m_stream.Send(&out);
    m_stream.Receive(&in);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(m_stream.Count("sent"), 1);
    EXPECT_EQ(m_stream.Count("received"), 1);
    EXPECT_EQ(nCalls, 4);
}

TEST_F(TCPStream, PeerThatClosesIsReportedOnceAndNothingReceived)
{
    CTextBuffer buffer(100);
    m_stream.Receive(&buffer);
    Settle();
    m_pair.m_far.Close();
    RunUntil("the disconnection", [&] { return !m_stream.m_calls.empty(); });
    RunPasses(3);
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"disconnected"}));
    EXPECT_FALSE(m_stream.m_bDeferredAtEnd);
    EXPECT_TRUE(m_stream.m_sock.IsValid()) << "the owner decides";
    EXPECT_TRUE(buffer.IsQueued());
    m_stream.Destroy();
}

// The deferred attempt meets the end before the wait fetches the edge that tells of it.
TEST_F(TCPStream, PeersCloseSeenBeforeItsEdgeIsReportedOnce)
{
    Settle();
    m_pair.m_far.Close();
    CTextBuffer buffer(100);
    m_stream.Receive(&buffer);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"disconnected"}));
    int nEdges = 0;
    {
        const CStdoutCapture capture;
        RunPasses(3);
        nEdges = capture.Count("CTCPStream::ProcessInput 1\r\n");
    }
    EXPECT_EQ(nEdges, 1) << "the edge comes all the same";
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"disconnected"}));
    m_stream.Destroy();
}

TEST_F(TCPStream, NextSocketsEndIsReportedToo)
{
    CTextBuffer buffer(100);
    for (int i = 1; i <= 3; ++i)
    {
        CSocketPair other;
        m_stream.Destroy();
        ASSERT_TRUE(m_stream.Adopt(other.m_near));
        m_stream.Receive(&buffer);
        other.m_far.Close();
        RunUntil("the disconnection", [&] { return m_stream.Count("disconnected") == i; });
    }
    m_stream.Destroy();
}

TEST_F(TCPStream, EndOfTheConnectionWithdrawsTheDeferredAttempt)
{
    Settle();
    CTextBuffer in(10);
    m_stream.Receive(&in);
    m_engine.ProcessDeferredHandlers();
    m_pair.m_far.ShutdownSend();
    CTextBuffer out("never");
    m_stream.Send(&out);
    EXPECT_TRUE(m_stream.m_handlerDeferredIO.m_bQueued);
    m_stream.ProcessInput();
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"disconnected"}));
    EXPECT_FALSE(m_stream.m_bDeferredAtEnd);
    m_stream.Destroy();
}

TEST_F(TCPStream, ErrorWithdrawsTheDeferredAttempt)
{
    Settle();
    CTextBuffer out("never");
    m_stream.Send(&out);
    EXPECT_TRUE(m_stream.m_handlerDeferredIO.m_bQueued);
    m_stream.ProcessError();
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"error"}));
    EXPECT_FALSE(m_stream.m_bDeferredAtEnd);
    m_stream.Destroy();
}

TEST_F(TCPStream, SendOf0BytesIsADisconnection)
{
    Settle();
    CTextBuffer buffer("x");
    m_stream.Send(&buffer);
    const CReplacedCall none(g_callSend, [](int, const void*, size_t, int) { return ssize_t{0}; });
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"disconnected"}));
    EXPECT_FALSE(m_stream.m_bCanSend);
    m_stream.Destroy();
}

TEST_F(TCPStream, FailedSendIsPrintedAndReportedWithItsError)
{
    Settle();
    CTextBuffer buffer("x");
    m_stream.Send(&buffer);
    const CReplacedCall fail(g_callSend,
                             [](int, const void*, size_t, int)
                             {
                                 errno = ETIMEDOUT;
                                 return static_cast<ssize_t>(-1);
                             });
    const CStdoutCapture capture;
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(m_stream.m_errors, (std::vector<int>{ETIMEDOUT}));
    EXPECT_EQ(capture.Count("CTCPStream::SendError 1\r\n"), 1);
    EXPECT_FALSE(m_stream.m_bCanSend);
    EXPECT_FALSE(m_stream.m_bDeferredAtEnd);
    m_stream.Destroy();
}

TEST_F(TCPStream, FailedReceiveIsPrintedAndReportedWithItsError)
{
    Settle();
    CTextBuffer buffer(10);
    m_stream.Receive(&buffer);
    const CReplacedCall fail(g_callRecv,
                             [](int, void*, size_t, int)
                             {
                                 errno = ETIMEDOUT;
                                 return static_cast<ssize_t>(-1);
                             });
    const CStdoutCapture capture;
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(m_stream.m_errors, (std::vector<int>{ETIMEDOUT}));
    EXPECT_EQ(capture.GetText(), "CTCPStream::DoReceive 1\r\nCTCPStream::ReceiveError 1\r\n");
    EXPECT_FALSE(m_stream.m_bCanReceive);
    m_stream.Destroy();
}

TEST_F(TCPStream, EventsPrintTheirTraceLines)
{
    const CStdoutCapture capture;
    m_stream.ProcessInput();
    m_stream.ProcessOutput();
    m_stream.ProcessError();
    m_stream.ProcessHangUp();
    EXPECT_EQ(capture.GetText(),
              "CTCPStream::ProcessInput 1\r\n"
              "CTCPStream::DoReceive 1\r\n"
              "CTCPStream::ProcessOutput 1\r\n"
              "CTCPStream::ProcessError 1\r\n");
    EXPECT_EQ(m_stream.m_errors, (std::vector<int>{0})) << "the error was taken already";
}

TEST_F(TCPStream, EventsWithoutASocketPrintAndDoNothing)
{
    COpenStream stream(&m_engine);
    const CStdoutCapture capture;
    stream.ProcessInput();
    stream.ProcessOutput();
    stream.ProcessError();
    EXPECT_EQ(capture.GetText(), "CTCPStream::ProcessInput 1\r\nCTCPStream::ProcessOutput 1\r\n");
    EXPECT_TRUE(stream.m_calls.empty());
}

// The default action of SIGPIPE would end this process.
TEST_F(TCPStream, SendAfterTheEndRaisesNoSignal)
{
    Settle();
    shutdown(m_stream.m_sock.m_hSocket, SHUT_WR);
    CTextBuffer buffer("x");
    m_stream.Send(&buffer);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(m_stream.m_errors, (std::vector<int>{EPIPE}));
    m_stream.Destroy();
}

TEST_F(TCPStream, PeersResetIsANetworkError)
{
    CTextBuffer buffer(100);
    m_stream.Receive(&buffer);
    m_pair.m_far.Reset();
    RunUntil("the error", [&] { return !m_stream.m_errors.empty(); });
    EXPECT_EQ(m_stream.m_errors.front(), ECONNRESET);
    EXPECT_EQ(m_stream.Count("received"), 0);
    m_stream.Destroy();
}

TEST_F(TCPStream, DestroyUnlinksTheQueuedBuffersWithoutReportingThem)
{
    CSocketPair other;
    COpenStream second(&m_engine);
    second.Adopt(other.m_near);
    CTextBuffer out("moved");
    CTextBuffer in(10);
    m_stream.Send(&out);
    m_stream.Receive(&in);
    m_stream.Destroy();
    EXPECT_TRUE(m_pair.m_far.IsClosedByPeer());
    EXPECT_FALSE(out.IsQueued());
    EXPECT_FALSE(in.IsQueued());
    EXPECT_FALSE(m_stream.m_bConnected);
    EXPECT_EQ(m_engine.m_nIOHandlers, 1);
    EXPECT_TRUE(second.Send(&out));
    EXPECT_TRUE(second.Receive(&in));
    RunPasses(2);
    EXPECT_TRUE(m_stream.m_calls.empty());
    EXPECT_EQ(other.m_far.Receive(5), "moved");
}

TEST_F(TCPStream, DestroyedOneMayBeAttachedAgain)
{
    m_stream.Destroy();
    m_stream.Destroy();
    CSocketPair other;
    ASSERT_TRUE(m_stream.Adopt(other.m_near));
    CTextBuffer buffer("again");
    m_stream.Send(&buffer);
    RunPasses(1);
    EXPECT_EQ(other.m_far.Receive(5), "again");
}

TEST_F(TCPStream, InitiateDestroyTearsDownInTheNextDeferredPass)
{
    CTextBuffer out("never");
    CTextBuffer in(10);
    EXPECT_TRUE(m_stream.InitiateDestroy());
    EXPECT_FALSE(m_stream.InitiateDestroy()) << "under way";
    EXPECT_FALSE(m_stream.Send(&out));
    EXPECT_FALSE(m_stream.Receive(&in));
    m_stream.ProcessInput();
    m_stream.ProcessOutput();
    m_stream.ProcessError();
    EXPECT_TRUE(m_stream.m_calls.empty());
    EXPECT_TRUE(m_stream.m_sock.IsValid());
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"destroyed"}));
    EXPECT_FALSE(m_stream.m_sock.IsValid());
    EXPECT_FALSE(m_stream.IsPendingDestroy());
    EXPECT_FALSE(m_stream.InitiateDestroy()) << "no socket";
}

TEST_F(TCPStream, MayBeDeletedWhenDestroyed)
{
    CSocketPair other;
    COpenStream* pStream = new COpenStream(&m_engine);
    pStream->Adopt(other.m_near);
    const std::function<void()> fnDelete = [&] { delete pStream; };
    pStream->m_fnOnCall = [&fnDelete](const std::string&) { fnDelete(); };
    pStream->InitiateDestroy();
    RunPasses(2);
    EXPECT_TRUE(other.m_far.IsClosedByPeer());
}

// The engine was destroyed before the deferred destroy could run: it must not hit the next socket.
TEST_F(TCPStream, AttachWithdrawsAStaleDestroy)
{
    m_stream.InitiateDestroy();
    m_engine.Destroy();
    m_stream.m_bPendingDestroy = false;
    m_stream.Destroy();
    ASSERT_TRUE(m_engine.Create(64));
    CSocketPair other;
    ASSERT_TRUE(m_stream.Adopt(other.m_near));
    RunPasses(2);
    EXPECT_TRUE(m_stream.m_sock.IsValid());
    EXPECT_TRUE(m_stream.InitiateDestroy());
    RunPasses(1);
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"destroyed"}));
}

TEST_F(TCPStream, CallbackMayDestroyItsStreamWhileMoreIsThere)
{
    CTextBuffer buffers[3] = {CTextBuffer(1), CTextBuffer(1), CTextBuffer(1)};
    for (CTextBuffer& buffer : buffers)
    {
        m_stream.Receive(&buffer);
    }
    m_stream.m_fnOnCall = [&](const std::string&) { m_stream.Destroy(); };
    m_pair.m_far.Send("abc");
    RunUntil("the first buffer", [&] { return m_stream.m_nReceived > 0; });
    RunPasses(2);
    EXPECT_EQ(m_stream.m_nReceived, 1);
    EXPECT_FALSE(buffers[1].IsQueued());
}

TEST_F(TCPStream, CallbackMayReplaceTheSocketWhileMoreIsToBeSent)
{
    Settle();
    CSocketPair other;
    CTextBuffer first("1");
    CTextBuffer second("2");
    CTextBuffer third("3");
    m_stream.Send(&first);
    m_stream.Send(&second);
    m_stream.m_fnOnCall = [&](const std::string&)
    {
        if (m_stream.m_sent.size() == 1)
        {
            m_stream.Destroy();
            m_stream.Adopt(other.m_near);
            m_stream.Send(&third);
        }
    };
    RunUntil("the new socket's buffer", [&] { return m_stream.m_sent.size() == 2; });
    EXPECT_EQ(m_stream.m_sent[1], &third);
    EXPECT_EQ(m_pair.m_far.ReceiveToEnd(), "1");
    EXPECT_EQ(other.m_far.Receive(1), "3");
    EXPECT_FALSE(second.IsQueued());
}

TEST_F(TCPStream, CallbackMayInitiateDestroyWhileMoreIsThere)
{
    CTextBuffer buffers[2] = {CTextBuffer(1), CTextBuffer(1)};
    m_stream.Receive(&buffers[0]);
    m_stream.Receive(&buffers[1]);
    m_stream.m_fnOnCall = [&](const std::string&) { m_stream.InitiateDestroy(); };
    m_pair.m_far.Send("ab");
    RunUntil("the destroy", [&] { return m_stream.Count("destroyed") == 1; });
    EXPECT_EQ(m_stream.m_calls, (std::vector<std::string>{"received", "destroyed"}));
}

using TCPStreamDeathTest = CStreamTest;

TEST_F(TCPStreamDeathTest, DestroyWhileADestroyIsPendingAborts)
{
    m_stream.InitiateDestroy();
    EXPECT_DEATH(m_stream.Destroy(),
                 "Source/Libraries/LibOspreyClient/TCPStream.*`!m_bPendingDestroy' failed");
    RunPasses(1);
}

TEST_F(TCPStreamDeathTest, CreateAndAttachAbortWhenThereIsASocket)
{
    EXPECT_DEATH(m_stream.Create(CSocketAddress(0, 0)),
                 "Source/Libraries/LibOspreyClient/TCPStream.*`!m_sock.IsValid\\(\\)' failed");
    EXPECT_DEATH(m_stream.Attach(0, true),
                 "Source/Libraries/LibOspreyClient/TCPStream.*`!m_sock.IsValid\\(\\)' failed");
}

}  // namespace
