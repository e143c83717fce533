#include "RateMeter.h"

namespace
{

const double WINDOW_SECONDS = 5.0;
const double SHORTEST_SECONDS = 0.2;
const double CLOSEST_SAMPLES = 0.05;

}  // namespace

void CRateMeter::Add(double dNow, unsigned long long ullBytes)
{
    if (!m_listSamples.empty() && ullBytes < m_listSamples.back().m_ullBytes)
    {
        m_listSamples.clear();
    }
    // Samples that come faster replace the newest, so that the list stays short.
    if (m_listSamples.size() > 1 && dNow - m_listSamples.back().m_dTime < CLOSEST_SAMPLES)
    {
        m_listSamples.back().m_ullBytes = ullBytes;
        return;
    }
    m_listSamples.push_back({dNow, ullBytes});
    while (m_listSamples.size() > 2 && dNow - m_listSamples[1].m_dTime > WINDOW_SECONDS)
    {
        m_listSamples.pop_front();
    }
}

double CRateMeter::Rate() const
{
    if (m_listSamples.empty())
    {
        return -1.0;
    }
    const CSample& first = m_listSamples.front();
    const CSample& last = m_listSamples.back();
    const double dSeconds = last.m_dTime - first.m_dTime;
    if (dSeconds < SHORTEST_SECONDS)
    {
        return -1.0;
    }
    return static_cast<double>(last.m_ullBytes - first.m_ullBytes) / dSeconds;
}

double CRateMeter::SecondsFor(unsigned long long ullLeft) const
{
    const double dRate = Rate();
    if (ullLeft == 0)
    {
        return 0.0;
    }
    return dRate > 0.0 ? static_cast<double>(ullLeft) / dRate : -1.0;
}
