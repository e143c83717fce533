#ifndef OSPREY_TESTS_LOOPFIXTURE_H
#define OSPREY_TESTS_LOOPFIXTURE_H

// An engine whose loop runs on the test's own thread for as long as the test wants.

#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "IOEngine.h"

// Shows the engine's fields, and looks after every pass whether the test has seen enough.
class CTestEngine final : public CIOEngine
{
public:
    using CIOEngine::m_bLoopExited;
    using CIOEngine::m_bStopLoop;
    using CIOEngine::m_hEpoll;
    using CIOEngine::m_listDeferred;
    using CIOEngine::m_nIOHandlers;
    using CIOEngine::m_nLoopResult;
    using CIOEngine::m_nMaxEvents;
    using CIOEngine::m_timerHeap;

    void ProcessDeferredHandlers() override;

    std::function<void()> m_fnAfterPass;
};

class CLoopTest : public ::testing::Test
{
protected:
    CLoopTest();

    // Runs the loop until the condition holds at the end of a pass. At the deadline, which runs on
    // real time, fails the test with pszFor and returns false.
    bool RunUntil(const char* pszFor, const std::function<bool()>& fnCondition);
    // Runs passes that do not wait.
    void RunPasses(int nPasses);

    CTestEngine m_engine;
};

// Work that calls a function.
template <class Base>
class CCallHandler : public Base
{
public:
    explicit CCallHandler(std::function<void()> fnCall = nullptr) : m_fnCall(std::move(fnCall)) {}

    void Process() override
    {
        ++m_nCalls;
        if (m_fnCall)
        {
            m_fnCall();
        }
    }

    std::function<void()> m_fnCall;
    int m_nCalls = 0;
};

typedef CCallHandler<CDeferredHandler> CCallDeferred;

// A timer disarms itself, since an engine that is destroyed still reaches for armed ones.
class CCallTimer final : public CCallHandler<CTimerHandler>
{
public:
    explicit CCallTimer(CIOEngine& engine, std::function<void()> fnCall = nullptr)
        : CCallHandler(std::move(fnCall)), m_engine(engine)
    {
    }
    ~CCallTimer() override
    {
        m_engine.RemoveTimerHandler(this);
    }

private:
    CIOEngine& m_engine;
};

#endif
