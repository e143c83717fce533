// The program behind CServerProcess: PORT FIRST-NUMBER [NETWORK]. Says with one byte on its
// standard input that it listens, and then puts packets until it is killed or its parent ends.

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "LibOsprey.h"
#include "NumberedPacket.h"

namespace
{

const unsigned int CHANNELS = 3;
// A channel keeps 2,048 packets: 40 seconds, which is more than any connection outlives a cut.
const std::chrono::milliseconds PAUSE(20);

bool EnterNetwork(const char* pszPath)
{
    const int hNetwork = open(pszPath, O_RDONLY | O_CLOEXEC);
    return hNetwork >= 0 && setns(hNetwork, CLONE_NEWNET) == 0;
}

[[noreturn]] void PutForEver(IOspreyServer& server, unsigned int dwFirstNumber)
{
    unsigned int dwNumbers[CHANNELS] = {dwFirstNumber, dwFirstNumber, dwFirstNumber};
    for (;;)
    {
        for (unsigned int i = 0; i < CHANNELS; ++i)
        {
            std::string strPacket = NumberedPacket(i + 1, dwNumbers[i]);
            if (server.PutChannelPacket(i + 1, strPacket.data(),
                                        static_cast<unsigned int>(strPacket.size())) == 0)
            {
                ++dwNumbers[i];
            }
        }
        std::this_thread::sleep_for(PAUSE);
    }
}

}  // namespace

int main(int nArguments, char** ppszArguments)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (nArguments < 3 || (nArguments > 3 && !EnterNetwork(ppszArguments[3])))
    {
        return 1;
    }
    IOspreyServer* pServer = CreateOspreyServer(nullptr);
    const auto wPort = static_cast<unsigned short>(strtoul(ppszArguments[1], nullptr, 10));
    if (!pServer->Startup(0, wPort) || write(STDIN_FILENO, "L", 1) != 1)
    {
        return 1;
    }
    PutForEver(*pServer, static_cast<unsigned int>(strtoul(ppszArguments[2], nullptr, 10)));
}
