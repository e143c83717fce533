#include "WorkerThread.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "LoopFixture.h"
#include "SystemCalls.h"

namespace
{

class CWorkerTest : public CLoopTest
{
protected:
    CWorkerTest()
    {
        EXPECT_TRUE(m_pipe.Create());
    }
    static void* RunEngine(void* pThis)
    {
        CWorkerTest* pTest = static_cast<CWorkerTest*>(pThis);
        pTest->m_bCurrentInside = pTest->m_worker.IsCurrent();
        pTest->m_nResult = pTest->m_engine.RunLoop();
        return nullptr;
    }

    CStopLoopPipe m_pipe{&m_engine};
    CWorkerThread m_worker;
    bool m_bCurrentInside = false;
    int m_nResult = 0;
};
using WorkerThread = CWorkerTest;

TEST_F(WorkerThread, StopEndsTheLoopWithResult1AndJoins)
{
    ASSERT_TRUE(m_worker.Start(&RunEngine, this));
    EXPECT_TRUE(m_worker.IsStarted());
    m_worker.Stop(m_engine, m_pipe);
    EXPECT_EQ(m_nResult, 1);
    EXPECT_FALSE(m_worker.IsStarted());
}

TEST_F(WorkerThread, StopWithoutAThreadIsHarmless)
{
    m_worker.Stop(m_engine, m_pipe);
    EXPECT_FALSE(m_engine.IsStopping());
}

TEST_F(WorkerThread, SecondStartIsRefused)
{
    ASSERT_TRUE(m_worker.Start(&RunEngine, this));
    EXPECT_FALSE(m_worker.Start(&RunEngine, this));
    m_worker.Stop(m_engine, m_pipe);
}

TEST_F(WorkerThread, MayBeStartedAgainAfterAStop)
{
    for (int i = 0; i < 3; ++i)
    {
        m_nResult = 0;
        m_engine.ClearStop();
        ASSERT_TRUE(m_worker.Start(&RunEngine, this));
        m_worker.Stop(m_engine, m_pipe);
        EXPECT_EQ(m_nResult, 1);
    }
}

TEST_F(WorkerThread, KnowsItsOwnThread)
{
    ASSERT_TRUE(m_worker.Start(&RunEngine, this));
    EXPECT_FALSE(m_worker.IsCurrent());
    m_worker.Stop(m_engine, m_pipe);
    EXPECT_TRUE(m_bCurrentInside);
}

TEST_F(WorkerThread, ThreadThatCannotBeMadeIsAFalseStartAndNeverJoined)
{
    {
        const CReplacedCall create(g_callPthreadCreate,
                                   [](pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)
                                   { return EAGAIN; });
        EXPECT_FALSE(m_worker.Start(&RunEngine, this));
    }
    EXPECT_FALSE(m_worker.IsStarted());
    m_worker.Stop(m_engine, m_pipe);
    ASSERT_TRUE(m_worker.Start(&RunEngine, this));
    m_worker.Stop(m_engine, m_pipe);
}

}  // namespace
