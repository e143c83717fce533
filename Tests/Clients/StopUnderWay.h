#ifndef OSPREY_TESTS_STOPUNDERWAY_H
#define OSPREY_TESTS_STOPUNDERWAY_H

#include "SystemCalls.h"
#include "Watched.h"

// Tells when a thread that stops a client waits for the worker to end: by then its stop has been
// asked for in full. No such thread may be left when the block ends.
class CStopUnderWay final : public CWatched
{
public:
    bool Wait() const
    {
        return WaitFor("a stop to wait for the worker", [this] { return m_nJoins > 0; });
    }

private:
    int m_nJoins = 0;
    const CReplacedCall<int(pthread_t, void**)> m_joining{
        g_callPthreadJoin, [this](pthread_t thread, void** ppResult)
        {
            Change([this] { ++m_nJoins; });
            return g_callPthreadJoin.Real(thread, ppResult);
        }};
};

#endif
