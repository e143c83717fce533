#include "Pacer.h"

#include <algorithm>

namespace
{

const long long NS_PER_SECOND = 1000000000;
const long long LATEST_NS = 100000000;  // what a stream may make good at once

}  // namespace

long long CPacer::Planned() const
{
    return m_llAnchor + m_dwTaken * NS_PER_SECOND / m_dwRate;
}

long long CPacer::Due(long long llNow) const
{
    return m_dwRate == 0 || !m_bBegun ? llNow : std::max(Planned(), llNow);
}

void CPacer::Take(long long llNow)
{
    if (m_dwRate == 0)
    {
        return;
    }
    if (!m_bBegun || llNow - Planned() > LATEST_NS)
    {
        m_bBegun = true;
        m_llAnchor = llNow;
        m_dwTaken = 0;
    }
    // A whole second is exact whatever the rate is.
    if (++m_dwTaken == m_dwRate)
    {
        m_llAnchor += NS_PER_SECOND;
        m_dwTaken = 0;
    }
}
