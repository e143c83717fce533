#include "ServerProcess.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "LibOsprey.h"
#include "Subscribers.h"

namespace
{

const char LISTENS = 'L';

// The process: until it is killed, or nobody holds the other end of the link any more.
[[noreturn]] void Serve(int hLink, unsigned short wPort, unsigned int dwNumber, int hNamespace)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    char c = 0;
    if (freopen("/dev/null", "w", stdout) == nullptr ||
        (hNamespace >= 0 && setns(hNamespace, CLONE_NEWNET) != 0) || read(hLink, &c, 1) != 1)
    {
        _exit(1);
    }
    IOspreyServer* pServer = CreateOspreyServer(nullptr);
    if (!pServer->Startup(0, wPort) || write(hLink, &LISTENS, 1) != 1)
    {
        _exit(1);
    }
    unsigned int dwNext[3] = {dwNumber, dwNumber, dwNumber};
    pollfd pfd = {hLink, POLLIN, 0};
    const int nPaceMs = 5;
    while (poll(&pfd, 1, nPaceMs) == 0)
    {
        for (unsigned int i = 0; i < 3; ++i)
        {
            std::string strPacket = NumberedPacket(i + 1, dwNext[i]);
            const unsigned int dwResult = pServer->PutChannelPacket(
                i + 1, strPacket.data(), static_cast<unsigned int>(strPacket.size()));
            dwNext[i] += dwResult == 0 ? 1 : 0;
        }
    }
    _exit(0);
}

}  // namespace

CServerProcess::CServerProcess(unsigned short wPort, unsigned int dwFirstNumber, int hNamespace)
{
    int hEnds[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, hEnds), 0);
    fflush(stdout);
    m_nProcess = fork();
    if (m_nProcess == 0)
    {
        close(hEnds[0]);
        Serve(hEnds[1], wPort, dwFirstNumber, hNamespace);
    }
    EXPECT_GT(m_nProcess, 0);
    close(hEnds[1]);
    m_hLink = hEnds[0];
}

CServerProcess::~CServerProcess()
{
    Kill();
    close(m_hLink);
}

void CServerProcess::Start() const
{
    char c = 'S';
    ASSERT_EQ(write(m_hLink, &c, 1), 1);
    pollfd pfd = {m_hLink, POLLIN, 0};
    ASSERT_EQ(poll(&pfd, 1, WAIT_MS), 1) << "waited in vain for the server to listen";
    ASSERT_EQ(read(m_hLink, &c, 1), 1) << "the server cannot listen";
    EXPECT_EQ(c, LISTENS);
}

void CServerProcess::Kill()
{
    if (m_nProcess > 0)
    {
        kill(m_nProcess, SIGKILL);
        waitpid(m_nProcess, nullptr, 0);
        m_nProcess = -1;
    }
}
