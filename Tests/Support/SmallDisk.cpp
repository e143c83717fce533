#include "SmallDisk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "ThisTest.h"

namespace
{

const int EXIT_REFUSED = 77;

bool LeaveMounts()
{
    return unshare(CLONE_NEWNS) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool WriteLine(const char* pszPath, const char* pszLine)
{
    const int hFile = open(pszPath, O_WRONLY | O_CLOEXEC);
    const ssize_t nSize = static_cast<ssize_t>(strlen(pszLine));
    const bool bWritten = hFile >= 0 && write(hFile, pszLine, strlen(pszLine)) == nSize;
    close(hFile);
    return bWritten;
}

// In a process that was forked beside other threads: nothing but system calls.
[[noreturn]] void BecomeTestWithUsers(const char* pszUsers, const char* pszGroups,
                                      char* const* ppszArguments)
{
    if (unshare(CLONE_NEWUSER) == 0 && WriteLine("/proc/self/setgroups", "deny") &&
        WriteLine("/proc/self/uid_map", pszUsers) && WriteLine("/proc/self/gid_map", pszGroups))
    {
        execv("/proc/self/exe", ppszArguments);
    }
    _exit(EXIT_REFUSED);
}

// In users of its own a process has the right to mounts of its own.
std::string RunTestAgain()
{
    std::string strName = "test";
    std::string strFilter = FilterOfThisTest();
    char* const arguments[] = {strName.data(), strFilter.data(), nullptr};
    const std::string strUsers = "0 " + std::to_string(geteuid()) + " 1";
    const std::string strGroups = "0 " + std::to_string(getegid()) + " 1";
    const pid_t nProcess = fork();
    if (nProcess == 0)
    {
        BecomeTestWithUsers(strUsers.c_str(), strGroups.c_str(), arguments);
    }
    int nStatus = 0;
    if (nProcess < 0 || waitpid(nProcess, &nStatus, 0) != nProcess)
    {
        return strerror(errno);
    }
    if (WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == EXIT_REFUSED)
    {
        return "no user namespace";
    }
    EXPECT_EQ(nStatus, 0) << "the test, run again in users of its own";
    return "";
}

}  // namespace

std::string RunWithSmallDisks(const std::function<void()>& fnBody)
{
    bool bLeft = false;
    int nError = 0;
    std::thread thread(
        [&]
        {
            bLeft = LeaveMounts();
            nError = errno;
            if (bLeft)
            {
                fnBody();
            }
        });
    thread.join();
    if (bLeft)
    {
        return "";
    }
    return geteuid() != 0 ? RunTestAgain() : strerror(nError);
}

CSmallDisk::CSmallDisk(const std::string& strFolder, size_t nSize) : m_strFolder(strFolder)
{
    const std::string strOptions = "size=" + std::to_string(nSize);
    EXPECT_EQ(mount("small", m_strFolder.c_str(), "tmpfs", 0, strOptions.c_str()), 0)
        << strerror(errno);
}

CSmallDisk::~CSmallDisk()
{
    EXPECT_EQ(umount2(m_strFolder.c_str(), 0), 0) << strerror(errno);
}
