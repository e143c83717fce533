#include "TestClock.h"

#include <sys/time.h>

#include <atomic>
#include <cassert>
#include <ctime>

namespace
{

std::atomic<bool> g_bActive{false};
std::atomic<long long> g_llWallUs{0};
std::atomic<long long> g_llMonotonicUs{0};

}  // namespace

extern "C"
{
    int __real_gettimeofday(timeval* pTime, void* pZone);
    int __real_clock_gettime(clockid_t clock, timespec* pTime);

    int __wrap_gettimeofday(timeval* pTime, void* pZone)
    {
        if (!g_bActive)
        {
            return __real_gettimeofday(pTime, pZone);
        }
        const long long llUs = g_llWallUs;
        pTime->tv_sec = llUs / 1000000;
        pTime->tv_usec = llUs % 1000000;
        return 0;
    }

    int __wrap_clock_gettime(clockid_t clock, timespec* pTime)
    {
        if (!g_bActive || clock != CLOCK_MONOTONIC)
        {
            return __real_clock_gettime(clock, pTime);
        }
        const long long llUs = g_llMonotonicUs;
        pTime->tv_sec = llUs / 1000000;
        pTime->tv_nsec = llUs % 1000000 * 1000;
        return 0;
    }
}

CTestClock::CTestClock(long long llWallMs)
{
    assert(!g_bActive);
    g_llWallUs = llWallMs * 1000;
    g_llMonotonicUs = 5000000;  // five seconds after boot
    g_bActive = true;
}

CTestClock::~CTestClock()
{
    g_bActive = false;
}

void CTestClock::Advance(long long llMilliseconds)
{
    AdvanceMicroseconds(llMilliseconds * 1000);
}

void CTestClock::AdvanceMicroseconds(long long llMicroseconds)
{
    // Whoever reads the wall clock first, as the engine does, never finds it ahead of the other
    // one: that would be a wall clock that was set.
    g_llMonotonicUs += llMicroseconds;
    g_llWallUs += llMicroseconds;
}

void CTestClock::StepWall(long long llMilliseconds)
{
    g_llWallUs += llMilliseconds * 1000;
}

long long CTestClock::GetWallMs() const
{
    return g_llWallUs / 1000;
}
