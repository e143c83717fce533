#include "OwnNetwork.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "RawSocket.h"
#include "ThisTest.h"

extern char** environ;

namespace
{

std::string ErrorText(const std::string& strWhat)
{
    return strWhat + ": " + strerror(errno);
}

void Ip(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "ip");
    std::string strCommand;
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& strArgument : arguments)
    {
        strCommand += (strCommand.empty() ? "" : " ") + strArgument;
        pointers.push_back(strArgument.data());
    }
    pointers.push_back(nullptr);
    pid_t nProcess = -1;
    int nStatus = 0;
    errno = posix_spawnp(&nProcess, "ip", nullptr, nullptr, pointers.data(), environ);
    if (errno != 0 || waitpid(nProcess, &nStatus, 0) != nProcess)
    {
        throw CNetworkRefused(ErrorText(strCommand));
    }
    if (nStatus != 0)
    {
        throw CNetworkRefused(strCommand + " failed");
    }
}

// Names the descriptor on which a process in a network of its own reports that it was refused.
const char REPORT_VARIABLE[] = "OSPREY_TEST_OWN_NETWORK";

void Report(int hReport, const std::string& strRefused)
{
    EXPECT_EQ(write(hReport, strRefused.data(), strRefused.size()),
              static_cast<ssize_t>(strRefused.size()));
}

// Runs this test again, from the start of the program: a process that was forked beside other
// threads, a sanitizer's own among them, could not have a user namespace or threads.
[[noreturn]] void RunTestAgain(int hReport)
{
    try
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        LeaveNetwork();
        fcntl(hReport, F_SETFD, 0);
        setenv(REPORT_VARIABLE, std::to_string(hReport).c_str(), 1);
        execl("/proc/self/exe", "EndToEndTests", FilterOfThisTest().c_str(), nullptr);
    }
    catch (const CNetworkRefused& refused)
    {
        Report(hReport, refused.what());
    }
    _exit(1);
}

// What the process writes until it ends. Empty, and the test failed, when it does not end.
std::string ReadReport(int hReport, pid_t nProcess)
{
    std::string strReport;
    pollfd pfd = {hReport, POLLIN, 0};
    char szPart[512];
    for (;;)
    {
        if (poll(&pfd, 1, 3 * WAIT_MS) != 1)
        {
            ADD_FAILURE() << "waited in vain for the process in the other network";
            kill(nProcess, SIGKILL);
            return std::string();
        }
        const ssize_t nRead = read(hReport, szPart, sizeof szPart);
        if (nRead <= 0)
        {
            return strReport;
        }
        strReport.append(szPart, static_cast<size_t>(nRead));
    }
}

}  // namespace

void RunInOwnNetwork(const std::function<void()>& fnTest)
{
    if (const char* pszReport = getenv(REPORT_VARIABLE))
    {
        try
        {
            fnTest();
        }
        catch (const CNetworkRefused& refused)
        {
            Report(static_cast<int>(strtol(pszReport, nullptr, 10)), refused.what());
        }
        return;
    }
    int hReport[2] = {-1, -1};
    ASSERT_EQ(pipe2(hReport, O_CLOEXEC), 0);
    fflush(stdout);
    const pid_t nProcess = fork();
    if (nProcess == 0)
    {
        RunTestAgain(hReport[1]);
    }
    ASSERT_GT(nProcess, 0);
    close(hReport[1]);
    const std::string strRefused = ReadReport(hReport[0], nProcess);
    close(hReport[0]);
    int nStatus = 0;
    ASSERT_EQ(waitpid(nProcess, &nStatus, 0), nProcess);
    if (!strRefused.empty())
    {
        GTEST_SKIP() << "no network of its own here: " << strRefused;
    }
    EXPECT_EQ(nStatus, 0) << "in the other network, see above";
}

void UseLoopbackWithPorts(unsigned short wFirst, unsigned short wLast)
{
    Ip({"link", "set", "lo", "up"});
    const std::string strPorts = std::to_string(wFirst) + " " + std::to_string(wLast);
    WriteLine("/proc/sys/net/ipv4/ip_local_port_range", strPorts.c_str());
}

COwnNetwork::COwnNetwork()
{
    LeaveNetwork();
    m_hNear = OpenNetwork();
    LeaveNetwork();
    m_hFar = OpenNetwork();
    EnterNetwork(m_hNear);
    const std::string strFar =
        "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_hFar);
    Ip({"link", "add", "near", "type", "veth", "peer", "name", "far"});
    Ip({"link", "set", "far", "netns", strFar});
    Ip({"address", "add", "10.77.0.1/24", "dev", "near"});
    AtFarEnd([] { Ip({"address", "add", "10.77.0.2/24", "dev", "far"}); });
    SetNearUp(true);
    SetFarUp(true);
}

COwnNetwork::~COwnNetwork()
{
    close(m_hFar);
    close(m_hNear);
}

unsigned int COwnNetwork::GetFarAddress() const
{
    return 0x0A4D0002;
}

void COwnNetwork::SetNearUp(bool bUp) const
{
    Ip({"link", "set", "near", bUp ? "up" : "down"});
}

void COwnNetwork::SetFarUp(bool bUp) const
{
    AtFarEnd([&] { Ip({"link", "set", "far", bUp ? "up" : "down"}); });
}

void COwnNetwork::AtFarEnd(const std::function<void()>& fnCall) const
{
    EnterNetwork(m_hFar);
    fnCall();
    EnterNetwork(m_hNear);
}
