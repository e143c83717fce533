#include "FuzzEngine.h"

#include <poll.h>

#include <algorithm>
#include <array>
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

int CountOpenDescriptors()
{
    std::array<pollfd, 128> fds{};
    for (size_t i = 0; i < fds.size(); ++i)
    {
        fds[i].fd = static_cast<int>(i);
    }
    poll(fds.data(), fds.size(), 0);
    return static_cast<int>(std::count_if(
        fds.begin(), fds.end(), [](const pollfd& fd) { return (fd.revents & POLLNVAL) == 0; }));
}
