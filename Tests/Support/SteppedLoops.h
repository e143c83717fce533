#ifndef OSPREY_TESTS_STEPPEDLOOPS_H
#define OSPREY_TESTS_STEPPEDLOOPS_H

#include <sys/epoll.h>

#include <condition_variable>
#include <map>
#include <mutex>

#include "SystemCalls.h"
#include "TestClock.h"

// While it lives, every loop of the process runs by a clock that the test moves, on whatever thread
// it is: a loop's wait is cut into short ones, so that it looks at the clock again and again, and
// how long it asked to wait is known here. A loop that asks for the whole of a time that the test
// expects has done everything that was due, and everything that had come, before the test asked.
//
// Thread: used by the test's thread. Every loop must have ended before it goes.
class CSteppedLoops
{
public:
    // The wall clock's start, in milliseconds since 1970.
    explicit CSteppedLoops(long long llWallMs = 1623006586000LL);
    CSteppedLoops(const CSteppedLoops&) = delete;
    CSteppedLoops& operator=(const CSteppedLoops&) = delete;

    // Waits until a loop, after a whole pass from now on, wants to sleep for exactly that long; -1
    // is without end. Fails the test at the deadline.
    bool WaitForSleep(int nTimeoutMs);
    void Advance(long long llMilliseconds);
    // Somebody sets the wall clock.
    void StepWall(long long llMilliseconds);

private:
    // The latest wait of a loop, and when it began: an older wait says nothing of what has happened
    // since, and neither does the first one of a turn, whose time-out was reckoned before.
    struct CSleep
    {
        int m_nTimeoutMs;
        long long m_llTurn;
    };
    int Poll(int hEpoll, epoll_event* pEvents, int nMaxEvents, int nTimeoutMs);
    bool Sleeps(int nTimeoutMs) const;

    CTestClock m_clock;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    long long m_llTurn = 0;                    // counts what the test has waited for
    std::map<int, CSleep> m_sleeps;            // of each epoll descriptor that found nothing to do
    std::map<int, long long> m_turnsOfPasses;  // the turn in which its present pass began
    const CReplacedCall<int(int, epoll_event*, int, int)> m_polling;
};

#endif
