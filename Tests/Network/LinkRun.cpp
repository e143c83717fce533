// One run of the library over one link: KIND [NAME=VALUE...], as Setting.h says; --head prints the
// head of the table. Prints one row of it, and what was violated.
//
// Exit code: 0 nothing was violated; 1 something was; 2 wrong usage; 77 the machine does not allow
// networks of one's own, with what it refuses on standard error.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Namespaces.h"
#include "Runs.h"

namespace
{

const int VIOLATED = 1;
const int WRONG_USAGE = 2;
const int REFUSED = 77;

const char INSIDE_VARIABLE[] = "OSPREY_TEST_INSIDE_OWN_NETWORK";

// The library's trace lines go nowhere; what this program says goes to the descriptor returned.
int SilenceTrace()
{
    const int hOut = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const int hNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (hOut < 0 || hNull < 0 || dup2(hNull, STDOUT_FILENO) < 0)
    {
        perror("standard output");
        exit(WRONG_USAGE);
    }
    return hOut;
}

int Run(const CSetting& setting)
{
    const int hOut = SilenceTrace();
    CLink link(setting);
    const bool bMany = setting.m_strKind == "uploads" || setting.m_strKind == "downloads";
    const COutcome outcome = setting.m_strKind == "channel" ? RunChannel(setting, link)
                             : bMany                        ? RunJobs(setting, link)
                                                            : RunFile(setting, link);
    const std::string strText = outcome.GetText(setting);
    const bool bWritten =
        write(hOut, strText.data(), strText.size()) == static_cast<ssize_t>(strText.size());
    return bWritten && outcome.m_violations.empty() ? 0 : VIOLATED;
}

int RunOrRefuse(const CSetting& setting)
{
    try
    {
        return Run(setting);
    }
    catch (const CNetworkRefused& refused)
    {
        fprintf(stderr, "no network of its own here: %s\n", refused.what());
        return REFUSED;
    }
    catch (const std::exception& error)
    {
        fprintf(stderr, "%s\n", error.what());
        return VIOLATED;
    }
}

// A process that has, maybe, a user namespace of its own must begin anew in it: a sanitizer's
// threads are there from the start of a program.
[[noreturn]] void BeginAnew(char** ppszArguments)
{
    try
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        LeaveNetwork();
        setenv(INSIDE_VARIABLE, "1", 1);
        execv("/proc/self/exe", ppszArguments);
    }
    catch (const CNetworkRefused& refused)
    {
        fprintf(stderr, "no network of its own here: %s\n", refused.what());
    }
    _exit(REFUSED);
}

}  // namespace

int main(int nArguments, char** ppszArguments)
{
    const std::vector<std::string> words(ppszArguments + 1, ppszArguments + nArguments);
    CSetting setting;
    if (words == std::vector<std::string>{"--head"})
    {
        fputs(GetTableHead().c_str(), stdout);
        return 0;
    }
    if (!setting.Parse(words))
    {
        fputs(
            "LinkRun upload|download|channel|uploads|downloads [delay=MS] [jitter=MS] [loss=%]\n"
            "        [reorder=%] [duplicate=%] [corrupt=%] [cut=SECONDS|ever] [rate=KBIT]\n"
            "        [bytes=N] [files=N] [seed=N] [slack=SECONDS]\n",
            stderr);
        return WRONG_USAGE;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getenv(INSIDE_VARIABLE) != nullptr)
    {
        return RunOrRefuse(setting);
    }
    const pid_t nProcess = fork();
    if (nProcess == 0)
    {
        BeginAnew(ppszArguments);
    }
    int nStatus = 0;
    if (nProcess < 0 || waitpid(nProcess, &nStatus, 0) != nProcess || !WIFEXITED(nStatus))
    {
        fputs("the run did not end by itself\n", stderr);
        return VIOLATED;
    }
    return WEXITSTATUS(nStatus);
}
