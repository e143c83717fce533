#ifndef OSPREY_TESTS_FAULTSWEEP_H
#define OSPREY_TESTS_FAULTSWEEP_H

// Runs a scenario again and again, each time with another call failing.

#include <functional>
#include <string>

#include "FaultPlan.h"

// Runs a scenario from beginning to end under the fault, or undisturbed when there is none; returns
// what came of it, a word each.
typedef std::function<std::string(const CFault*)> CScenarioRun;

// Each allocation of the scenario fails once, and once with all behind it. Returns how many faults
// were met.
int SweepAllocations(const CScenarioRun& run);
// Each call of the scenario fails in each of its ways: the first ones of a kind, one in the middle
// and the last ones. Returns how many faults were met.
int SweepCalls(const CScenarioRun& run);

// Says so in the test's output and report; returns the number.
int ShowFaults(int nFaults);

// To be called at the end of a run: nothing may be left of it. Remembers what there was when it is
// made.
class CNothingLeft
{
public:
    CNothingLeft();
    void Expect() const;

private:
    int m_nBlocks;
    int m_nThreads;
    int m_nDescriptors;
};

#endif
