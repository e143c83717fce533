#include "DownloadCommand.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <system_error>

#include "ClientRun.h"
#include "FetchWork.h"
#include "Journal.h"
#include "LibOsprey.h"
#include "Progress.h"
#include "SumFetch.h"
#include "TempFile.h"
#include "Text.h"

namespace
{

using CEntries = std::vector<CDownloadEntry>;

const char SUBMIT_PREFIX[] = "FILESUBMIT|";

// The part of a peer's name behind the last separator; in the long form "|" is one as well.
std::string LastPart(const std::string& strName)
{
    const bool bLong = strName.compare(0, sizeof SUBMIT_PREFIX - 1, SUBMIT_PREFIX) == 0;
    return strName.substr(strName.find_last_of(bLong ? "/\\|" : "/\\") + 1);
}

// Two targets may be one file, by way of links: what comes last must not be left to chance. A link
// that leads nowhere now may lead to a file of this run once that is there.
bool MayHaveTwins(const CEntries& listEntries)
{
    std::set<std::string> setFiles;
    return std::any_of(listEntries.begin(), listEntries.end(),
                       [&setFiles](const CDownloadEntry& entry)
                       {
                           return (KindOf(entry.m_strTarget, false) == KIND_LINK &&
                                   KindOf(entry.m_strTarget, true) == KIND_MISSING) ||
                                  !setFiles.insert(RealPath(entry.m_strTarget)).second;
                       });
}

// Where a run of these options notes what it has finished.
std::string JournalPath(const COptions& options)
{
    std::vector<std::string> listTexts = {"download", options.m_peer.ToString(),
                                          options.m_strManifest};
    listTexts.insert(listTexts.end(), options.m_listNames.begin(), options.m_listNames.end());
    return JoinPath(options.m_strFolder,
                    ".osprey-" + DigestOf(listTexts).substr(0, 16) + ".journal");
}

bool HasDigest(const std::string& strPath, const std::string& strDigest)
{
    const int nFile = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    CDigest digest;
    const bool bRead = nFile >= 0 && digest.AddFile(nFile, WHOLE_FILE);
    if (nFile >= 0)
    {
        close(nFile);
    }
    return bRead && digest.Finish() == strDigest;
}

// Takes out what an earlier run has finished and nobody has changed since.
void DropFinished(const CJournal& journal, CEntries& listEntries, CProgress& progress)
{
    const auto IsFinished = [&journal](const CDownloadEntry& entry)
    {
        CFileStamp stamp;
        return StampOf(entry.m_strTarget, stamp) && journal.Has(entry.m_strName, stamp) &&
               (entry.m_strDigest.empty() || HasDigest(entry.m_strTarget, entry.m_strDigest));
    };
    const size_t nBefore = listEntries.size();
    listEntries.erase(std::remove_if(listEntries.begin(), listEntries.end(), IsFinished),
                      listEntries.end());
    progress.FinishedBefore(nBefore - listEntries.size());
}

// One run of download. Thread: main.
class CDownloadRun final
{
public:
    CDownloadRun(const COptions& options, COutput& output)
        : m_options(options),
          m_output(output),
          m_deadline(options.m_dwTimeoutSeconds),
          m_progress(output, ProgressStyle(options, output), false)
    {
    }

    int Execute();

private:
    bool MakeFolder();
    int FindDigests();
    void AddListed(const CSumFetch& sums);
    void RemoveDead() const;
    int Move();
    int MoveEntries(CJournal* pJournal);

    const COptions& m_options;
    COutput& m_output;
    const CDeadline m_deadline;
    CProgress m_progress;
    CEntries m_listEntries;
};

int CDownloadRun::Execute()
{
    std::string strReason;
    if (!PlanDownload(m_options.m_listNames, m_options.m_strFolder, m_listEntries, strReason))
    {
        m_output.Error(strReason);
        return EXIT_USAGE;
    }
    if (!MakeFolder())
    {
        return EXIT_FILE_FAILED;
    }
    const int nCode = m_options.m_bVerify ? FindDigests() : EXIT_DONE;
    if (nCode != EXIT_DONE)
    {
        return nCode;
    }
    RemoveDead();
    return Move();
}

bool CDownloadRun::MakeFolder()
{
    std::error_code error;
    std::filesystem::create_directories(m_options.m_strFolder, error);
    const bool bFolder = KindOf(m_options.m_strFolder, true) == KIND_FOLDER;
    if (!bFolder)
    {
        m_output.Error("cannot use the folder " + QuoteText(m_options.m_strFolder) +
                       (error ? ": " + error.message() : ""));
    }
    return bFolder;
}

int CDownloadRun::FindDigests()
{
    CSumFetch sums(m_options, m_deadline, m_output, m_progress);
    const int nCode = sums.Fetch();
    if (nCode != EXIT_DONE)
    {
        return nCode;
    }
    if (m_options.m_listNames.empty())
    {
        AddListed(sums);
    }
    const auto IsUnknown = [&sums](CDownloadEntry& entry)
    {
        const std::string* pDigest = sums.Find(entry.m_strName);
        entry.m_strDigest = pDigest == nullptr ? "" : *pDigest;
        return pDigest == nullptr;
    };
    m_listEntries.erase(std::remove_if(m_listEntries.begin(), m_listEntries.end(), IsUnknown),
                        m_listEntries.end());
    return EXIT_DONE;
}

void CDownloadRun::AddListed(const CSumFetch& sums)
{
    for (const auto& listed : sums.Listed())
    {
        // As it was judged: what looks like a long form there is none, and may hold anything.
        const std::string strBelow = sums.BelowList(listed.first);
        CDownloadEntry entry{listed.first, JoinPath(m_options.m_strFolder, strBelow)};
        entry.m_bListed = true;
        std::string strReason;
        if (MakeFolders(m_options.m_strFolder, strBelow, strReason))
        {
            m_listEntries.push_back(std::move(entry));
        }
        else
        {
            m_progress.Fails(entry.m_strName, strReason, false);
        }
    }
}

// What runs left behind that were killed.
void CDownloadRun::RemoveDead() const
{
    std::set<std::string> setFolders = {m_options.m_strFolder};
    for (const CDownloadEntry& entry : m_listEntries)
    {
        setFolders.insert(FolderOf(entry.m_strTarget));
    }
    for (const std::string& strFolder : setFolders)
    {
        RemoveDeadTemps(strFolder);
    }
}

int CDownloadRun::Move()
{
    // One file is done or not: there is nothing to note.
    if (m_listEntries.size() <= 1)
    {
        return MoveEntries(nullptr);
    }
    CJournal journal(JournalPath(m_options), CJournal::SYNC_NOW_AND_THEN,
                     [this](const std::string& strReason) { m_progress.Message(strReason); });
    journal.Open(false);
    if (m_options.m_bRestart)
    {
        journal.Restart();
    }
    DropFinished(journal, m_listEntries, m_progress);
    const int nCode = MoveEntries(&journal);
    // A run that came to its end is not continued: a later one asks for everything anew, or it
    // would never learn that a file has changed at the server. With sums it learns that from them.
    if (nCode == EXIT_DONE || (nCode == EXIT_FILE_FAILED && !m_options.m_bVerify))
    {
        journal.Remove();
    }
    return nCode;
}

int CDownloadRun::MoveEntries(CJournal* pJournal)
{
    if (m_listEntries.empty())
    {
        m_progress.Finish();
        return m_progress.NotVerified() > 0 ? EXIT_NOT_VERIFIED
               : m_progress.Failures() > 0  ? EXIT_FILE_FAILED
                                            : EXIT_DONE;
    }
    const size_t nLanes = m_options.m_dwJobs > 1 && !MayHaveTwins(m_listEntries)
                              ? CountLanes(m_options, m_listEntries.size())
                              : 1;
    m_progress.Plan(m_listEntries.size(), 0, false, nLanes > 1);
    CFetchWork work(
        m_listEntries.size(), [&](size_t nItem)
        { return std::make_unique<CReception>(m_listEntries[nItem], m_progress, pJournal); });
    return CClientRun(m_options, m_deadline, m_output, m_progress, work, nLanes).Execute();
}

}  // namespace

bool PlanDownload(const std::vector<std::string>& listNames, const std::string& strFolder,
                  std::vector<CDownloadEntry>& listEntries, std::string& strReason)
{
    std::map<std::string, std::string> mapTargets;
    for (const std::string& strName : listNames)
    {
        const std::string strLast = LastPart(strName);
        if (strLast.empty() || strLast == "." || strLast == ".." || !IsValidUTF8(strName))
        {
            strReason = QuoteText(strName) + " does not name a file";
            return false;
        }
        if (IsTempName(strLast))
        {
            strReason = QuoteText(strName) + " is a name that is kept for files under construction";
            return false;
        }
        const auto inserted = mapTargets.emplace(JoinPath(strFolder, strLast), strName);
        if (!inserted.second)
        {
            strReason = QuoteText(inserted.first->second) + " and " + QuoteText(strName) +
                        " would be written to one file; fetch them one by one, with -o";
            return false;
        }
        listEntries.push_back({strName, JoinPath(strFolder, strLast)});
    }
    return true;
}

bool MakeFolders(const std::string& strFolder, const std::string& strName, std::string& strReason)
{
    std::string strPath = strFolder;
    for (size_t nBegin = 0, nEnd = 0; (nEnd = strName.find('/', nBegin)) != std::string::npos;
         nBegin = nEnd + 1)
    {
        strPath = JoinPath(strPath, strName.substr(nBegin, nEnd - nBegin));
        if (mkdir(strPath.c_str(), 0777) == 0 || KindOf(strPath, false) == KIND_FOLDER)
        {
            continue;
        }
        strReason = PlainText(strPath) + (errno == EEXIST ? " is no folder, or a link to one"
                                                          : ": " + std::string(strerror(errno)));
        return false;
    }
    return true;
}

int RunDownload(const COptions& options, COutput& output)
{
    return CDownloadRun(options, output).Execute();
}
