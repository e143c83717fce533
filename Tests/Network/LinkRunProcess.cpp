#include "LinkRunProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace
{

const int RUN_MS = 600000;  // its own waits are shorter, and say what they waited for

pid_t Start(std::vector<std::string> words, int hOutput)
{
    words.insert(words.begin(), OSPREY_LINK_RUN);
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& strWord : words)
    {
        pointers.push_back(strWord.data());
    }
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, hOutput, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, hOutput, STDERR_FILENO);
    pid_t nProcess = -1;
    EXPECT_EQ(posix_spawn(&nProcess, OSPREY_LINK_RUN, &actions, nullptr, pointers.data(), environ),
              0);
    posix_spawn_file_actions_destroy(&actions);
    return nProcess;
}

// Until the other end is closed.
std::string ReadAll(int hOutput, pid_t nProcess)
{
    std::string strOutput;
    char szPart[1024];
    pollfd pfd = {hOutput, POLLIN, 0};
    for (;;)
    {
        if (poll(&pfd, 1, RUN_MS) != 1)
        {
            ADD_FAILURE() << "waited in vain for the run to end";
            kill(nProcess, SIGKILL);
            return strOutput;
        }
        const ssize_t nRead = read(hOutput, szPart, sizeof szPart);
        if (nRead <= 0)
        {
            return strOutput;
        }
        strOutput.append(szPart, static_cast<size_t>(nRead));
    }
}

}  // namespace

CLinkRunResult RunLink(const std::vector<std::string>& words)
{
    CLinkRunResult result;
    int hOutput[2] = {-1, -1};
    EXPECT_EQ(pipe2(hOutput, O_CLOEXEC), 0);
    const pid_t nProcess = Start(words, hOutput[1]);
    close(hOutput[1]);
    result.m_strOutput = ReadAll(hOutput[0], nProcess);
    close(hOutput[0]);
    int nStatus = 0;
    if (nProcess > 0 && waitpid(nProcess, &nStatus, 0) == nProcess && WIFEXITED(nStatus))
    {
        result.m_nExitCode = WEXITSTATUS(nStatus);
    }
    return result;
}
