#include "Output.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "Text.h"

namespace
{

const int DEFAULT_COLUMNS = 80;
const int DEFAULT_ROWS = 24;
const int LOOK_MS = 100;
const int ENDING_LOOKS = 5;
const size_t TRACE_BUFFER_SIZE = 65536;
// All is cleared from the second column on: a terminal that clears its whole screen may keep what
// was there among the lines that were scrolled off.
const char ROWS_OFF[] = "\r\x1B[K \x1B[J\r";
const char WRAP_OFF[] = "\x1B[?7l";
const char WRAP_ON[] = "\x1B[?7h";

bool IsWritable(int nDescriptor, int nTimeoutMs)
{
    pollfd polled{nDescriptor, POLLOUT, 0};
    return poll(&polled, 1, nTimeoutMs) > 0;
}

// A descriptor from 0 to 2 that was closed at the start would be given to the next file or socket,
// and what is printed would go there.
void FillStandardDescriptors()
{
    int nDescriptor = 0;
    do
    {
        nDescriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
    } while (nDescriptor >= 0 && nDescriptor <= 2);
    if (nDescriptor > 2)
    {
        close(nDescriptor);
    }
}

std::string ErrorGapLine(Orb_U64 ullLines)
{
    return "osprey: " + std::to_string(ullLines) + " errors before this line were left out";
}

}  // namespace

COutput::~COutput()
{
    if (m_nOutput >= 0)
    {
        close(m_nOutput);
    }
}

void COutput::TakeStandardOutput()
{
    FillStandardDescriptors();
    m_nOutput = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nNowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nNowhere >= 0)
    {
        dup2(nNowhere, STDOUT_FILENO);
        close(nNowhere);
    }
    // What nobody reads takes a system call in a thousand lines, not in fifty.
    static char szTrace[TRACE_BUFFER_SIZE];
    setvbuf(stdout, szTrace, _IOFBF, sizeof szTrace);
}

bool COutput::TraceTo(const std::string& strFile)
{
    const int nFile = open(strFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (nFile < 0)
    {
        return false;
    }
    dup2(nFile, STDOUT_FILENO);
    close(nFile);
    return true;
}

// False when the rest is to be left out.
bool COutput::WaitUntilWritable(int nDescriptor)
{
    std::atomic<bool>& bStuck = m_abStuck[nDescriptor == STDERR_FILENO ? 1 : 0];
    for (int nLooks = 0; !IsWritable(nDescriptor, bStuck ? 0 : LOOK_MS);)
    {
        nLooks += m_bEnding ? 1 : 0;
        if (bStuck || nLooks >= ENDING_LOOKS)
        {
            bStuck = true;
            return false;
        }
    }
    return true;
}

// 0, or the errno of the failure.
int COutput::WriteAll(int nDescriptor, const std::string& strText)
{
    size_t nDone = 0;
    while (nDone < strText.size() && WaitUntilWritable(nDescriptor))
    {
        // A pipe that is writable takes so much at once, and may make more wait; pipe(7).
        const size_t nPart = std::min<size_t>(strText.size() - nDone, PIPE_BUF);
        const ssize_t n = write(nDescriptor, strText.data() + nDone, nPart);
        if (n < 0 && errno != EINTR && errno != EAGAIN)
        {
            return errno;
        }
        nDone += n > 0 ? static_cast<size_t>(n) : 0;
    }
    return 0;
}

void COutput::Write(const std::string& strText)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    WriteLocked(strText);
}

void COutput::WriteLocked(const std::string& strText)
{
    if (m_nOutput >= 0 && !strText.empty())
    {
        Pass(m_nOutput, strText);
    }
}

void COutput::Pass(int nDescriptor, const std::string& strText)
{
    const auto& pQueue = nDescriptor == STDERR_FILENO && m_pErrors ? m_pErrors : m_pQueue;
    if (pQueue != nullptr)
    {
        pQueue->Put(nDescriptor, strText);
        return;
    }
    WriteNow(nDescriptor, strText);
}

void COutput::WriteNow(int nDescriptor, const std::string& strText)
{
    const bool bError = nDescriptor == STDERR_FILENO;
    const int nError = m_bBroken && !bError ? 0 : WriteAll(nDescriptor, strText);
    // Nobody is left to be told when standard error fails.
    if (nError != 0 && !bError)
    {
        ReportFailure(nError);
    }
}

void COutput::BeginQueue(COutputQueue::CGapLine fnGap)
{
    const COutputQueue::CWrite fnWrite = [this](int nDescriptor, const std::string& strText)
    { WriteNow(nDescriptor, strText); };
    auto pQueue = std::make_unique<COutputQueue>(m_nOutput, fnWrite, std::move(fnGap));
    std::unique_ptr<COutputQueue> pErrors;
    // On a terminal, lines and errors keep their order among the rows.
    if (isatty(m_nOutput) != 1)
    {
        pErrors = std::make_unique<COutputQueue>(STDERR_FILENO, fnWrite, ErrorGapLine);
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_pQueue.swap(pQueue);
    m_pErrors.swap(pErrors);
}

void COutput::EndQueue()
{
    std::unique_ptr<COutputQueue> pErrors;
    std::unique_ptr<COutputQueue> pQueue;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        pErrors.swap(m_pErrors);
        pQueue.swap(m_pQueue);
    }
}

void COutput::ReportFailure(int nError)
{
    if (nError == EPIPE)
    {
        // Once: a second signal would not wait for an orderly end.
        if (!m_bBroken.exchange(true) && m_bEndWithReader)
        {
            kill(getpid(), SIGTERM);
        }
    }
    else if (!m_bFailureTold)
    {
        m_bFailureTold = true;
        WriteAll(STDERR_FILENO,
                 std::string("osprey: cannot write the output: ") + strerror(nError) + "\n");
    }
}

void COutput::Line(const std::string& strText)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    WriteLocked(TakeRows() + strText + "\n");
}

void COutput::Error(const std::string& strText)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    WriteLocked(TakeRows());
    Pass(STDERR_FILENO, "osprey: " + PlainText(strText) + "\n");
}

void COutput::EndWithReader()
{
    m_bEndWithReader = true;
    if (m_bBroken)
    {
        kill(getpid(), SIGTERM);
    }
}

bool COutput::IsBroken() const
{
    return m_bBroken;
}

bool COutput::HasFailed() const
{
    return m_bFailureTold;
}

int COutput::GiveAway()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const int nOutput = m_nOutput;
    m_nOutput = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    return nOutput;
}

void COutput::Draw(const std::vector<std::string>& listRows)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    // A terminal that was stopped must not stop what the rows tell of.
    const bool bBehind = m_pQueue != nullptr && !m_pQueue->IsEmpty();
    if (bBehind || !IsWritable(m_nOutput, 0))
    {
        return;
    }
    const size_t nMost = static_cast<size_t>(std::max(Rows() - 1, 1));
    const std::string strTaken = TakeRows();
    const auto nRows = static_cast<std::ptrdiff_t>(std::min(listRows.size(), nMost));
    m_listRows.assign(listRows.begin(), listRows.begin() + nRows);
    const std::string strUp = nRows > 1 ? "\x1B[" + std::to_string(nRows - 1) + "A" : std::string();
    // A row that no longer fits is cut, not wrapped: so many rows are always so many lines.
    WriteLocked(WRAP_OFF + strTaken + RowsText() + "\r" + strUp + WRAP_ON);
}

std::string COutput::RowsText() const
{
    std::string strText;
    for (const std::string& strRow : m_listRows)
    {
        strText += (strText.empty() ? "" : "\n") + strRow;
    }
    return strText;
}

void COutput::LeaveRows()
{
    m_bEnding = true;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_listRows.empty())
    {
        const std::string strText = RowsText();
        WriteLocked(WRAP_OFF + TakeRows() + strText + WRAP_ON + "\n");
    }
}

// Takes the rows off the terminal: the text that does it.
std::string COutput::TakeRows()
{
    const bool bRows = !m_listRows.empty();
    m_listRows.clear();
    return bRows ? ROWS_OFF : "";
}

bool COutput::IsTerminal() const
{
    const char* pszTerm = getenv("TERM");
    const bool bDumb = pszTerm == nullptr || *pszTerm == '\0' || strcmp(pszTerm, "dumb") == 0;
    return m_nOutput >= 0 && isatty(m_nOutput) == 1 && !bDumb;
}

int COutput::Columns() const
{
    winsize size{};
    if (m_nOutput < 0 || ioctl(m_nOutput, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
    {
        return DEFAULT_COLUMNS;
    }
    return size.ws_col;
}

int COutput::Rows() const
{
    winsize size{};
    if (m_nOutput < 0 || ioctl(m_nOutput, TIOCGWINSZ, &size) != 0 || size.ws_row == 0)
    {
        return DEFAULT_ROWS;
    }
    return size.ws_row;
}

CQueuedOutput::~CQueuedOutput()
{
    try
    {
        m_signals.ForceOnNext([] {});
    }
    catch (const std::exception&)
    {
        m_output.LeaveRows();  // no memory to wait for a signal beside: then not for the reader
    }
    m_output.EndQueue();
}
