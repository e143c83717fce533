#include "ToolProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <regex>
#include <sstream>

#include "RawSocket.h"
#include "TempFolder.h"

extern char** environ;

namespace
{

long long NowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// The near and the far end of what is to be a standard output.
void OpenTerminal(int nColumns, int& nNear, int& nFar)
{
    nNear = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(nNear, 0);
    ASSERT_EQ(grantpt(nNear), 0);
    ASSERT_EQ(unlockpt(nNear), 0);
    nFar = open(ptsname(nNear), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(nFar, 0);
    winsize size{};
    size.ws_row = 24;
    size.ws_col = static_cast<unsigned short>(nColumns);
    ASSERT_EQ(ioctl(nNear, TIOCSWINSZ, &size), 0);
}

void OpenPipe(int& nNear, int& nFar)
{
    int pnEnds[2] = {-1, -1};
    ASSERT_EQ(pipe2(pnEnds, O_CLOEXEC), 0);
    nNear = pnEnds[0];
    nFar = pnEnds[1];
}

std::vector<char*> Pointers(std::vector<std::string>& listTexts)
{
    std::vector<char*> listPointers;
    listPointers.reserve(listTexts.size() + 1);
    for (std::string& strText : listTexts)
    {
        listPointers.push_back(strText.data());
    }
    listPointers.push_back(nullptr);
    return listPointers;
}

const char USUAL_TERM[] = "xterm";
std::string g_strTerm = USUAL_TERM;

// The test's environment with a terminal that can move its cursor, and without the options of
// whoever runs it.
std::vector<std::string> Environment()
{
    std::vector<std::string> listResult;
    for (char** ppsz = environ; *ppsz != nullptr; ++ppsz)
    {
        const std::string strVariable = *ppsz;
        if (strVariable.compare(0, 5, "TERM=") != 0 && strVariable.compare(0, 7, "OSPREY_") != 0)
        {
            listResult.emplace_back(*ppsz);
        }
    }
    listResult.push_back("TERM=" + g_strTerm);
    listResult.emplace_back("OSPREY_CONFIG=/dev/null");
    return listResult;
}

// What tools note between runs goes to a folder of this process's own.
const struct CStateFolder
{
    CStateFolder()
    {
        setenv("XDG_STATE_HOME", m_folder.GetPath().c_str(), 1);
    }

    CTempFolder m_folder;
} STATE_FOLDER;

const char SANITIZER_OPTIONS[] = "TSAN_OPTIONS";

}  // namespace

CEndWithoutJoin::CEndWithoutJoin()
{
    const char* pszBefore = getenv(SANITIZER_OPTIONS);
    m_strBefore = pszBefore != nullptr ? pszBefore : "";
    setenv(SANITIZER_OPTIONS, (m_strBefore + ":report_thread_leaks=0:atexit_sleep_ms=0").c_str(),
           1);
}

CEndWithoutJoin::~CEndWithoutJoin()
{
    setenv(SANITIZER_OPTIONS, m_strBefore.c_str(), 1);
}

CWithTerm::CWithTerm(const std::string& strTerm)
{
    g_strTerm = strTerm;
}

CWithTerm::~CWithTerm()
{
    g_strTerm = USUAL_TERM;
}

bool HasOnlyCursorSequences(const std::string& strOutput)
{
    const std::regex sequence("\x1B\\[([0-9]*A|J|K|\\?7[hl])");
    return std::regex_replace(strOutput, sequence, "").find('\x1B') == std::string::npos;
}

CToolProcess::CToolProcess(const std::vector<std::string>& listArguments, int nColumns,
                           const std::string& strFolder, const std::string& strInput)
{
    int nOutput = -1;
    int nErrors = -1;
    nColumns > 0 ? OpenTerminal(nColumns, m_nOutput, nOutput) : OpenPipe(m_nOutput, nOutput);
    OpenPipe(m_nErrors, nErrors);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, strInput.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, nOutput, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, nErrors, STDERR_FILENO);
    if (!strFolder.empty())
    {
        posix_spawn_file_actions_addchdir_np(&actions, strFolder.c_str());
    }
    std::vector<std::string> listTexts = {OSPREY_TOOL};
    listTexts.insert(listTexts.end(), listArguments.begin(), listArguments.end());
    std::vector<std::string> listEnvironment = Environment();
    EXPECT_EQ(posix_spawn(&m_nProcess, OSPREY_TOOL, &actions, nullptr, Pointers(listTexts).data(),
                          Pointers(listEnvironment).data()),
              0);
    posix_spawn_file_actions_destroy(&actions);
    close(nOutput);
    close(nErrors);
}

CToolProcess::~CToolProcess()
{
    if (m_nProcess > 0)
    {
        kill(m_nProcess, SIGKILL);
        waitpid(m_nProcess, nullptr, 0);
    }
    if (testing::Test::HasFailure())
    {
        ReadSome(0);
        fprintf(stderr, "what a tool said before:\n%s", m_strErrors.c_str());
    }
    CloseOutput();
    if (m_nErrors >= 0)
    {
        close(m_nErrors);
    }
}

void CToolProcess::Signal(int nSignal) const
{
    ASSERT_EQ(kill(m_nProcess, nSignal), 0);
}

int CToolProcess::SignalUntilEnd(int nSignal)
{
    const auto HasEnded = [this]
    {
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(m_nProcess), &info, WEXITED | WNOHANG | WNOWAIT);
        return info.si_pid == m_nProcess;
    };
    for (const long long llDeadline = NowMs() + WAIT_MS; NowMs() < llDeadline && !HasEnded();)
    {
        Signal(nSignal);
        ReadSome(50);
    }
    return Wait();
}

void CToolProcess::Type(const std::string& strKeys) const
{
    ASSERT_EQ(write(m_nOutput, strKeys.data(), strKeys.size()),
              static_cast<ssize_t>(strKeys.size()));
}

void CToolProcess::CloseOutput()
{
    if (m_nOutput >= 0)
    {
        close(m_nOutput);
        m_nOutput = -1;
    }
}

// False when both have ended.
bool CToolProcess::ReadSome(int nTimeoutMs)
{
    pollfd sources[] = {{m_nOutput, POLLIN, 0}, {m_nErrors, POLLIN, 0}};
    if (m_nOutput < 0 && m_nErrors < 0)
    {
        return false;
    }
    if (poll(sources, 2, nTimeoutMs) <= 0)
    {
        return true;
    }
    int* const ppnDescriptors[] = {&m_nOutput, &m_nErrors};
    std::string* const ppstrTexts[] = {&m_strOutput, &m_strErrors};
    for (size_t i = 0; i < 2; ++i)
    {
        char pBuffer[65536];
        if (sources[i].revents == 0)
        {
            continue;
        }
        const ssize_t n = read(*ppnDescriptors[i], pBuffer, sizeof pBuffer);
        if (n > 0)
        {
            ppstrTexts[i]->append(pBuffer, static_cast<size_t>(n));
            continue;
        }
        close(*ppnDescriptors[i]);
        *ppnDescriptors[i] = -1;
    }
    return true;
}

bool CToolProcess::WaitUntil(const std::string& strFor, const std::function<bool()>& fnCondition)
{
    const long long llDeadline = NowMs() + WAIT_MS;
    while (!fnCondition())
    {
        const long long llLeft = llDeadline - NowMs();
        if (llLeft <= 0 || !ReadSome(static_cast<int>(std::min(llLeft, 20LL))))
        {
            ADD_FAILURE() << "waited for " << strFor << "\noutput: " << m_strOutput
                          << "\nerrors: " << m_strErrors;
            return false;
        }
    }
    return true;
}

bool CToolProcess::WaitForOutput(const std::string& strText)
{
    return WaitUntil("the output \"" + strText + "\"",
                     [&] { return m_strOutput.find(strText) != std::string::npos; });
}

int CToolProcess::Wait()
{
    const long long llDeadline = NowMs() + WAIT_MS;
    while (NowMs() < llDeadline && ReadSome(100))
    {
    }
    int nStatus = 0;
    pid_t nEnded = 0;
    while (nEnded == 0 && NowMs() < llDeadline)
    {
        nEnded = waitpid(m_nProcess, &nStatus, WNOHANG);
        if (nEnded == 0)
        {
            poll(nullptr, 0, 5);
        }
    }
    if (nEnded != m_nProcess)
    {
        ADD_FAILURE() << "waited for the tool to end\noutput: " << m_strOutput
                      << "\nerrors: " << m_strErrors;
        return -1000;
    }
    m_nProcess = -1;
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -WTERMSIG(nStatus);
}

std::vector<std::string> CToolProcess::GetLines() const
{
    std::vector<std::string> listLines;
    std::istringstream text(m_strOutput.substr(0, m_strOutput.rfind('\n') + 1));
    for (std::string strLine; std::getline(text, strLine);)
    {
        listLines.push_back(strLine);
    }
    return listLines;
}

std::vector<CEvent> CToolProcess::GetEvents() const
{
    std::vector<CEvent> listEvents;
    for (const std::string& strLine : GetLines())
    {
        listEvents.push_back(CEvent::Parse(strLine));
        EXPECT_FALSE(listEvents.back().IsNull()) << "no JSON: " << strLine;
    }
    return listEvents;
}

CEvent CToolProcess::WaitForEvent(const std::string& strEvent)
{
    CEvent result;
    WaitUntil("the event \"" + strEvent + "\"",
              [&]
              {
                  const std::vector<CEvent> listEvents = GetEvents();
                  for (; m_nEventsTaken < listEvents.size(); ++m_nEventsTaken)
                  {
                      if (listEvents[m_nEventsTaken]["event"] == strEvent)
                      {
                          result = listEvents[m_nEventsTaken++];
                          return true;
                      }
                  }
                  return false;
              });
    return result;
}

CToolRun::CToolRun(const std::vector<std::string>& listArguments, const std::string& strFolder)
{
    CToolProcess process(listArguments, 0, strFolder);
    m_nExitCode = process.Wait();
    m_strOutput = process.GetOutput();
    m_strErrors = process.GetErrors();
    m_listLines = process.GetLines();
}
