#include "SteppedLoops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "RawSocket.h"

namespace
{

const int SHORT_WAIT_MS = 2;

}  // namespace

CSteppedLoops::CSteppedLoops(long long llWallMs)
    : m_clock(llWallMs),
      m_polling(g_callEpollWait,
                [this](int hEpoll, epoll_event* pEvents, int nMaxEvents, int nTimeoutMs)
                { return Poll(hEpoll, pEvents, nMaxEvents, nTimeoutMs); })
{
}

int CSteppedLoops::Poll(int hEpoll, epoll_event* pEvents, int nMaxEvents, int nTimeoutMs)
{
    long long llTurn = 0;
    bool bWholePass = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        llTurn = m_llTurn;
        const auto it = m_turnsOfPasses.find(hEpoll);
        bWholePass = it != m_turnsOfPasses.end() && it->second == llTurn;
    }
    int nReady = g_callEpollWait.Real(hEpoll, pEvents, nMaxEvents, 0);
    if (nReady == 0)
    {
        if (bWholePass)
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_sleeps[hEpoll] = {nTimeoutMs, llTurn};
            m_changed.notify_all();
        }
        const int nShort = nTimeoutMs < 0 ? SHORT_WAIT_MS : std::min(nTimeoutMs, SHORT_WAIT_MS);
        nReady = g_callEpollWait.Real(hEpoll, pEvents, nMaxEvents, nShort);
    }
    if (nReady >= 0)  // else the loop waits again, for as long as before
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_turnsOfPasses[hEpoll] = m_llTurn;
    }
    return nReady;
}

bool CSteppedLoops::Sleeps(int nTimeoutMs) const
{
    return std::any_of(
        m_sleeps.begin(), m_sleeps.end(),
        [&](const auto& sleep)
        { return sleep.second.m_llTurn == m_llTurn && sleep.second.m_nTimeoutMs == nTimeoutMs; });
}

bool CSteppedLoops::WaitForSleep(int nTimeoutMs)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    ++m_llTurn;
    // The system's clock, which test clocks do not reach: the standard library reads it inside.
    const bool bSleeps = m_changed.wait_until(
        lock, std::chrono::system_clock::now() + std::chrono::milliseconds(WAIT_MS),
        [&] { return Sleeps(nTimeoutMs); });
    if (!bSleeps)
    {
        std::string strSleeps;
        for (const auto& sleep : m_sleeps)
        {
            strSleeps += " " + std::to_string(sleep.second.m_nTimeoutMs);
        }
        ADD_FAILURE() << "waited in vain for a loop to sleep for " << nTimeoutMs
                      << " ms; they sleep for" << strSleeps;
    }
    return bSleeps;
}

void CSteppedLoops::Advance(long long llMilliseconds)
{
    m_clock.Advance(llMilliseconds);
}

void CSteppedLoops::StepWall(long long llMilliseconds)
{
    m_clock.StepWall(llMilliseconds);
}
