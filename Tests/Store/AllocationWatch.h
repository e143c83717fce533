#ifndef OSPREY_TESTS_ALLOCATIONWATCH_H
#define OSPREY_TESTS_ALLOCATIONWATCH_H

// Counts what the calling thread allocates in this test binary, through new and through malloc, and
// lets allocations fail.

// Blocks that this thread allocated, and those that it gave back, since it began.
long long GetAllocations();
long long GetDeallocations();

// For the length of a block every allocation of this thread fails, after the first nSpared. Check
// nothing inside: the test framework allocates too.
class CNoMemory
{
public:
    explicit CNoMemory(int nSpared = 0);
    ~CNoMemory();
    CNoMemory(const CNoMemory&) = delete;
    CNoMemory& operator=(const CNoMemory&) = delete;
};

#endif
