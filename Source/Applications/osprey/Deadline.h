#ifndef OSPREY_TOOL_DEADLINE_H
#define OSPREY_TOOL_DEADLINE_H

#include <algorithm>
#include <chrono>

// The moment in which a whole run is to have ended, if there is one.
class CDeadline final
{
public:
    // 0: there is none.
    explicit CDeadline(unsigned int dwSeconds) : m_dwSeconds(dwSeconds) {}

    bool IsOver() const
    {
        return m_dwSeconds != 0 && Left() <= std::chrono::milliseconds(0);
    }
    // Milliseconds until then, nMost at most.
    int MsLeft(int nMost) const
    {
        if (m_dwSeconds == 0)
        {
            return nMost;
        }
        const auto nLeft = std::chrono::ceil<std::chrono::milliseconds>(Left()).count();
        return static_cast<int>(std::clamp<long long>(nLeft, 0, nMost));
    }
    // 0: there is none.
    unsigned int Seconds() const
    {
        return m_dwSeconds;
    }

private:
    using CClock = std::chrono::steady_clock;

    CClock::duration Left() const
    {
        return m_begin + std::chrono::seconds(m_dwSeconds) - CClock::now();
    }

    const unsigned int m_dwSeconds;
    const CClock::time_point m_begin = CClock::now();
};

#endif
