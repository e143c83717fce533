// What the timers do when somebody sets the wall clock, and what the clock itself says.

#include <gtest/gtest.h>

#include "LoopFixture.h"
#include "TestClock.h"

namespace
{

const long long SECOND = 1000;
const long long HOUR = 3600 * SECOND;
const long long DAY = 24 * HOUR;

struct CStep
{
    const char* m_pszWhat;
    long long m_llFrom;  // wall clock before the step, milliseconds since 1970
    long long m_llStep;
};

const long long SOME_DAY = 1623006586000LL;

const CStep STEPS[] = {
    {"OneSecondAhead", SOME_DAY, SECOND},     {"OneHourAhead", SOME_DAY, HOUR},
    {"OneHourBack", SOME_DAY, -HOUR},         {"OneSecondBack", SOME_DAY, -SECOND},
    {"FiftyDaysAhead", SOME_DAY, 50 * DAY},   {"FiftyDaysBack", SOME_DAY, -50 * DAY},
    {"AheadFrom1970", 12 * SECOND, SOME_DAY}, {"AcrossTheWrap", 0xFFFFFFFFLL - 500, 10 * SECOND},
};

class CClockStep : public CLoopTest, public ::testing::WithParamInterface<CStep>
{
protected:
    CClockStep()
    {
        m_timer.m_dwInterval = 5000;
        m_engine.AddTimerHandler(&m_timer);
        m_clock.Advance(1000);
        m_engine.ProcessTimer();
        m_clock.StepWall(GetParam().m_llStep);
    }

    CTestClock m_clock{GetParam().m_llFrom};
    CCallTimer m_timer{m_engine};
};
using IOEngineClockStep = CClockStep;

TEST_P(IOEngineClockStep, LeavesTheTimeToTheNextTimerAsItWas)
{
    EXPECT_EQ(m_engine.CalcNextTimeout(), 4000);
}

TEST_P(IOEngineClockStep, FiresNoTimerEarlyAndNoneLate)
{
    m_engine.ProcessTimer();
    EXPECT_EQ(m_timer.m_nCalls, 0);
    m_clock.Advance(4000);
    m_engine.ProcessTimer();
    EXPECT_EQ(m_timer.m_nCalls, 0);
    m_clock.Advance(1);
    m_engine.ProcessTimer();
    EXPECT_EQ(m_timer.m_nCalls, 1);
}

TEST_P(IOEngineClockStep, TimerArmedRightAfterItIsCountedFromTheNewTime)
{
    CCallTimer late(m_engine);
    late.m_dwInterval = 300;
    m_engine.AddTimerHandler(&late);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 300);
    m_clock.Advance(301);
    m_engine.ProcessTimer();
    EXPECT_EQ(late.m_nCalls, 1);
    EXPECT_EQ(m_timer.m_nCalls, 0);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 3699);
}

TEST_P(IOEngineClockStep, TimerRestartedRightAfterItIsCountedFromTheNewTime)
{
    m_engine.RestartTimerHandler(&m_timer);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 5000);
}

INSTANTIATE_TEST_SUITE_P(Steps, IOEngineClockStep, ::testing::ValuesIn(STEPS),
                         [](const auto& test) { return std::string(test.param.m_pszWhat); });

class CClockTest : public CLoopTest
{
protected:
    CTestClock m_clock;
};
using IOEngineClock = CClockTest;

TEST_F(IOEngineClock, StepBelowASecondIsTakenAsTimeThatPassed)
{
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 5000;
    m_engine.AddTimerHandler(&timer);
    m_clock.StepWall(999);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 4001);
}

TEST_F(IOEngineClock, LongPauseIsNoStep)
{
    CCallTimer timer(m_engine);
    timer.m_dwInterval = 5000;
    m_engine.AddTimerHandler(&timer);
    m_clock.Advance(2 * HOUR);
    m_engine.ProcessTimer();
    EXPECT_EQ(timer.m_nCalls, 1);
}

TEST_F(IOEngineClock, StepInsideACallbackCostsNobodyAFiring)
{
    CCallTimer first(m_engine);
    CCallTimer second(m_engine);
    first.m_dwInterval = 10;
    second.m_dwInterval = 10000;
    first.m_fnCall = [&] { m_clock.StepWall(HOUR); };
    m_engine.AddTimerHandler(&first);
    m_engine.AddTimerHandler(&second);
    m_clock.Advance(11);
    m_engine.ProcessTimer();
    EXPECT_EQ(first.m_nCalls, 1);
    EXPECT_EQ(second.m_nCalls, 0);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 9989);
}

TEST_F(IOEngineClock, SystemTimeStaysWallClockTime)
{
    const unsigned int dwBefore = CIOEngine::GetSystemTimeMS();
    EXPECT_EQ(dwBefore, static_cast<unsigned int>(m_clock.GetWallMs()));
    m_clock.StepWall(HOUR);
    EXPECT_EQ(CIOEngine::GetSystemTimeMS() - dwBefore, HOUR);
}

TEST_F(IOEngineClock, SystemTimeWrapsAfter32Bits)
{
    m_clock.StepWall(0x100000000LL * 378 - m_clock.GetWallMs() - 1);
    EXPECT_EQ(CIOEngine::GetSystemTimeMS(), 0xFFFFFFFFU);
    m_clock.Advance(1);
    EXPECT_EQ(CIOEngine::GetSystemTimeMS(), 0U);
}

TEST_F(IOEngineClock, TimersFireInOrderAcrossTheWrap)
{
    m_clock.StepWall(0x100000000LL * 378 - m_clock.GetWallMs() - 50);
    CCallTimer before(m_engine);
    CCallTimer behind(m_engine);
    before.m_dwInterval = 10;
    behind.m_dwInterval = 100;
    m_engine.AddTimerHandler(&behind);
    m_engine.AddTimerHandler(&before);
    EXPECT_LT(behind.m_dwDeadline, before.m_dwDeadline);
    m_clock.Advance(11);
    m_engine.ProcessTimer();
    EXPECT_EQ(before.m_nCalls, 1);
    EXPECT_EQ(behind.m_nCalls, 0);
    EXPECT_EQ(m_engine.CalcNextTimeout(), 89);
    m_clock.Advance(90);
    m_engine.ProcessTimer();
    EXPECT_EQ(behind.m_nCalls, 1);
}

}  // namespace
