#include "WatchCommand.h"

#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <utility>
#include <vector>

#include "AppearedFiles.h"
#include "ClientRun.h"
#include "Digest.h"
#include "EventLog.h"
#include "FolderWatch.h"
#include "JsonLine.h"
#include "Signals.h"
#include "Submission.h"
#include "TempFile.h"
#include "Text.h"

namespace
{

const size_t LINES_TO_COMPACT = 10000;

CAppearedFiles::CTime NowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::string JournalPath(const COptions& options)
{
    const std::string strFolder = StateFolder();
    return strFolder.empty()
               ? strFolder
               : JoinPath(strFolder, DigestOf({"watch", options.m_peer.ToString(), options.m_strTo,
                                               RealPath(options.m_strFolder)})
                                             .substr(0, 32) +
                                         ".watch");
}

// One run of watch. Thread: main, but for what a lane tells.
class CWatchRun final
{
public:
    CWatchRun(const COptions& options, COutput& output);

    int Execute();

private:
    bool OpenJournal();
    void CompactJournal();
    bool Begin();
    int Loop();
    int WaitMs() const;
    bool Send(const std::vector<std::string>& listNames);
    std::vector<CSubmitEntry> Entries(const std::vector<std::string>& listNames);
    void Fail(const CSubmitEntry& entry, const std::string& strReason, int nCode);
    void ServerIsAway(const std::string& strReason);

    const COptions& m_options;
    COutput& m_output;
    const CDeadline m_never{0};
    CJournal m_journal;
    CFolderWatch m_watch;
    CAppearedFiles m_files;
    unsigned int m_dwAway = 0;          // times in a row that the server was away
    CAppearedFiles::CTime m_again = 0;  // not before
};

CWatchRun::CWatchRun(const COptions& options, COutput& output)
    : m_options(options),
      m_output(output),
      m_journal(JournalPath(options), CJournal::SYNC_ALWAYS,
                [&output](const std::string& strText) { output.Error(strText); }),
      m_watch(options.m_strFolder),
      m_files(options.m_strFolder, m_journal)
{
}

int CWatchRun::Execute()
{
    return OpenJournal() && Begin() ? Loop() : EXIT_FILE_FAILED;
}

bool CWatchRun::OpenJournal()
{
    const std::string strFolder = StateFolder();
    if (strFolder.empty())
    {
        m_output.Error("no folder to note what was sent; set XDG_STATE_HOME or HOME");
        return false;
    }
    RemoveDeadTemps(strFolder);
    const CJournal::EOpen eOpen = m_journal.Open(true);
    if (eOpen == CJournal::OPEN_BUSY)
    {
        m_output.Error("another watch of " + QuoteText(m_options.m_strFolder) + " is at work");
    }
    else if (eOpen == CJournal::OPEN_FAILED)
    {
        m_output.Error("cannot note what was sent in " + PlainText(strFolder) + ": " +
                       strerror(errno));
    }
    else
    {
        CompactJournal();
    }
    return eOpen == CJournal::OPEN_DONE;
}

// Files that are gone need not be known: they would come back as others.
void CWatchRun::CompactJournal()
{
    m_journal.Compact(
        [this](const std::string& strName)
        { return KindOf(JoinPath(m_options.m_strFolder, strName), false) == KIND_FILE; });
}

bool CWatchRun::Begin()
{
    // A lease that somebody breaks says so with it.
    signal(SIGIO, SIG_IGN);
    std::string strReason;
    if (!m_watch.Begin(strReason))
    {
        m_output.Error("cannot watch " + strReason);
        return false;
    }
    if (m_options.m_bJson)
    {
        m_output.Line(CJsonLine("watching")
                          .Text("folder", m_options.m_strFolder)
                          .Text("peer", m_options.m_peer.ToString())
                          .ToString());
    }
    else if (!m_options.m_bQuiet)
    {
        m_output.Line("watching " + QuoteText(m_options.m_strFolder) + ", sending to " +
                      m_options.m_peer.ToString());
    }
    return true;
}

int CWatchRun::Loop()
{
    const CSignals signals;
    m_output.EndWithReader();
    const CEventLog log(m_output, EventStyle(m_options));
    const CQueuedOutput queued(m_output, signals,
                               [&log](Orb_U64 ullLines) { return log.GapLine(ullLines); });
    while (true)
    {
        m_files.Add(m_watch.TakeFiles(), NowMs());
        const std::vector<std::string> listNames =
            NowMs() < m_again ? std::vector<std::string>() : m_files.Ready(NowMs());
        if (!listNames.empty() && !Send(listNames))
        {
            return EXIT_DONE;
        }
        pollfd sources[] = {{signals.Descriptor(), POLLIN, 0}, {m_watch.Descriptor(), POLLIN, 0}};
        poll(sources, 2, WaitMs());
        if ((sources[0].revents & POLLIN) != 0)
        {
            signals.Wait();
            m_output.LeaveRows();
            return EXIT_DONE;
        }
        std::string strReason;
        if (!m_watch.Read(strReason))
        {
            m_output.Error("cannot watch on: " + strReason);
            return EXIT_FILE_FAILED;
        }
    }
}

int CWatchRun::WaitMs() const
{
    const CAppearedFiles::CTime next = m_files.NextTime();
    if (next < 0)
    {
        return -1;
    }
    return static_cast<int>(
        std::clamp<CAppearedFiles::CTime>(std::max(next, m_again) - NowMs(), 0, 60000));
}

// False when a signal ended it.
bool CWatchRun::Send(const std::vector<std::string>& listNames)
{
    const CProgress::EStyle eStyle = ProgressStyle(m_options, m_output);
    CProgress progress(m_output, eStyle == CProgress::STYLE_BAR ? CProgress::STYLE_LINES : eStyle,
                       true);
    const std::vector<CSubmitEntry> listEntries = Entries(listNames);
    if (listEntries.empty())
    {
        return true;
    }
    const size_t nLanes = CountLanes(m_options, listNames.size());
    progress.Plan(listNames.size(), 0, false, nLanes > 1);
    CSubmitWork work(
        listEntries, m_options.m_strTo, progress,
        [this](const CSubmitEntry& entry, const CFileStamp* pStamp)
        { m_files.Sent(entry.Shown(), pStamp); },
        [this](const CSubmitEntry& entry, const std::string& strReason, int nCode)
        { Fail(entry, strReason, nCode); });
    CClientRun run(m_options, m_never, m_output, progress, work, nLanes);
    run.MoreFollows();
    run.Run();
    const int nCode = run.ExitCode();
    if (nCode == EXIT_NOT_CONNECTED || nCode == EXIT_CONNECTION_LOST)
    {
        ServerIsAway(nCode == EXIT_NOT_CONNECTED
                         ? run.WhyNotConnected()
                         : "connection to " + m_options.m_peer.ToString() + " lost");
    }
    else
    {
        m_dwAway = 0;
    }
    if (m_journal.Lines() > LINES_TO_COMPACT)
    {
        CompactJournal();
    }
    return nCode != EXIT_INTERRUPTED;
}

// The folders on the way to the files, then the files.
std::vector<CSubmitEntry> CWatchRun::Entries(const std::vector<std::string>& listNames)
{
    const size_t nBase = JoinPath(m_options.m_strFolder, "").size();
    std::set<std::string> setFolders;
    std::vector<CSubmitEntry> listFiles;
    for (const std::string& strName : listNames)
    {
        CSubmitEntry entry{JoinPath(m_options.m_strFolder, strName), nBase, false, 0};
        const char* pszFault = SendFault(strName);
        if (pszFault != nullptr)
        {
            Fail(entry, pszFault, OSPREY_FILE_UPLOAD_REFUSED);
            continue;
        }
        CFileStamp stamp;
        entry.m_ullSize = StampOf(entry.m_strPath, stamp) ? stamp.m_ullSize : 0;
        listFiles.push_back(std::move(entry));
        for (size_t nSlash = strName.find('/'); nSlash != std::string::npos;
             nSlash = strName.find('/', nSlash + 1))
        {
            setFolders.insert(strName.substr(0, nSlash));
        }
    }
    std::vector<CSubmitEntry> listEntries;
    listEntries.reserve(setFolders.size() + listFiles.size());
    for (const std::string& strFolder : setFolders)
    {
        listEntries.push_back({JoinPath(m_options.m_strFolder, strFolder), nBase, true, 0});
    }
    listEntries.insert(listEntries.end(), listFiles.begin(), listFiles.end());
    return listEntries;
}

// nCode 0: the connection was lost, or the file is gone; neither is a fault of the file.
void CWatchRun::Fail(const CSubmitEntry& entry, const std::string& strReason, int nCode)
{
    if (nCode != 0 && m_files.Failed(entry.Shown(), NowMs()))
    {
        m_output.Error(PlainText(entry.m_strPath) + ": " + strReason + "; trying again");
    }
}

void CWatchRun::ServerIsAway(const std::string& strReason)
{
    if (m_dwAway++ == 0)
    {
        m_output.Error(PlainText(strReason) + "; trying again until it is there");
    }
    m_again = NowMs() + PauseSeconds(m_dwAway) * 1000LL;
}

}  // namespace

int RunWatch(const COptions& options, COutput& output)
{
    return CWatchRun(options, output).Execute();
}
