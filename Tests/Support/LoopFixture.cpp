#include "LoopFixture.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include "RawSocket.h"

namespace
{

// Ends the loop when the kernel's own timer expires, whatever a test clock says meanwhile.
class CWatchdog final : public CIOHandler
{
public:
    explicit CWatchdog(CIOEngine& engine) : m_engine(engine)
    {
        const itimerspec spec = {{0, 0}, {WAIT_MS / 1000, 0}};
        timerfd_settime(m_hTimer, 0, &spec, nullptr);
        engine.AddIOHandler(m_hTimer, EPOLLIN, this);
    }
    ~CWatchdog() override
    {
        m_engine.RemoveIOHandler(m_hTimer, EPOLLIN, this);
        close(m_hTimer);
    }
    void ProcessInput() override
    {
        m_bExpired = true;
        m_engine.StopLoop(-1);
    }

    bool m_bExpired = false;

private:
    CIOEngine& m_engine;
    int m_hTimer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
};

}  // namespace

void CTestEngine::ProcessDeferredHandlers()
{
    CIOEngine::ProcessDeferredHandlers();
    if (m_fnAfterPass)
    {
        m_fnAfterPass();
    }
}

CLoopTest::CLoopTest()
{
    EXPECT_TRUE(m_engine.Create(64));
}

bool CLoopTest::RunUntil(const char* pszFor, const std::function<bool()>& fnCondition)
{
    CWatchdog watchdog(m_engine);
    m_engine.m_fnAfterPass = [&]
    {
        if (fnCondition())
        {
            m_engine.StopLoop(0);
        }
    };
    m_engine.ReRunLoop();
    m_engine.m_fnAfterPass = nullptr;
    m_engine.ClearStop();
    if (watchdog.m_bExpired)
    {
        ADD_FAILURE() << "waited in vain for " << pszFor;
    }
    return !watchdog.m_bExpired;
}

void CLoopTest::RunPasses(int nPasses)
{
    int nDone = -1;  // the first call comes before the first wait
    CCallDeferred keepGoing;
    m_engine.m_fnAfterPass = [&]
    {
        m_engine.AddNextPassHandler(&keepGoing);
        if (++nDone == nPasses)
        {
            m_engine.StopLoop(0);
        }
    };
    m_engine.ReRunLoop();
    m_engine.m_fnAfterPass = nullptr;
    m_engine.ClearStop();
}
