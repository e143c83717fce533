#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "LoopFixture.h"
#include "SystemCalls.h"

namespace
{

using DeferredHandler = CLoopTest;

TEST_F(DeferredHandler, QueuedTwiceIsRefusedAndRunsOnce)
{
    CCallDeferred handler;
    EXPECT_TRUE(m_engine.AddDeferredHandler(&handler));
    EXPECT_FALSE(m_engine.AddDeferredHandler(&handler));
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(handler.m_nCalls, 1);
    EXPECT_FALSE(handler.m_bQueued);
}

TEST_F(DeferredHandler, RunInTheOrderOfQueuing)
{
    std::vector<int> order;
    CCallDeferred first([&] { order.push_back(1); });
    CCallDeferred second([&] { order.push_back(2); });
    CCallDeferred third([&] { order.push_back(3); });
    m_engine.AddDeferredHandler(&first);
    m_engine.AddDeferredHandler(&second);
    m_engine.AddDeferredHandler(&third);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST_F(DeferredHandler, RemovedOneDoesNotRun)
{
    CCallDeferred handler;
    EXPECT_FALSE(m_engine.RemoveDeferredHandler(&handler));
    m_engine.AddDeferredHandler(&handler);
    EXPECT_TRUE(m_engine.RemoveDeferredHandler(&handler));
    EXPECT_FALSE(handler.m_bQueued);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(handler.m_nCalls, 0);
}

TEST_F(DeferredHandler, QueuingItselfRunsAgainInTheSamePass)
{
    CCallDeferred handler;
    handler.m_fnCall = [&]
    {
        if (handler.m_nCalls < 3)
        {
            EXPECT_FALSE(handler.m_bQueued) << "cleared before the call";
            EXPECT_TRUE(m_engine.AddDeferredHandler(&handler));
        }
    };
    m_engine.AddDeferredHandler(&handler);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(handler.m_nCalls, 3);
    EXPECT_EQ(m_engine.m_listDeferred.GetSize(), 0);
}

TEST_F(DeferredHandler, MayBeDeletedInItsOwnCall)
{
    CCallDeferred* pHandler = new CCallDeferred;
    bool bCalled = false;
    pHandler->m_fnCall = [&bCalled, pHandler]
    {
        bCalled = true;
        delete pHandler;
    };
    // The function must outlive its handler.
    const std::function<void()> fnKept = pHandler->m_fnCall;
    pHandler->m_fnCall = [&fnKept] { fnKept(); };
    m_engine.AddDeferredHandler(pHandler);
    m_engine.ProcessDeferredHandlers();
    EXPECT_TRUE(bCalled);
}

TEST_F(DeferredHandler, DestroyedWhileQueuedUnlinksItself)
{
    auto pHandler = std::make_unique<CCallDeferred>();
    CCallDeferred other;
    m_engine.AddDeferredHandler(pHandler.get());
    m_engine.AddDeferredHandler(&other);
    pHandler.reset();
    EXPECT_EQ(m_engine.m_listDeferred.GetSize(), 1);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(other.m_nCalls, 1);
}

TEST_F(DeferredHandler, DestroyedWhileQueuedForTheNextPassUnlinksItself)
{
    auto pHandler = std::make_unique<CCallDeferred>();
    m_engine.AddNextPassHandler(pHandler.get());
    pHandler.reset();
    RunPasses(2);
}

TEST_F(DeferredHandler, ForTheNextPassNeverRunsInTheSamePass)
{
    std::vector<int> passes;
    int nPass = 0;
    CCallDeferred handler;
    handler.m_fnCall = [&]
    {
        passes.push_back(nPass);
        m_engine.AddNextPassHandler(&handler);
    };
    const CReplacedCall wait(g_callEpollWait,
                             [&](int h, epoll_event* pEvents, int n, int nMs)
                             {
                                 ++nPass;
                                 if (nPass == 4)
                                 {
                                     m_engine.StopLoop(0);
                                 }
                                 return g_callEpollWait.Real(h, pEvents, n, nMs);
                             });
    m_engine.AddDeferredHandler(&handler);
    m_engine.RunLoop();
    EXPECT_EQ(passes, (std::vector<int>{0, 1, 2, 3}));
}

TEST_F(DeferredHandler, ForTheNextPassQueuedByAHandlerOfThisOneWaits)
{
    CCallDeferred late;
    CCallDeferred early([&] { m_engine.AddNextPassHandler(&late); });
    m_engine.AddDeferredHandler(&early);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(late.m_nCalls, 0);
    RunPasses(1);
    EXPECT_EQ(late.m_nCalls, 1);
}

TEST_F(DeferredHandler, ForTheNextPassIsWithdrawnFromThisOne)
{
    CCallDeferred handler;
    m_engine.AddDeferredHandler(&handler);
    m_engine.AddNextPassHandler(&handler);
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(handler.m_nCalls, 0);
    EXPECT_TRUE(handler.m_bQueued);
    EXPECT_FALSE(m_engine.AddDeferredHandler(&handler));
    EXPECT_TRUE(m_engine.RemoveDeferredHandler(&handler));
    RunPasses(2);
    EXPECT_EQ(handler.m_nCalls, 0);
}

TEST_F(DeferredHandler, WaitDoesNotBlockWhileOneIsQueuedForTheNextPass)
{
    std::vector<int> timeouts;
    CCallDeferred handler([&] { m_engine.StopLoop(0); });
    CCallDeferred first([&] { m_engine.AddNextPassHandler(&handler); });
    const CReplacedCall wait(g_callEpollWait,
                             [&](int h, epoll_event* pEvents, int n, int nMs)
                             {
                                 timeouts.push_back(nMs);
                                 return g_callEpollWait.Real(h, pEvents, n, 0);
                             });
    m_engine.AddDeferredHandler(&first);
    m_engine.RunLoop();
    EXPECT_EQ(timeouts, (std::vector<int>{0}));
}

TEST_F(DeferredHandler, EngineDestroyLeavesTheFlagSetUntilRemoved)
{
    CCallDeferred handler;
    CCallDeferred nextPass;
    m_engine.AddDeferredHandler(&handler);
    m_engine.AddNextPassHandler(&nextPass);
    m_engine.Destroy();
    EXPECT_EQ(handler.m_nCalls, 0);
    for (CCallDeferred* pHandler : {&handler, &nextPass})
    {
        EXPECT_EQ(pHandler->m_pList, nullptr);
        EXPECT_TRUE(pHandler->m_bQueued);
        EXPECT_FALSE(m_engine.AddDeferredHandler(pHandler));
        EXPECT_TRUE(m_engine.RemoveDeferredHandler(pHandler));
        EXPECT_TRUE(m_engine.AddDeferredHandler(pHandler));
    }
    m_engine.ProcessDeferredHandlers();
    EXPECT_EQ(handler.m_nCalls, 1);
    EXPECT_EQ(nextPass.m_nCalls, 1);
}

}  // namespace
