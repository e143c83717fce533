#include "StressProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "RawSocket.h"

extern char** environ;

bool IsFullStress()
{
    const char* pszStress = getenv("OSPREY_STRESS");
    return pszStress != nullptr && std::string(pszStress) == "full";
}

CStressServer::CStressServer(const std::string& strFolder, int nDescriptors) : m_wPort(FreePort())
{
    int hCommands[2] = {-1, -1};
    int hAnswers[2] = {-1, -1};
    EXPECT_EQ(pipe2(hCommands, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(hAnswers, O_CLOEXEC), 0);
    std::string strProgram = OSPREY_STRESS_SERVER;
    std::string strPort = std::to_string(m_wPort);
    std::string strPath = strFolder;
    std::string strDescriptors = std::to_string(nDescriptors);
    char* arguments[] = {strProgram.data(), strPort.data(), strPath.data(),
                         nDescriptors > 0 ? strDescriptors.data() : nullptr, nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, hCommands[0], STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, hAnswers[1], 3);
    EXPECT_EQ(posix_spawn(&m_nProcess, strProgram.c_str(), &actions, nullptr, arguments, environ),
              0);
    posix_spawn_file_actions_destroy(&actions);
    close(hCommands[0]);
    close(hAnswers[1]);
    m_hCommands = hCommands[1];
    m_hAnswers = hAnswers[0];
    EXPECT_EQ(ReadAnswer(), "listening");
}

CStressServer::~CStressServer()
{
    close(m_hCommands);
    int nStatus = -1;
    EXPECT_EQ(waitpid(m_nProcess, &nStatus, 0), m_nProcess);
    EXPECT_EQ(nStatus, 0) << "the server's exit status";
    close(m_hAnswers);
}

std::string CStressServer::Obey(const std::string& strLine)
{
    const std::string strWhole = strLine + "\n";
    EXPECT_EQ(write(m_hCommands, strWhole.data(), strWhole.size()),
              static_cast<ssize_t>(strWhole.size()));
    return ReadAnswer();
}

std::string CStressServer::ReadAnswer()
{
    std::string strAnswer;
    pollfd pfd = {m_hAnswers, POLLIN, 0};
    char c = 0;
    while (poll(&pfd, 1, 3 * WAIT_MS) == 1 && read(m_hAnswers, &c, 1) == 1)
    {
        if (c == '\n')
        {
            return strAnswer;
        }
        strAnswer += c;
    }
    ADD_FAILURE() << "waited in vain for the server's answer";
    return strAnswer;
}

// proc(5): the second field of statm, in pages.
long CStressServer::GetResidentKiB() const
{
    std::ifstream file("/proc/" + std::to_string(m_nProcess) + "/statm");
    long nTotal = 0;
    long nResident = 0;
    file >> nTotal >> nResident;
    EXPECT_GT(nResident, 0);
    return nResident * (sysconf(_SC_PAGESIZE) / 1024);
}

// proc(5): smaps, a line with the addresses of each mapping before its sizes. The heap of a thread
// other than the first has no name, but begins at a multiple of 64 MiB.
long CStressServer::GetOtherMemoryKiB() const
{
    std::ifstream file("/proc/" + std::to_string(m_nProcess) + "/smaps");
    std::string strLine;
    bool bHeap = false;
    long nSum = 0;
    while (std::getline(file, strLine))
    {
        unsigned long long ullStart = 0;
        unsigned long long ullEnd = 0;
        long nKiB = 0;
        if (sscanf(strLine.c_str(), "%llx-%llx", &ullStart, &ullEnd) == 2)
        {
            bHeap = ullStart % (64U << 20) == 0 || strLine.find("[heap]") != std::string::npos;
        }
        else if (sscanf(strLine.c_str(), "Anonymous: %ld", &nKiB) == 1 && !bHeap)
        {
            nSum += nKiB;
        }
    }
    EXPECT_GT(nSum, 0);
    return nSum;
}

// proc(5): fields 14 and 15 of stat, in ticks; the second field may hold blanks, in brackets.
long CStressServer::GetProcessorMs() const
{
    std::ifstream file("/proc/" + std::to_string(m_nProcess) + "/stat");
    std::string strLine;
    std::getline(file, strLine);
    std::istringstream fields(strLine.substr(strLine.rfind(')') + 1));
    std::string strSkipped;
    for (int nField = 3; nField < 14; ++nField)
    {
        fields >> strSkipped;
    }
    long nUser = 0;
    long nKernel = 0;
    fields >> nUser >> nKernel;
    EXPECT_TRUE(fields.good());
    return (nUser + nKernel) * 1000 / sysconf(_SC_CLK_TCK);
}

int CStressServer::GetDescriptors(int nLimit) const
{
    int nCount = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(m_nProcess) + "/fd"))
    {
        nCount += std::stoi(entry.path().filename()) < nLimit ? 1 : 0;
    }
    return nCount;
}
