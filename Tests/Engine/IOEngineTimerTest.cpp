#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "LoopFixture.h"
#include "SystemCalls.h"
#include "TestClock.h"

namespace
{

class CTimerTest : public CLoopTest
{
protected:
    CTestClock m_clock;
};
using IOEngineTimers = CTimerTest;

TEST_F(IOEngineTimers, ArmedTimerIsRefusedAndKeepsItsDeadline)
{
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 100;
    EXPECT_TRUE(m_engine.AddTimerHandler(&timer));
    const unsigned int dwDeadline = timer.m_dwDeadline;
    EXPECT_EQ(dwDeadline, CIOEngine::GetSystemTimeMS() + 100);
    m_clock.Advance(50);
    EXPECT_FALSE(m_engine.AddTimerHandler(&timer));
    EXPECT_EQ(timer.m_dwDeadline, dwDeadline);
    EXPECT_TRUE(m_engine.RemoveTimerHandler(&timer));
    EXPECT_FALSE(m_engine.RemoveTimerHandler(&timer));
}

TEST_F(IOEngineTimers, NextTimeoutIsTheDistanceToTheEarliestDeadline)
{
    CCallTimer near(m_engine);
    CCallTimer far(m_engine);
    near.m_dwInterval = 100;
    far.m_dwInterval = 30000;
    EXPECT_EQ(m_engine.CalcNextTimeout(), -1);
    m_engine.AddTimerHandler(&far);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 30000);
    m_engine.AddTimerHandler(&near);
    m_clock.Advance(40);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 60);
    m_clock.Advance(60);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 0);
    m_clock.Advance(1000);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 0);
}

TEST_F(IOEngineTimers, RestartPushesTheDeadlineBackFromNow)
{
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 100;
    EXPECT_FALSE(m_engine.RestartTimerHandler(&timer));
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(60);
    EXPECT_TRUE(m_engine.RestartTimerHandler(&timer));
    EXPECT_EQ(m_engine.CalcNextTimeout(), 100);
}

TEST_F(IOEngineTimers, Interval0FiresInTheFirstPassThatReadsALaterMillisecond)
{
    CCallTimer timer(m_engine);
    m_engine.AddTimerHandler(&timer);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 0);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 0);
    m_clock.AdvanceMicroseconds(999);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 0);
    m_clock.AdvanceMicroseconds(1);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 1);
    EXPECT_EQ(timer.m_nHeapIndex, -1);
}

TEST_F(IOEngineTimers, LatePeriodicTimerCatchesUpInOnePass)
{
    CCallTimer timer(m_engine);
    timer.m_bPeriodic = true;
    timer.m_dwInterval = 100;
    m_engine.AddTimerHandler(&timer);
    const unsigned int dwArmed = CIOEngine::GetSystemTimeMS();
    m_clock.Advance(401);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 4);
    EXPECT_EQ(timer.m_dwDeadline, dwArmed + 500) << "counted from the old deadlines";
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 4);
}

TEST_F(IOEngineTimers, OneShotThatRearmsItselfStaysArmed)
{
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 10;
    timer.m_fnCall = [&]
    {
        m_engine.RemoveTimerHandler(&timer);
        timer.m_dwInterval = 250;
        m_engine.AddTimerHandler(&timer);
    };
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(11);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 1);
    EXPECT_NE(timer.m_nHeapIndex, -1);
    EXPECT_EQ(timer.m_dwDeadline, CIOEngine::GetSystemTimeMS() + 250);
}

TEST_F(IOEngineTimers, OneShotThatRearmsItselfCostsNobodyElseTheirs)
{
    CCallTimer other(m_engine);
    other.m_dwInterval = 100;
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 10;
    timer.m_fnCall = [&]
    {
        m_engine.RemoveTimerHandler(&timer);
        timer.m_dwInterval = 250;
        m_engine.AddTimerHandler(&timer);
    };
    m_engine.AddTimerHandler(&other);
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(11);
    m_engine.ProcessTimer();
    EXPECT_NE(other.m_nHeapIndex, -1);
    m_clock.Advance(300);
    m_engine.ProcessTimer();
    EXPECT_EQ(other.m_nCalls, 1);
    EXPECT_EQ(timer.m_nCalls, 2);
}

TEST_F(IOEngineTimers, OneShotThatRestartsItselfStaysArmed)
{
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 10;
    timer.m_fnCall = [&]
    {
        if (timer.m_nCalls == 1)
        {
            EXPECT_TRUE(m_engine.RestartTimerHandler(&timer));
        }
    };
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(11);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 1);
    EXPECT_NE(timer.m_nHeapIndex, -1);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 10);
    m_clock.Advance(11);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 2);
    EXPECT_EQ(timer.m_nHeapIndex, -1) << "a restart counts once";
}

TEST_F(IOEngineTimers, OneShotThatRearmsOrRestartsItselfTwiceFiresOnceMore)
{
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 10;
    const std::function<bool()> again[] = {[&]
                                           {
                                               m_engine.RemoveTimerHandler(&timer);
                                               return m_engine.AddTimerHandler(&timer);
                                           },
                                           [&] { return m_engine.RestartTimerHandler(&timer); }};
    for (const std::function<bool()>& fnAgain : again)
    {
        timer.m_nCalls = 0;
        timer.m_fnCall = [&] { EXPECT_TRUE(timer.m_nCalls > 1 || (fnAgain() && fnAgain())); };
        m_engine.AddTimerHandler(&timer);
        m_clock.Advance(11);
        m_engine.ProcessTimer();
        EXPECT_NE(timer.m_nHeapIndex, -1);
        m_clock.Advance(11);
        m_engine.ProcessTimer();
        EXPECT_EQ(timer.m_nCalls, 2);
        EXPECT_EQ(timer.m_nHeapIndex, -1);
    }
}

TEST_F(IOEngineTimers, OneShotThatRestartsItselfCostsNobodyElseTheirs)
{
    CCallTimer other(m_engine);
    other.m_dwInterval = 100;
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 10;
    timer.m_fnCall = [&]
    {
        if (timer.m_nCalls == 1)
        {
            timer.m_dwInterval = 250;
            m_engine.RestartTimerHandler(&timer);
        }
    };
    m_engine.AddTimerHandler(&other);
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(11);
    m_engine.ProcessTimer();
    EXPECT_NE(other.m_nHeapIndex, -1);
    EXPECT_NE(timer.m_nHeapIndex, -1);
    m_clock.Advance(300);
    m_engine.ProcessTimer();
    EXPECT_EQ(other.m_nCalls, 1);
    EXPECT_EQ(timer.m_nCalls, 2);
}

TEST_F(IOEngineTimers, OneShotThatRemovesItselfCostsNobodyElseTheirs)
{
    CCallTimer other(m_engine);
    other.m_dwInterval = 100;
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 10;
    timer.m_fnCall = [&] { m_engine.RemoveTimerHandler(&timer); };
    m_engine.AddTimerHandler(&other);
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(11);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nHeapIndex, -1);
    EXPECT_NE(other.m_nHeapIndex, -1);
}

// Retiring a one-shot timer removes the top of the heap without looking who it is. Another timer
// stands there only when the callback armed one beyond the clock's horizon.
TEST_F(IOEngineTimers, RetiringAOneShotRemovesTheTopWhoeverItIs)
{
    CCallTimer beyond(m_engine);
    beyond.m_dwInterval = 0x90000000;
    CCallTimer timer(m_engine);
    timer.m_fnCall = [&]
    {
        if (timer.m_nCalls == 1)
        {
            m_engine.AddTimerHandler(&beyond);
        }
    };
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(1);
    m_engine.ProcessTimer();
    EXPECT_EQ(beyond.m_nHeapIndex, -1);
    EXPECT_EQ(beyond.m_nCalls, 0);
    EXPECT_EQ(timer.m_nCalls, 2) << "it stayed in the heap, due as before";
    EXPECT_EQ(m_engine.m_timerHeap.GetCount(), 0);
}

TEST_F(IOEngineTimers, PeriodicThatRemovesItselfStops)
{
    CCallTimer timer(m_engine);
    timer.m_bPeriodic = true;
    timer.m_dwInterval = 10;
    timer.m_fnCall = [&] { m_engine.RemoveTimerHandler(&timer); };
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(100);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 1);
}

// Peers depend on the doubled period: an idle poll re-arms its periodic timer in the callback.
TEST_F(IOEngineTimers, PeriodicThatRearmsItselfWaitsOneIntervalMore)
{
    CCallTimer timer(m_engine);
    timer.m_bPeriodic = true;
    timer.m_dwInterval = 100;
    timer.m_fnCall = [&]
    {
        m_engine.RemoveTimerHandler(&timer);
        m_engine.AddTimerHandler(&timer);
    };
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(101);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 1);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 200);
}

TEST_F(IOEngineTimers, EqualDeadlinesFireInOnePassInTheHeapsOrder)
{
    std::string strOrder;
    CCallTimer a(m_engine, [&] { strOrder += 'A'; });
    CCallTimer b(m_engine, [&] { strOrder += 'B'; });
    CCallTimer c(m_engine, [&] { strOrder += 'C'; });
    for (CCallTimer* pTimer : {&a, &b, &c})
    {
        pTimer->m_dwInterval = 10;
        m_engine.AddTimerHandler(pTimer);
    }
    m_clock.Advance(11);
    m_engine.ProcessTimer();
    EXPECT_EQ(strOrder, "ACB");
}

TEST_F(IOEngineTimers, AllDueTimersFireEarliestFirst)
{
    std::vector<unsigned int> order;
    std::vector<std::unique_ptr<CCallTimer>> timers;
    for (const unsigned int dwInterval : {70U, 10U, 90U, 30U, 50U, 20U, 80U, 40U, 60U, 100U, 5U})
    {
        timers.push_back(std::make_unique<CCallTimer>(
            m_engine, [&order, dwInterval] { order.push_back(dwInterval); }));
        timers.back()->m_dwInterval = dwInterval;
        m_engine.AddTimerHandler(timers.back().get());
    }
    m_clock.Advance(96);
    m_engine.ProcessTimer();
    EXPECT_EQ(order, (std::vector<unsigned int>{5, 10, 20, 30, 40, 50, 60, 70, 80, 90}));
}

TEST_F(IOEngineTimers, TimerThatACallbackRemovesDoesNotFire)
{
    CCallTimer second(m_engine);
    CCallTimer first(m_engine, [&] { m_engine.RemoveTimerHandler(&second); });
    first.m_dwInterval = 1;
    second.m_dwInterval = 2;
    m_engine.AddTimerHandler(&first);
    m_engine.AddTimerHandler(&second);
    m_clock.Advance(10);
    m_engine.ProcessTimer();
    EXPECT_EQ(first.m_nCalls, 1);
    EXPECT_EQ(second.m_nCalls, 0);
}

TEST_F(IOEngineTimers, PeriodicWithInterval0EndsThePass)
{
    CCallTimer timer(m_engine);
    timer.m_bPeriodic = true;
    timer.m_fnCall = [&]
    {
        if (timer.m_nCalls == 1000)
        {
            ADD_FAILURE() << "the pass does not end";
            m_engine.RemoveTimerHandler(&timer);
        }
    };
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(1);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 1);
    m_clock.Advance(1);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 2);
}

TEST_F(IOEngineTimers, CallbackSlowerThanItsPeriodEndsThePass)
{
    CCallTimer timer(m_engine);
    timer.m_bPeriodic = true;
    timer.m_dwInterval = 1;
    timer.m_fnCall = [&]
    {
        m_clock.Advance(2);
        if (timer.m_nCalls == 1000)
        {
            ADD_FAILURE() << "the pass does not end";
            m_engine.RemoveTimerHandler(&timer);
        }
    };
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(2);
    m_engine.ProcessTimer();
    EXPECT_GE(timer.m_nCalls, 1);
    EXPECT_LT(timer.m_nCalls, 100);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 0) << "it goes on in the next pass";
}

// A timer due in the running millisecond makes every wait one of 0: the loop must sleep that
// millisecond out and not spin through it.
TEST_F(IOEngineTimers, DueMillisecondIsSleptOut)
{
    CCallTimer timer(m_engine);
    timer.m_fnCall = [&] { m_engine.StopLoop(0); };
    m_clock.AdvanceMicroseconds(300);
    m_engine.AddTimerHandler(&timer);
    int nWaits = 0;
    std::vector<long> rests;
    const CReplacedCall wait(g_callEpollWait,
                             [&](int h, epoll_event* pEvents, int n, int nMs)
                             {
                                 EXPECT_EQ(nMs, 0);
                                 if (++nWaits == 100)
                                 {
                                     ADD_FAILURE() << "the loop spins";
                                     m_engine.StopLoop(0);
                                 }
                                 return g_callEpollWait.Real(h, pEvents, n, 0);
                             });
    const CReplacedCall rest(
        g_callPpoll,
        [&](pollfd* pFds, nfds_t nFds, const timespec* pTimeout, const sigset_t*)
        {
            EXPECT_EQ(nFds, 1U);
            EXPECT_EQ(pFds[0].fd, m_engine.m_hEpoll) << "any event must end it";
            EXPECT_EQ(pTimeout->tv_sec, 0);
            rests.push_back(pTimeout->tv_nsec);
            m_clock.AdvanceMicroseconds(pTimeout->tv_nsec / 1000);
            return 0;
        });
    m_engine.RunLoop();
    EXPECT_EQ(rests, (std::vector<long>{700000}));
    EXPECT_EQ(nWaits, 1);
    EXPECT_EQ(timer.m_nCalls, 1);
}

TEST_F(IOEngineTimers, TimerInThePastIsNotSleptFor)
{
    CCallTimer timer(m_engine);
    timer.m_fnCall = [&] { m_engine.StopLoop(0); };
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(3);
    const CReplacedCall rest(g_callPpoll,
                             [&](pollfd*, nfds_t, const timespec*, const sigset_t*)
                             {
                                 ADD_FAILURE() << "slept";
                                 return 0;
                             });
    m_engine.RunLoop();
    EXPECT_EQ(timer.m_nCalls, 1);
}

// The work for this pass was asked for in the one before, and moved over after the wait began.
TEST_F(IOEngineTimers, WorkForThisPassIsNotKeptWaitingForAMillisecond)
{
    CCallTimer timer(m_engine);
    CCallDeferred work([&] { m_engine.StopLoop(0); });
    CCallDeferred first([&] { m_engine.AddNextPassHandler(&work); });
    m_engine.AddTimerHandler(&timer);
    m_engine.AddDeferredHandler(&first);
    int nRests = 0;
    const CReplacedCall rest(g_callPpoll,
                             [&](pollfd*, nfds_t, const timespec*, const sigset_t*)
                             {
                                 ++nRests;
                                 return 0;
                             });
    m_engine.RunLoop();
    EXPECT_EQ(work.m_nCalls, 1);
    EXPECT_EQ(nRests, 0);
}

// On real time: a hundred timers of 10 ms, as many as a hundred idle subscribers have.
TEST(IOEngineRealTime, IdleTimersDoNotMakeTheLoopSpin)
{
    CTestEngine engine;
    ASSERT_TRUE(engine.Create(64));
    std::vector<std::unique_ptr<CCallTimer>> timers;
    for (int i = 0; i < 100; ++i)
    {
        timers.push_back(std::make_unique<CCallTimer>(engine));
        timers.back()->m_bPeriodic = true;
        timers.back()->m_dwInterval = 10;
        engine.AddTimerHandler(timers.back().get());
        // Armed together, however long a slow machine takes over that.
        timers.back()->m_dwDeadline = timers.front()->m_dwDeadline;
    }
    CCallTimer end(engine, [&] { engine.StopLoop(0); });
    end.m_dwInterval = 200;
    engine.AddTimerHandler(&end);
    int nWaits = 0;
    const CReplacedCall wait(g_callEpollWait,
                             [&](int h, epoll_event* pEvents, int n, int nMs)
                             {
                                 ++nWaits;
                                 return g_callEpollWait.Real(h, pEvents, n, nMs);
                             });
    engine.RunLoop();
    // 20 periods, all timers on the same millisecond, a few waits for each.
    EXPECT_LT(nWaits, 400);
}

}  // namespace
