// The engine's timers on a clock that the input moves, against a list sorted by deadline in 64
// bits: armed, disarmed and restarted, one-shot and periodic, also from inside their own expiry.
//
// Input: where the clock starts; then an operation a byte, with its numbers behind it.

#include <array>
#include <map>

#include "FuzzInput.h"
#include "IOEngine.h"
#include "TestClock.h"

namespace
{

const int TIMERS = 12;
const long long PASS_MS = 50;              // a timer pass goes on in the next one after this
const long long MOST_TIME_MS = 1LL << 29;  // in one run; deadlines have to stay comparable
const long long WRAP = 377LL << 32;        // where the 32-bit clock begins anew, in 2021

class CTimersFuzz;

class CFuzzTimer final : public CTimerHandler
{
public:
    void Process() override;

    CTimersFuzz* m_pFuzz = nullptr;
    int m_nNumber = 0;
};

CIOEngine& GetEngine()
{
    static CIOEngine engine;
    if (!engine.IsCreated())
    {
        engine.Create(1);
    }
    return engine;
}

class CTimersFuzz
{
public:
    explicit CTimersFuzz(CFuzzInput& input);
    ~CTimersFuzz();
    CTimersFuzz(const CTimersFuzz&) = delete;
    CTimersFuzz& operator=(const CTimersFuzz&) = delete;

    void Step();
    // A timer expires.
    void Fire(int i);

private:
    typedef std::multimap<long long, int> CDeadlines;

    void Arm(int i);
    void Disarm(int i);
    void Restart(int i);
    void Advance();
    void StepWall();
    void Settle();
    void CheckTimeout();
    void Insert(int i, long long llDeadline);
    void Erase(int i);
    bool IsArmed(int i) const
    {
        return m_places[static_cast<size_t>(i)] != m_deadlines.end();
    }
    unsigned int TakeInterval();
    CFuzzTimer& GetTimer(int i)
    {
        return m_timers[static_cast<size_t>(i)];
    }

    CFuzzInput& m_input;
    CTestClock m_clock;
    CIOEngine& m_engine = GetEngine();
    std::array<CFuzzTimer, TIMERS> m_timers;
    CDeadlines m_deadlines;
    std::array<CDeadlines::iterator, TIMERS> m_places;
    int m_nFiring = -1;  // the one whose expiry the engine has not settled yet
    bool m_bRearmed = false;
    long long m_llPassStarted = 0;
    long long m_llTimeLeft = MOST_TIME_MS;
};

void CFuzzTimer::Process()
{
    m_pFuzz->Fire(m_nNumber);
}

CTimersFuzz::CTimersFuzz(CFuzzInput& input)
    : m_input(input), m_clock(WRAP - static_cast<long long>(input.TakeBelow(65536)))
{
    m_places.fill(m_deadlines.end());
    for (int i = 0; i < TIMERS; ++i)
    {
        GetTimer(i).m_pFuzz = this;
        GetTimer(i).m_nNumber = i;
    }
}

CTimersFuzz::~CTimersFuzz()
{
    for (int i = 0; i < TIMERS; ++i)
    {
        Disarm(i);
    }
    Require(m_engine.CalcNextTimeout() == -1, "no timer is left");
}

unsigned int CTimersFuzz::TakeInterval()
{
    const unsigned int dwByte = m_input.TakeByte();
    return dwByte < 0xC0 ? dwByte : dwByte << (dwByte % 20);
}

void CTimersFuzz::Insert(int i, long long llDeadline)
{
    m_places[static_cast<size_t>(i)] = m_deadlines.emplace(llDeadline, i);
}

void CTimersFuzz::Erase(int i)
{
    m_deadlines.erase(m_places[static_cast<size_t>(i)]);
    m_places[static_cast<size_t>(i)] = m_deadlines.end();
}

void CTimersFuzz::Arm(int i)
{
    const bool bArmed = IsArmed(i);
    if (!bArmed)
    {
        GetTimer(i).m_dwInterval = TakeInterval();
        GetTimer(i).m_bPeriodic = m_input.TakeByte() % 2 == 0;
        Insert(i, m_clock.GetWallMs() + GetTimer(i).m_dwInterval);
        m_bRearmed = m_bRearmed || i == m_nFiring;
    }
    Require(m_engine.AddTimerHandler(&GetTimer(i)) != bArmed, "a timer is armed once");
}

void CTimersFuzz::Disarm(int i)
{
    const bool bArmed = IsArmed(i);
    Require(m_engine.RemoveTimerHandler(&GetTimer(i)) == bArmed, "an armed timer can be disarmed");
    if (bArmed)
    {
        Erase(i);
    }
}

void CTimersFuzz::Restart(int i)
{
    const bool bArmed = IsArmed(i);
    if (bArmed)
    {
        GetTimer(i).m_dwInterval = TakeInterval();
        Erase(i);
        Insert(i, m_clock.GetWallMs() + GetTimer(i).m_dwInterval);
        m_bRearmed = m_bRearmed || i == m_nFiring;
    }
    Require(m_engine.RestartTimerHandler(&GetTimer(i)) == bArmed,
            "an armed timer can be restarted");
}

// What the engine does with a timer when its expiry has returned.
void CTimersFuzz::Settle()
{
    const int i = m_nFiring;
    m_nFiring = -1;
    if (i < 0 || !IsArmed(i))
    {
        return;
    }
    const long long llDeadline = m_places[static_cast<size_t>(i)]->first;
    if (GetTimer(i).m_bPeriodic)
    {
        const unsigned int dwInterval = GetTimer(i).m_dwInterval;
        Erase(i);
        Insert(i, llDeadline + (dwInterval != 0 ? dwInterval : 1));
    }
    else if (!m_bRearmed)
    {
        Erase(i);
    }
}

void CTimersFuzz::Fire(int i)
{
    Settle();
    const long long llNow = m_clock.GetWallMs();
    Require(IsArmed(i), "only an armed timer expires");
    const long long llDeadline = m_places[static_cast<size_t>(i)]->first;
    Require(llDeadline == m_deadlines.begin()->first, "the earliest timer expires first");
    Require(llDeadline < llNow, "no timer expires before its time");
    Require(llNow - m_llPassStarted < PASS_MS, "a long pass ends");
    m_nFiring = i;
    m_bRearmed = false;
    const unsigned char cAction = m_input.TakeByte();
    m_clock.Advance(1 + cAction % 4);
    const int nOther = cAction / 32;
    switch (cAction / 4 % 8)
    {
        case 0:
            return Disarm(i);
        case 1:
            Disarm(i);
            return Arm(i);
        case 2:
            return Restart(i);
        case 3:
            return Arm(nOther);
        case 4:
            return Disarm(nOther);
        case 5:
            return Restart(nOther);
        default:
            return;
    }
}

void CTimersFuzz::Advance()
{
    const long long llTime = static_cast<long long>(TakeInterval()) * 2;
    if (llTime > m_llTimeLeft)
    {
        return;
    }
    m_llTimeLeft -= llTime;
    m_clock.Advance(llTime);
    m_llPassStarted = m_clock.GetWallMs();
    m_engine.ProcessTimer();
    Settle();
    const bool bDue = !m_deadlines.empty() && m_deadlines.begin()->first < m_clock.GetWallMs();
    Require(!bDue || m_clock.GetWallMs() - m_llPassStarted >= PASS_MS, "what is due expires");
}

// Deadlines move with a wall clock that somebody sets.
void CTimersFuzz::StepWall()
{
    const long long llStep = (m_input.TakeByte() - 128) * 1000LL;
    m_clock.StepWall(llStep);
    CDeadlines moved;
    for (const auto& deadline : m_deadlines)
    {
        m_places[static_cast<size_t>(deadline.second)] =
            moved.emplace(deadline.first + llStep, deadline.second);
    }
    const CDeadlines::iterator itBefore = m_deadlines.end();
    m_deadlines.swap(moved);
    for (auto& place : m_places)
    {
        place = place == itBefore ? m_deadlines.end() : place;
    }
}

void CTimersFuzz::CheckTimeout()
{
    const int nTimeout = m_engine.CalcNextTimeout();
    if (m_deadlines.empty())
    {
        Require(nTimeout == -1, "without timers the loop sleeps for good");
        return;
    }
    const long long llLeft = m_deadlines.begin()->first - m_clock.GetWallMs();
    Require(nTimeout == (llLeft > 0 ? llLeft : 0), "the loop sleeps until the earliest deadline");
}

void CTimersFuzz::Step()
{
    const unsigned char cByte = m_input.TakeByte();
    const int i = cByte / 8 % TIMERS;
    switch (cByte % 8)
    {
        case 0:
            Disarm(i);
            break;
        case 1:
            Restart(i);
            break;
        case 2:
            StepWall();
            break;
        case 3:
        case 4:
            Advance();
            break;
        default:
            Arm(i);
            break;
    }
    CheckTimeout();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    CFuzzInput input(pData, nSize);
    CTimersFuzz timers(input);
    while (!input.IsEmpty())
    {
        timers.Step();
    }
    return 0;
}
