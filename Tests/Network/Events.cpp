#include "Events.h"

#include <algorithm>

void CEvents::Add(const std::string& strEvent)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        CEvent& event = m_events[strEvent];
        if (event.m_nCount++ == 0)
        {
            event.m_timeFirst = Now();
        }
    }
    m_changed.notify_all();
}

bool CEvents::WaitUntil(CTime deadline, const std::function<bool()>& fnCondition)
{
    for (;;)
    {
        if (fnCondition())
        {
            return true;
        }
        const CTime now = Now();
        if (now >= deadline)
        {
            return false;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_until(lock, std::min(deadline, now + std::chrono::milliseconds(100)));
    }
}

int CEvents::Count(const std::string& strEvent) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_events.find(strEvent);
    return it == m_events.end() ? 0 : it->second.m_nCount;
}

CTime CEvents::GetTime(const std::string& strEvent) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_events.at(strEvent).m_timeFirst;
}

std::string CEvents::Find(const std::string& strBegin) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_events.lower_bound(strBegin);
    const bool bFound =
        it != m_events.end() && it->first.compare(0, strBegin.size(), strBegin) == 0;
    return bFound ? it->first : std::string();
}
