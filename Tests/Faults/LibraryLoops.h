#ifndef OSPREY_TESTS_LIBRARYLOOPS_H
#define OSPREY_TESTS_LIBRARYLOOPS_H

#include <functional>

#include "TestClock.h"

// While it lives, the one loop of the library that runs does so by a clock that moves only when
// that loop has nothing else left to do.
//
// Thread: a test's.
class CSteppedLoop
{
public:
    CSteppedLoop();
    ~CSteppedLoop();
    CSteppedLoop(const CSteppedLoop&) = delete;
    CSteppedLoop& operator=(const CSteppedLoop&) = delete;

    // Waits until the condition holds, no longer than until the loop has looked for events several
    // times from now on and found none. Whether it holds.
    bool WaitForIdle(const std::function<bool()>& fnCondition);
    // Lets time pass until the condition holds. The condition is asked again and again, between
    // events too, so that a peer can be served in it. False after so many sleeps, or when the loop
    // sleeps without end and fnForever, if there is one, knows nothing more to do either.
    bool RunUntil(const std::function<bool()>& fnCondition,
                  const std::function<bool()>& fnForever = nullptr, int nSleeps = 2000);

private:
    CTestClock m_clock;
};

#endif
