#ifndef OSPREY_TESTS_LEFTOVERS_H
#define OSPREY_TESTS_LEFTOVERS_H

// How many threads and descriptors this process has. A thread that runs nothing of the program any
// more does not count.
int CountThreads();
int CountDescriptors();

// Whether there are so many threads at most, at this very moment. An emulator ends a thread only
// after it has let go whoever joins it: there, whether it is so soon.
bool HasThreads(int nMost);

// Remembers how many there were; later tells whether anything was left behind.
class CLeftovers
{
public:
    CLeftovers();

    // Waits until there are no more than before; fails the test at the deadline.
    void ExpectNone() const;
    // The same at this very moment.
    bool IsNone() const;

private:
    const int m_nThreads;
    const int m_nDescriptors;
};

#endif
