// A stream moves at most 256 buffers or 256 KiB a call, then everybody else has a turn.

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "Hex.h"
#include "LoopFixture.h"
#include "OpenStream.h"
#include "StdoutCapture.h"
#include "SystemCalls.h"

namespace
{

const int BLOCK = 64 * 1024;

class CBudgetTest : public CLoopTest
{
protected:
    CBudgetTest()
    {
        EXPECT_TRUE(m_stream.Adopt(m_pair.m_near));
        RunPasses(2);
    }
    void Queue(int nBuffers, size_t nSize)
    {
        for (int i = 0; i < nBuffers; ++i)
        {
            m_buffers.push_back(std::make_unique<CTextBuffer>(std::string(nSize, 'x')));
            m_stream.Send(m_buffers.back().get());
        }
    }
    // How many buffers were reported when each wait began, until all are.
    template <class Count>
    std::vector<size_t> CountAtEachWait(size_t nAll, Count fnCount)
    {
        std::vector<size_t> counts;
        const CReplacedCall wait(g_callEpollWait,
                                 [&](int h, epoll_event* pEvents, int n, int nMs)
                                 {
                                     counts.push_back(fnCount());
                                     if (counts.back() < nAll)
                                     {
                                         EXPECT_EQ(nMs, 0)
                                             << "the wait must not block while work is left";
                                     }
                                     return g_callEpollWait.Real(h, pEvents, n, 0);
                                 });
        RunUntil("all buffers", [&] { return fnCount() >= nAll; });
        return counts;
    }

    std::string TraceOfNextPasses()
    {
        const CStdoutCapture capture;
        RunPasses(2);
        return capture.GetText();
    }

    CSocketPair m_pair;
    std::vector<std::unique_ptr<CTextBuffer>> m_buffers;
    COpenStream m_stream{&m_engine};
};
using TCPStreamBudget = CBudgetTest;

TEST_F(TCPStreamBudget, SendsAtMost256BuffersAPass)
{
    Queue(800, 10);
    EXPECT_EQ(CountAtEachWait(800, [&] { return m_stream.m_sent.size(); }),
              (std::vector<size_t>{256, 512, 768}));
    EXPECT_EQ(m_stream.m_sent.size(), 800U);
    for (size_t i = 0; i < 800; ++i)
    {
        EXPECT_EQ(m_stream.m_sent[i], m_buffers[i].get()) << i;
    }
}

TEST_F(TCPStreamBudget, SendsAtMost256KiBAPass)
{
    Queue(10, BLOCK);
    const CReplacedCall swallow(
        g_callSend, [](int, const void*, size_t n, int) { return static_cast<ssize_t>(n); });
    EXPECT_EQ(CountAtEachWait(10, [&] { return m_stream.m_sent.size(); }),
              (std::vector<size_t>{4, 8}));
}

TEST_F(TCPStreamBudget, OneHugeBufferIsBudgetedToo)
{
    Queue(1, 12L * BLOCK);
    const CReplacedCall swallow(g_callSend, [](int, const void*, size_t n, int)
                                { return static_cast<ssize_t>(n < BLOCK ? n : BLOCK); });
    EXPECT_EQ(CountAtEachWait(1, [&] { return m_stream.m_sent.size(); }),
              (std::vector<size_t>{0, 0}));
}

TEST_F(TCPStreamBudget, ReceivesAtMost256BuffersAPass)
{
    CTextBuffer buffer(1);
    std::string strText;
    m_stream.m_fnOnCall = [&](const std::string&)
    {
        strText += buffer.GetText();
        buffer.Empty();
        m_stream.Receive(&buffer);
    };
    const std::string strSent = Pattern(600);
    m_pair.m_far.Send(strSent);
    m_stream.Receive(&buffer);
    EXPECT_EQ(CountAtEachWait(600, [&] { return static_cast<size_t>(m_stream.m_nReceived); }),
              (std::vector<size_t>{256, 512}));
    EXPECT_EQ(Hex(strText), Hex(strSent));
    m_stream.Destroy();
}

TEST_F(TCPStreamBudget, ReceivesAtMost256KiBAPass)
{
    CTextBuffer buffer(BLOCK);
    m_stream.m_fnOnCall = [&](const std::string&)
    {
        buffer.Empty();
        m_stream.Receive(&buffer);
    };
    const CReplacedCall endless(g_callRecv,
                                [](int, void*, size_t n, int) { return static_cast<ssize_t>(n); });
    m_stream.Receive(&buffer);
    EXPECT_EQ(CountAtEachWait(10, [&] { return static_cast<size_t>(m_stream.m_nReceived); }),
              (std::vector<size_t>{4, 8}));
    m_stream.Destroy();
}

// The peer takes everything at once and the owner always has more: without a budget no other
// connection would ever be served.
TEST_F(TCPStreamBudget, OtherConnectionIsServedMeanwhile)
{
    CSocketPair other;
    COpenStream second(&m_engine);
    second.Adopt(other.m_near);
    CTextBuffer in(10);
    second.Receive(&in);
    other.m_far.Send("me too");
    CTextBuffer out(1);
    const auto sendAgain = [&]
    {
        out.AppendData(1);
        m_stream.Send(&out);
    };
    m_stream.m_fnOnCall = [&](const std::string&)
    {
        if (m_stream.m_sent.size() < 100000)
        {
            sendAgain();
        }
    };
    const CReplacedCall swallow(
        g_callSend, [](int, const void*, size_t n, int) { return static_cast<ssize_t>(n); });
    sendAgain();
    RunUntil("the other connection's data", [&] { return second.m_nReceived > 0; });
    EXPECT_LT(m_stream.m_sent.size(), 1000U) << "the other connection was starved";
    m_stream.Destroy();
}

TEST_F(TCPStreamBudget, StopInTheMiddleOfSendingKeepsWhatIsLeft)
{
    Queue(10, 5);
    m_stream.m_fnOnCall = [&](const std::string&)
    {
        if (m_stream.m_sent.size() == 3)
        {
            m_engine.StopLoop(1);
        }
    };
    EXPECT_EQ(m_engine.ReRunLoop(), 1);
    EXPECT_EQ(m_stream.m_sent.size(), 3U);
    RunUntil("the rest", [&] { return m_stream.m_sent.size() == 10; });
}

TEST_F(TCPStreamBudget, StopInTheMiddleOfReceivingKeepsTheReadiness)
{
    CTextBuffer buffer(1);
    m_stream.m_fnOnCall = [&](const std::string&)
    {
        buffer.Empty();
        m_stream.Receive(&buffer);
        if (m_stream.m_nReceived == 3)
        {
            m_engine.StopLoop(1);
        }
    };
    m_stream.Receive(&buffer);
    m_pair.m_far.Send("0123456789");
    EXPECT_EQ(m_engine.ReRunLoop(), 1);
    EXPECT_EQ(m_stream.m_nReceived, 3);
    RunUntil("the rest, for which no edge comes", [&] { return m_stream.m_nReceived == 10; });
    m_stream.Destroy();
}

TEST_F(TCPStreamBudget, StopSeenBeforeTheFirstReceiveKeepsTheReadiness)
{
    CTextBuffer buffer(10);
    m_pair.m_far.Send("data");
    RunPasses(2);
    m_stream.Receive(&buffer);
    m_engine.StopLoop(1);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(m_stream.m_nReceived, 0);
    m_engine.ClearStop();
    RunUntil("the data", [&] { return m_stream.m_nReceived == 1; });
}

TEST_F(TCPStreamBudget, StopWithTheLastBufferReceivedLeavesNothingForTheNextRun)
{
    CTextBuffer buffer(10);
    m_stream.m_fnOnCall = [&](const std::string&) { m_engine.StopLoop(1); };
    m_pair.m_far.Send("data");
    RunPasses(2);
    m_stream.Receive(&buffer);
    EXPECT_EQ(m_engine.ReRunLoop(), 1);
    EXPECT_EQ(m_stream.m_nReceived, 1);
    EXPECT_FALSE(m_stream.m_handlerDeferredIO.m_bQueued);
    EXPECT_EQ(TraceOfNextPasses(), "");
    // What has come meanwhile is found all the same.
    CTextBuffer next(10);
    m_stream.Receive(&next);
    m_pair.m_far.Send("more");
    m_stream.m_fnOnCall = nullptr;
    RunUntil("the next buffer", [&] { return m_stream.m_nReceived == 2; });
}

TEST_F(TCPStreamBudget, StopWithTheLastBufferSentLeavesNothingForTheNextRun)
{
    Queue(1, 5);
    m_stream.m_fnOnCall = [&](const std::string&) { m_engine.StopLoop(1); };
    EXPECT_EQ(m_engine.ReRunLoop(), 1);
    EXPECT_EQ(m_stream.m_sent.size(), 1U);
    EXPECT_FALSE(m_stream.m_handlerDeferredIO.m_bQueued);
    EXPECT_EQ(TraceOfNextPasses(), "");
}

TEST_F(TCPStreamBudget, DestroyWithdrawsWhatWasLeftForTheNextPass)
{
    Queue(400, 10);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(m_stream.m_sent.size(), 256U);
    m_stream.Destroy();
    EXPECT_FALSE(m_stream.m_handlerDeferredIO.m_bQueued);
    RunPasses(3);
    EXPECT_EQ(m_stream.m_sent.size(), 256U);
}

}  // namespace
