#ifndef OSPREY_TESTS_FUZZENGINE_H
#define OSPREY_TESTS_FUZZENGINE_H

#include "IOEngine.h"

// An engine whose loop the target runs itself, a few passes at a time, and which never waits.
class CFuzzEngine final : public CIOEngine
{
public:
    using CIOEngine::m_timerHeap;

    void RunPasses(int nPasses);

    void ProcessDeferredHandlers() override;

private:
    int m_nLeft = 0;
    CDeferredHandler m_keepGoing;  // as long as it is queued, no wait blocks
};

// From now on what the library prints is dropped.
void DropOutput();

// How many of the lowest 128 descriptors are open; new ones come lowest first.
int CountOpenDescriptors();

#endif
