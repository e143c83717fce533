#include "Namespaces.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace
{

std::string ErrorText(const std::string& strWhat)
{
    return strWhat + ": " + strerror(errno);
}

}  // namespace

void WriteLine(const char* pszPath, const char* pszLine)
{
    const int hFile = open(pszPath, O_WRONLY | O_CLOEXEC);
    const bool bWritten = hFile >= 0 && write(hFile, pszLine, strlen(pszLine)) ==
                                            static_cast<ssize_t>(strlen(pszLine));
    const std::string strError = ErrorText(pszPath);
    close(hFile);
    if (!bWritten)
    {
        throw CNetworkRefused(strError);
    }
}

void LeaveNetwork()
{
    if (unshare(CLONE_NEWNET) == 0)
    {
        return;
    }
    const std::string strUser = "0 " + std::to_string(geteuid()) + " 1";
    const std::string strGroup = "0 " + std::to_string(getegid()) + " 1";
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
    {
        throw CNetworkRefused(ErrorText("unshare"));
    }
    WriteLine("/proc/self/setgroups", "deny");
    WriteLine("/proc/self/uid_map", strUser.c_str());
    WriteLine("/proc/self/gid_map", strGroup.c_str());
}

int OpenNetwork()
{
    const int hNetwork = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    if (hNetwork < 0)
    {
        throw CNetworkRefused(ErrorText("/proc/thread-self/ns/net"));
    }
    return hNetwork;
}

void EnterNetwork(int hNetwork)
{
    if (setns(hNetwork, CLONE_NEWNET) != 0)
    {
        throw CNetworkRefused(ErrorText("setns"));
    }
}
