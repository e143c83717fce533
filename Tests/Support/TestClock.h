#ifndef OSPREY_TESTS_TESTCLOCK_H
#define OSPREY_TESTS_TESTCLOCK_H

// A clock that stands still until the test moves it. While one exists, gettimeofday and
// clock_gettime(CLOCK_MONOTONIC) of the whole test binary read it; otherwise real time passes
// through. Waits of the system itself are not affected.
//
// Thread: any may read; one test thread constructs and moves it.
class CTestClock
{
public:
    // Starts at the given wall-clock time, in milliseconds since 1970, on a whole millisecond.
    explicit CTestClock(long long llWallMs = 1623006586000LL);
    ~CTestClock();
    CTestClock(const CTestClock&) = delete;
    CTestClock& operator=(const CTestClock&) = delete;

    // Time passes: both clocks move.
    void Advance(long long llMilliseconds);
    void AdvanceMicroseconds(long long llMicroseconds);
    // Somebody sets the wall clock; the monotonic clock goes on as before.
    void StepWall(long long llMilliseconds);

    long long GetWallMs() const;
};

#endif
