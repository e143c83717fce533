#include "Cuts.h"

#include <algorithm>

void CCuts::Add(CTime timeFrom, CTime timeTo)
{
    m_cuts.push_back({timeFrom, timeTo});
}

void CCuts::Join(CTime now)
{
    m_cuts.erase(std::remove_if(m_cuts.begin(), m_cuts.end(),
                                [&](const CCut& cut) { return cut.m_timeFrom <= now; }),
                 m_cuts.end());
}

bool CCuts::IsCut(CTime now) const
{
    return std::any_of(m_cuts.begin(), m_cuts.end(),
                       [&](const CCut& cut)
                       { return cut.m_timeFrom <= now && now < cut.m_timeTo; });
}

CCuts::CTime CCuts::GetNext(CTime now) const
{
    CTime timeNext = CTime::max();
    for (const CCut& cut : m_cuts)
    {
        for (const CTime time : {cut.m_timeFrom, cut.m_timeTo})
        {
            if (time > now)
            {
                timeNext = std::min(timeNext, time);
            }
        }
    }
    return timeNext;
}
