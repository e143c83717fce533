#include "ServerProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "RawSocket.h"

extern char** environ;

CServerProcess::CServerProcess(unsigned short wPort, unsigned int dwFirstNumber, int hNetwork)
{
    int hEnds[2] = {-1, -1};
    EXPECT_EQ(pipe2(hEnds, O_CLOEXEC), 0);
    std::vector<std::string> arguments = {OSPREY_CHANNELS_SERVER, std::to_string(wPort),
                                          std::to_string(dwFirstNumber)};
    if (hNetwork >= 0)
    {
        arguments.push_back("/proc/" + std::to_string(getpid()) + "/fd/" +
                            std::to_string(hNetwork));
    }
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& strArgument : arguments)
    {
        pointers.push_back(strArgument.data());
    }
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, hEnds[1], STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    EXPECT_EQ(posix_spawn(&m_nProcess, OSPREY_CHANNELS_SERVER, &actions, nullptr, pointers.data(),
                          environ),
              0);
    posix_spawn_file_actions_destroy(&actions);
    close(hEnds[1]);
    pollfd pfd = {hEnds[0], POLLIN, 0};
    char c = 0;
    EXPECT_EQ(poll(&pfd, 1, WAIT_MS), 1) << "waited in vain for the server to listen";
    EXPECT_EQ(read(hEnds[0], &c, 1), 1) << "the server cannot listen";
    close(hEnds[0]);
}

CServerProcess::~CServerProcess()
{
    Kill();
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
