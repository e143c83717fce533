#include "Link.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <vector>

#include "Namespaces.h"

extern char** environ;

namespace
{

const int ANSWER_MS = 60000;

std::vector<std::string> Arguments(const CSetting& setting, int hNear, int hFar)
{
    const std::string strFolder = "/proc/" + std::to_string(getpid()) + "/fd/";
    return {OSPREY_WIRE,
            "--end-with-input",
            "--near=" + strFolder + std::to_string(hNear),
            "--far=" + strFolder + std::to_string(hFar),
            "--delay=" + std::to_string(setting.m_nDelayMs),
            "--jitter=" + std::to_string(setting.m_nJitterMs),
            "--loss=" + std::to_string(setting.m_nLoss),
            "--reorder=" + std::to_string(setting.m_nReorder),
            "--duplicate=" + std::to_string(setting.m_nDuplicate),
            "--corrupt=" + std::to_string(setting.m_nCorrupt),
            "--rate=" + std::to_string(setting.m_nRateKbit),
            "--seed=" + std::to_string(setting.m_nSeed)};
}

}  // namespace

CLink::CLink(const CSetting& setting)
{
    LeaveNetwork();
    m_hFar = OpenNetwork();
    LeaveNetwork();
    m_hNear = OpenNetwork();
    Start(setting);
}

CLink::~CLink()
{
    close(m_hCommands);
    close(m_hAnswers);
    if (m_nWire > 0)
    {
        kill(m_nWire, SIGTERM);
        waitpid(m_nWire, nullptr, 0);
    }
    close(m_hNear);
    close(m_hFar);
}

void CLink::Start(const CSetting& setting)
{
    std::vector<std::string> arguments = Arguments(setting, m_hNear, m_hFar);
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& strArgument : arguments)
    {
        pointers.push_back(strArgument.data());
    }
    pointers.push_back(nullptr);
    int hCommands[2] = {-1, -1};
    int hAnswers[2] = {-1, -1};
    if (pipe2(hCommands, O_CLOEXEC) != 0 || pipe2(hAnswers, O_CLOEXEC) != 0)
    {
        throw CNetworkRefused("pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, hCommands[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, hAnswers[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, hAnswers[1], STDERR_FILENO);
    posix_spawn(&m_nWire, OSPREY_WIRE, &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(hCommands[0]);
    close(hAnswers[1]);
    m_hCommands = hCommands[1];
    m_hAnswers = hAnswers[0];
    const std::string strReady = ReadLine();
    if (strReady != "ready")
    {
        throw CNetworkRefused(strReady.empty() ? "wire does not start" : strReady);
    }
}

void CLink::AtFarEnd(const std::function<void()>& fnCall) const
{
    EnterNetwork(m_hFar);
    fnCall();
    EnterNetwork(m_hNear);
}

void CLink::Cut()
{
    Say("cut");
}

void CLink::Join()
{
    Say("join");
}

bool CLink::HasConnection() const
{
    bool bFound = false;
    AtFarEnd(
        [&]
        {
            std::ifstream table("/proc/thread-self/net/tcp");
            for (std::string strLine; std::getline(table, strLine);)
            {
                std::istringstream fields(strLine);
                std::string strField[4];
                fields >> strField[0] >> strField[1] >> strField[2] >> strField[3];
                bFound = bFound || strField[3] == "01";  // established
            }
        });
    return bFound;
}

unsigned long long CLink::Count(const std::string& strWhat)
{
    const std::string strCommand = "counters\n";
    unsigned long long ullCount = 0;
    if (write(m_hCommands, strCommand.data(), strCommand.size()) > 0)
    {
        for (int i = 0; i < 2; ++i)
        {
            const std::string strLine = ReadLine();
            const size_t nAt = strLine.find(strWhat + " ");
            ullCount += nAt == std::string::npos
                            ? 0
                            : strtoull(strLine.c_str() + nAt + strWhat.size(), nullptr, 10);
        }
    }
    return ullCount;
}

void CLink::Say(const std::string& strCommand)
{
    const std::string strLine = strCommand + "\n";
    const ssize_t nWritten = write(m_hCommands, strLine.data(), strLine.size());
    const std::string strAnswer = ReadLine();
    if (nWritten != static_cast<ssize_t>(strLine.size()) || strAnswer != "done: " + strCommand)
    {
        throw std::runtime_error("wire answered '" + strAnswer + "' to '" + strCommand + "'");
    }
}

// "" when nothing comes.
std::string CLink::ReadLine()
{
    std::string strLine;
    pollfd pfd = {m_hAnswers, POLLIN, 0};
    char c = 0;
    while (poll(&pfd, 1, ANSWER_MS) == 1 && read(m_hAnswers, &c, 1) == 1 && c != '\n')
    {
        strLine += c;
    }
    return strLine;
}
