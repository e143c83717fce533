#include "Watched.h"

#include <gtest/gtest.h>

#include <chrono>

#include "RawSocket.h"

bool CWatched::WaitFor(const std::string& strFor, const std::function<bool()>& fnCondition) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    // The system's clock, which test clocks do not reach: the standard library reads it inside.
    const bool bHolds = m_changed.wait_until(
        lock, std::chrono::system_clock::now() + std::chrono::milliseconds(WAIT_MS), fnCondition);
    if (!bHolds)
    {
        ADD_FAILURE() << "waited in vain for " << strFor;
    }
    return bHolds;
}

void CWatched::Look(const std::function<void()>& fnLook) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    fnLook();
}

void CWatched::Change(const std::function<void()>& fnChange)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        fnChange();
    }
    m_changed.notify_all();
}
