#include "StopLoopPipe.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "LoopFixture.h"
#include "SystemCalls.h"

namespace
{

using StopLoopPipe = CLoopTest;

TEST_F(StopLoopPipe, IsRegisteredOnceAndUnregistersItself)
{
    CStopLoopPipe pipe(&m_engine);
    EXPECT_TRUE(pipe.Create());
    EXPECT_EQ(m_engine.m_nIOHandlers, 1);
    pipe.Destroy();
    EXPECT_EQ(m_engine.m_nIOHandlers, 0);
    pipe.Destroy();
    EXPECT_EQ(m_engine.m_nIOHandlers, 0);
}

TEST_F(StopLoopPipe, CreateFailsWithoutAnEngineAndLeavesNothingOpen)
{
    CIOEngine engine;
    CStopLoopPipe pipe(&engine);
    EXPECT_FALSE(pipe.Create());
    pipe.WriteStopLoop();
}

TEST_F(StopLoopPipe, WriteBeforeCreateDoesNothing)
{
    CStopLoopPipe pipe(&m_engine);
    pipe.WriteStopLoop();
    EXPECT_EQ(m_engine.m_nIOHandlers, 0);
}

// The other thread acts when the loop is certainly inside its wait without limit.
TEST_F(StopLoopPipe, StopFromAnotherThreadEndsAWaitWithoutLimit)
{
    CStopLoopPipe pipe(&m_engine);
    ASSERT_TRUE(pipe.Create());
    std::mutex mutex;
    std::condition_variable changed;
    bool bWaiting = false;
    const CReplacedCall wait(g_callEpollWait,
                             [&](int h, epoll_event* pEvents, int n, int nMs)
                             {
                                 EXPECT_EQ(nMs, -1);
                                 {
                                     const std::lock_guard<std::mutex> lock(mutex);
                                     bWaiting = true;
                                 }
                                 changed.notify_one();
                                 return g_callEpollWait.Real(h, pEvents, n, nMs);
                             });
    std::thread stopper(
        [&]
        {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [&] { return bWaiting; });
            m_engine.StopLoop(17);
            pipe.WriteStopLoop();
        });
    EXPECT_EQ(m_engine.RunLoop(), 17);
    stopper.join();
}

TEST_F(StopLoopPipe, StopWrittenBeforeTheRunIsNotLost)
{
    CStopLoopPipe pipe(&m_engine);
    ASSERT_TRUE(pipe.Create());
    m_engine.StopLoop(5);
    pipe.WriteStopLoop();
    EXPECT_EQ(m_engine.RunLoop(), 5);
}

TEST_F(StopLoopPipe, EachWriteWakesTheLoopAgain)
{
    CStopLoopPipe pipe(&m_engine);
    ASSERT_TRUE(pipe.Create());
    for (int i = 1; i <= 3; ++i)
    {
        int nEvents = 0;
        pipe.WriteStopLoop();
        const CReplacedCall wait(g_callEpollWait,
                                 [&](int h, epoll_event* pEvents, int n, int nMs)
                                 {
                                     nEvents = g_callEpollWait.Real(h, pEvents, n, nMs);
                                     m_engine.StopLoop(i);
                                     return nEvents;
                                 });
        EXPECT_EQ(m_engine.ReRunLoop(), i);
        RunPasses(1);
        EXPECT_EQ(nEvents, 1);
    }
}

using WakeEvent = CLoopTest;

TEST_F(WakeEvent, RunsItsHandlerOnTheLoop)
{
    CCallDeferred handler([&] { m_engine.StopLoop(9); });
    CWakeEvent wake(&m_engine, &handler);
    ASSERT_TRUE(wake.Create());
    std::thread other([&] { wake.Wake(); });
    EXPECT_EQ(m_engine.RunLoop(), 9);
    other.join();
    EXPECT_EQ(handler.m_nCalls, 1);
}

TEST_F(WakeEvent, ManyWakesMayEndInOneRunAndNeverBlock)
{
    CCallDeferred handler;
    CWakeEvent wake(&m_engine, &handler);
    ASSERT_TRUE(wake.Create());
    for (int i = 0; i < 100000; ++i)
    {
        wake.Wake();
    }
    RunPasses(3);
    EXPECT_EQ(handler.m_nCalls, 1);
    wake.Wake();
    RunPasses(1);
    EXPECT_EQ(handler.m_nCalls, 2);
}

TEST_F(WakeEvent, BeforeCreateAndAfterDestroyDoesNothing)
{
    CCallDeferred handler;
    CWakeEvent wake(&m_engine, &handler);
    wake.Wake();
    ASSERT_TRUE(wake.Create());
    EXPECT_EQ(m_engine.m_nIOHandlers, 1);
    wake.Destroy();
    EXPECT_EQ(m_engine.m_nIOHandlers, 0);
    wake.Wake();
    RunPasses(2);
    EXPECT_EQ(handler.m_nCalls, 0);
}

TEST_F(WakeEvent, CreateFailsWithoutAnEngine)
{
    CIOEngine engine;
    CCallDeferred handler;
    CWakeEvent wake(&engine, &handler);
    EXPECT_FALSE(wake.Create());
    wake.Wake();
}

}  // namespace
