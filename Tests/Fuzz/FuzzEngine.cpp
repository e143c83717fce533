#include "FuzzEngine.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "FuzzInput.h"

void CFuzzEngine::RunPasses(int nPasses)
{
    m_nLeft = nPasses + 1;  // the first call below comes before the first wait
    ReRunLoop();
    ClearStop();
}

void CFuzzEngine::ProcessDeferredHandlers()
{
    CIOEngine::ProcessDeferredHandlers();
    AddNextPassHandler(&m_keepGoing);
    if (--m_nLeft == 0)
    {
        StopLoop(0);
    }
}

void DropOutput()
{
    static const bool bDropped = freopen("/dev/null", "we", stdout) != nullptr;
    Require(bDropped, "there is a /dev/null");
}

int GetNextDescriptor()
{
    const int h = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    close(h);
    return h;
}
