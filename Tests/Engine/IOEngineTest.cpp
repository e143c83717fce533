#include "IOEngine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "LoopFixture.h"
#include "RawSocket.h"
#include "StdoutCapture.h"
#include "SystemCalls.h"
#include "TestClock.h"

namespace
{

using IOEngine = CLoopTest;

const int EDGES = EPOLLIN | EPOLLOUT | static_cast<int>(EPOLLET);

// Writes down the calls as letters: I, O, E, H.
class CLetters final : public CIOHandler
{
public:
    void ProcessInput() override
    {
        Note('I');
    }
    void ProcessOutput() override
    {
        Note('O');
    }
    void ProcessError() override
    {
        Note('E');
    }
    void ProcessHangUp() override
    {
        Note('H');
    }

    std::string m_strCalls;
    std::function<void()> m_fnCall;

private:
    void Note(char cCall)
    {
        m_strCalls += cCall;
        if (m_fnCall)
        {
            m_fnCall();
        }
    }
};

TEST_F(IOEngine, StartsIdle)
{
    const CTestEngine engine;
    EXPECT_EQ(engine.m_hEpoll, -1);
    EXPECT_FALSE(engine.m_bStopLoop);
    EXPECT_TRUE(engine.m_bLoopExited);
    EXPECT_EQ(engine.m_nLoopResult, 0);
    EXPECT_EQ(engine.m_nIOHandlers, 0);
}

TEST_F(IOEngine, CreateOpensACloseOnExecDescriptor)
{
    EXPECT_GE(m_engine.m_hEpoll, 0);
    EXPECT_EQ(m_engine.m_nMaxEvents, 64);
    EXPECT_NE(fcntl(m_engine.m_hEpoll, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(IOEngine, CreateRefusesASecondOneAndAnImpossibleSize)
{
    EXPECT_FALSE(m_engine.Create(20));
    CTestEngine other;
    EXPECT_FALSE(other.Create(0));
    EXPECT_FALSE(other.Create(-1));
    EXPECT_FALSE(other.IsCreated());
}

TEST_F(IOEngine, RegistrationIsCounted)
{
    CSocketPair pair;
    CLetters handler;
    EXPECT_TRUE(m_engine.AddIOHandler(pair.m_near.GetHandle(), EDGES, &handler));
    EXPECT_EQ(m_engine.m_nIOHandlers, 1);
    EXPECT_FALSE(m_engine.AddIOHandler(pair.m_near.GetHandle(), EDGES, &handler));
    EXPECT_EQ(m_engine.m_nIOHandlers, 1);
    EXPECT_TRUE(m_engine.RemoveIOHandler(pair.m_near.GetHandle(), 0));
    EXPECT_FALSE(m_engine.RemoveIOHandler(pair.m_near.GetHandle(), 0));
    EXPECT_EQ(m_engine.m_nIOHandlers, 0);
    EXPECT_FALSE(m_engine.AddIOHandler(-1, EDGES, &handler));
}

TEST_F(IOEngine, EachBitOfAnEventCallsItsHandlerInOrder)
{
    struct CCase
    {
        unsigned int m_dwEvents;
        const char* m_pszCalls;
    };
    const CCase cases[] = {
        {EPOLLIN | EPOLLHUP, "IH"},
        {EPOLLOUT, "O"},
        {EPOLLIN | EPOLLOUT | EPOLLERR | EPOLLHUP, "IOEH"},
        {EPOLLPRI, ""},
        {EPOLLERR | EPOLLHUP, "EH"},
    };
    for (const CCase& one : cases)
    {
        CLetters handler;
        handler.Process(one.m_dwEvents);
        EXPECT_EQ(handler.m_strCalls, one.m_pszCalls);
    }
}

TEST_F(IOEngine, EventsAndWorkThatNobodyTakesDoNothing)
{
    CIOHandler handler;
    handler.Process(EPOLLIN | EPOLLOUT | EPOLLERR | EPOLLHUP);
    CDeferredHandler deferred;
    EXPECT_TRUE(m_engine.AddDeferredHandler(&deferred));
    CTimerHandler timer;
    EXPECT_TRUE(m_engine.AddTimerHandler(&timer));
    RunUntil("the timer", [&] { return timer.m_nHeapIndex == -1; });
    EXPECT_FALSE(deferred.m_bQueued);
}

TEST_F(IOEngine, PeerThatClosesGivesInputThenHangUpInOneEvent)
{
    int hEnds[2];
    ASSERT_EQ(pipe(hEnds), 0);
    CLetters handler;
    m_engine.AddIOHandler(hEnds[0], EPOLLIN | static_cast<int>(EPOLLET), &handler);
    ASSERT_EQ(write(hEnds[1], "x", 1), 1);
    close(hEnds[1]);
    RunUntil("the pipe's end", [&] { return !handler.m_strCalls.empty(); });
    EXPECT_EQ(handler.m_strCalls, "IH");
    m_engine.RemoveIOHandler(hEnds[0], 0);
    close(hEnds[0]);
}

TEST_F(IOEngine, HandlerDeletedByItsOwnInputGetsNoFurtherCall)
{
    CLetters* pHandler = new CLetters;
    const std::function<void()> fnDelete = [&] { delete pHandler; };
    pHandler->m_fnCall = [&fnDelete] { fnDelete(); };
    pHandler->Process(EPOLLIN | EPOLLOUT | EPOLLERR | EPOLLHUP);
}

// Watches its own calls from outside, since a deleted handler cannot be asked.
TEST_F(IOEngine, HandlerReplacedAtItsAddressGetsNoCallOfItsPredecessor)
{
    alignas(CLetters) unsigned char storage[sizeof(CLetters)];
    CLetters* pHandler = new (storage) CLetters;
    std::string strSecond;
    const std::function<void()> fnReplace = [&]
    {
        pHandler->~CLetters();
        new (storage) CLetters;
    };
    pHandler->m_fnCall = [&fnReplace] { fnReplace(); };
    pHandler->Process(EPOLLIN | EPOLLOUT | EPOLLERR | EPOLLHUP);
    EXPECT_EQ(pHandler->m_strCalls, "");
    pHandler->~CLetters();
}

TEST_F(IOEngine, HandlerDeletedByANestedDispatchEndsTheOuterOneToo)
{
    CLetters* pOuter = new CLetters;
    CLetters inner;
    int nCalls = 0;
    const std::function<void()> fnDelete = [&] { delete pOuter; };
    inner.m_fnCall = [&fnDelete] { fnDelete(); };
    const std::function<void()> fnNest = [&]
    {
        ++nCalls;
        inner.Process(EPOLLIN);
    };
    pOuter->m_fnCall = [&fnNest] { fnNest(); };
    pOuter->Process(EPOLLIN | EPOLLHUP);
    EXPECT_EQ(nCalls, 1);
}

TEST_F(IOEngine, UnregisteredHandlersFetchedEventIsSkipped)
{
    CSocketPair first;
    CSocketPair second;
    CLetters a;
    CLetters b;
    m_engine.AddIOHandler(first.m_near.GetHandle(), EPOLLIN, &a);
    m_engine.AddIOHandler(second.m_near.GetHandle(), EPOLLIN, &b);
    first.m_far.Send("x");
    second.m_far.Send("x");
    // Whoever is first takes the other one off.
    a.m_fnCall = [&] { m_engine.RemoveIOHandler(second.m_near.GetHandle(), 0, &b); };
    b.m_fnCall = [&] { m_engine.RemoveIOHandler(first.m_near.GetHandle(), 0, &a); };
    int nFetched = 0;
    const CReplacedCall wait(g_callEpollWait,
                             [&](int h, epoll_event* pEvents, int n, int nMs)
                             {
                                 nFetched = g_callEpollWait.Real(h, pEvents, n, nMs);
                                 return nFetched;
                             });
    RunPasses(1);
    EXPECT_EQ(nFetched, 2) << "both events must come in one batch";
    EXPECT_EQ(a.m_strCalls + b.m_strCalls, "I");
}

TEST_F(IOEngine, EventsFetchedWhenAStopIsSeenAreTheNextRunsFirstBatch)
{
    CSocketPair pair;
    CLetters handler;
    m_engine.AddIOHandler(pair.m_near.GetHandle(), EPOLLIN | static_cast<int>(EPOLLET), &handler);
    pair.m_far.Send("x");
    {
        const CReplacedCall wait(g_callEpollWait,
                                 [&](int h, epoll_event* pEvents, int n, int nMs)
                                 {
                                     const int nCount = g_callEpollWait.Real(h, pEvents, n, nMs);
                                     m_engine.StopLoop(7);
                                     return nCount;
                                 });
        EXPECT_EQ(m_engine.RunLoop(), 7);
        EXPECT_EQ(handler.m_strCalls, "");
    }
    RunPasses(1);
    EXPECT_EQ(handler.m_strCalls, "I");
    RunPasses(1);
    EXPECT_EQ(handler.m_strCalls, "I") << "dispatched once only";
}

TEST_F(IOEngine, KeptEventOfAHandlerUnregisteredMeanwhileIsDropped)
{
    CSocketPair pair;
    auto pHandler = std::make_unique<CLetters>();
    m_engine.AddIOHandler(pair.m_near.GetHandle(), EPOLLIN, pHandler.get());
    pair.m_far.Send("x");
    {
        const CReplacedCall wait(g_callEpollWait,
                                 [&](int h, epoll_event* pEvents, int n, int nMs)
                                 {
                                     const int nCount = g_callEpollWait.Real(h, pEvents, n, nMs);
                                     m_engine.StopLoop(0);
                                     return nCount;
                                 });
        m_engine.RunLoop();
    }
    m_engine.RemoveIOHandler(pair.m_near.GetHandle(), 0, pHandler.get());
    pHandler.reset();
    RunPasses(2);
}

TEST_F(IOEngine, StopInsideACallbackLetsTheRestOfThePassRun)
{
    const CTestClock clock;
    CSocketPair pair;
    CLetters handler;
    CCallDeferred deferred;
    CCallTimer timer(m_engine);
    int nWaits = 0;
    m_engine.AddIOHandler(pair.m_near.GetHandle(), EPOLLIN, &handler);
    handler.m_fnCall = [&]
    {
        m_engine.StopLoop(42);
        m_engine.AddDeferredHandler(&deferred);
    };
    m_engine.AddTimerHandler(&timer);
    --timer.m_dwDeadline;
    pair.m_far.Send("x");
    const CReplacedCall wait(g_callEpollWait,
                             [&](int h, epoll_event* pEvents, int n, int nMs)
                             {
                                 ++nWaits;
                                 return g_callEpollWait.Real(h, pEvents, n, nMs);
                             });
    EXPECT_EQ(m_engine.RunLoop(), 42);
    EXPECT_EQ(timer.m_nCalls, 1);
    EXPECT_EQ(deferred.m_nCalls, 1);
    EXPECT_EQ(nWaits, 1);
    EXPECT_TRUE(m_engine.m_bLoopExited);
}

TEST_F(IOEngine, StopSetBeforeTheRunReturnsWithoutWaiting)
{
    CCallDeferred deferred;
    m_engine.AddDeferredHandler(&deferred);
    m_engine.StopLoop(3);
    EXPECT_EQ(m_engine.RunLoop(), 3);
    EXPECT_EQ(deferred.m_nCalls, 1) << "the deferred pass comes before the first wait";
}

TEST_F(IOEngine, ReRunLoopGoesOnWithWhatIsStillRegistered)
{
    CSocketPair pair;
    CLetters handler;
    CCallTimer timer(m_engine);
    timer.m_bPeriodic = true;
    timer.m_dwInterval = 1;
    timer.m_fnCall = [&] { m_engine.StopLoop(timer.m_nCalls); };
    handler.m_fnCall = [&] { m_engine.StopLoop(100); };
    m_engine.AddIOHandler(pair.m_near.GetHandle(), EPOLLIN | static_cast<int>(EPOLLET), &handler);
    m_engine.AddTimerHandler(&timer);
    const int nFirst = m_engine.ReRunLoop();
    EXPECT_GE(nFirst, 1);
    EXPECT_GT(m_engine.ReRunLoop(), nFirst);
    m_engine.RemoveTimerHandler(&timer);
    pair.m_far.Send("x");
    EXPECT_EQ(m_engine.ReRunLoop(), 100);
}

TEST_F(IOEngine, InterruptedWaitGoesOnWithTheSameTimeoutAndRunsNothing)
{
    CTestClock clock;
    std::vector<int> timeouts;
    CCallDeferred deferred;
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 500;
    timer.m_fnCall = [&] { m_engine.StopLoop(0); };
    m_engine.AddTimerHandler(&timer);
    const CReplacedCall wait(g_callEpollWait,
                             [&](int, epoll_event*, int, int nMs)
                             {
                                 timeouts.push_back(nMs);
                                 EXPECT_EQ(timer.m_nCalls + deferred.m_nCalls, 0);
                                 clock.Advance(200);
                                 if (timeouts.size() <= 2)
                                 {
                                     m_engine.AddDeferredHandler(&deferred);
                                     errno = EINTR;
                                     return -1;
                                 }
                                 clock.Advance(200);
                                 return 0;
                             });
    m_engine.RunLoop();
    EXPECT_EQ(timeouts, (std::vector<int>{500, 500, 500}));
    EXPECT_EQ(timer.m_nCalls, 1);
    EXPECT_EQ(deferred.m_nCalls, 1);
}

TEST_F(IOEngine, FailedWaitIsPrintedAndThePassGoesOn)
{
    CCallDeferred deferred([&] { m_engine.StopLoop(0); });
    const CReplacedCall wait(g_callEpollWait,
                             [&](int, epoll_event*, int, int)
                             {
                                 m_engine.AddDeferredHandler(&deferred);
                                 errno = EBADF;
                                 return -1;
                             });
    const CStdoutCapture capture;
    m_engine.RunLoop();
    EXPECT_EQ(capture.GetText(), "IOEngine Process Error: 9");
    EXPECT_EQ(deferred.m_nCalls, 1);
}

TEST_F(IOEngine, WithoutTimersTheWaitHasNoLimit)
{
    std::vector<int> timeouts;
    const CReplacedCall wait(g_callEpollWait,
                             [&](int, epoll_event*, int nMax, int nMs)
                             {
                                 EXPECT_EQ(nMax, 64);
                                 timeouts.push_back(nMs);
                                 m_engine.StopLoop(0);
                                 return 0;
                             });
    m_engine.RunLoop();
    EXPECT_EQ(timeouts, (std::vector<int>{-1}));
}

TEST_F(IOEngine, WithATimerDueNowOrInThePastTheWaitDoesNotBlock)
{
    CTestClock clock;
    std::vector<int> timeouts;
    CCallTimer timer(m_engine);
    m_engine.AddTimerHandler(&timer);
    const CReplacedCall wait(g_callEpollWait,
                             [&](int, epoll_event*, int, int nMs)
                             {
                                 timeouts.push_back(nMs);
                                 m_engine.StopLoop(0);
                                 return 0;
                             });
    m_engine.ReRunLoop();
    clock.Advance(5);
    m_engine.ReRunLoop();
    EXPECT_EQ(timeouts, (std::vector<int>{0, 0}));
}

TEST_F(IOEngine, TimeoutCountsWhatTheFirstDeferredPassArms)
{
    const CTestClock clock;
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 300;
    CCallDeferred deferred([&] { m_engine.AddTimerHandler(&timer); });
    m_engine.AddDeferredHandler(&deferred);
    int nTimeout = 0;
    const CReplacedCall wait(g_callEpollWait,
                             [&](int, epoll_event*, int, int nMs)
                             {
                                 nTimeout = nMs;
                                 m_engine.StopLoop(0);
                                 return 0;
                             });
    m_engine.RunLoop();
    EXPECT_EQ(nTimeout, 300);
}

TEST_F(IOEngine, DestroyClosesDisarmsAndMayBeCreatedAgain)
{
    CSocketPair pair;
    CLetters handler;
    CCallTimer timer(m_engine);
    m_engine.AddIOHandler(pair.m_near.GetHandle(), EDGES, &handler);
    m_engine.AddTimerHandler(&timer);
    m_engine.Destroy();
    EXPECT_EQ(m_engine.m_hEpoll, -1);
    EXPECT_EQ(m_engine.m_nIOHandlers, 0);
    EXPECT_EQ(timer.m_nHeapIndex, -1);
    EXPECT_EQ(m_engine.CalcNextTimeout(), -1);
    EXPECT_TRUE(m_engine.Create(20));
    EXPECT_TRUE(m_engine.AddIOHandler(pair.m_near.GetHandle(), EDGES, &handler));
}

}  // namespace
