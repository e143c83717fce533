#include "SubmitCommand.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <system_error>

#include "BackCheck.h"
#include "ClientRun.h"
#include "FetchWork.h"
#include "Journal.h"
#include "Progress.h"
#include "Submission.h"
#include "SumList.h"
#include "TempFile.h"
#include "Text.h"

namespace
{

// A text as a file of a given name, in a folder of its own, for as long as it lives.
class CNamedText final
{
public:
    // False from IsThere, with errno, when it cannot be made.
    CNamedText(const std::string& strName, const std::string& strText);
    ~CNamedText();
    CNamedText(const CNamedText&) = delete;
    CNamedText& operator=(const CNamedText&) = delete;

    bool IsThere() const
    {
        return m_bThere;
    }
    CSubmitEntry Entry() const
    {
        return {m_strPath, m_strFolder.size() + 1, false, m_ullSize};
    }

private:
    std::string m_strFolder;
    std::string m_strPath;
    Orb_U64 m_ullSize;
    bool m_bThere = false;
};

CNamedText::CNamedText(const std::string& strName, const std::string& strText)
    : m_ullSize(strText.size())
{
    const char* pszTemp = getenv("TMPDIR");
    m_strFolder =
        JoinPath(pszTemp == nullptr || *pszTemp == '\0' ? "/tmp" : pszTemp, "osprey-XXXXXX");
    if (mkdtemp(m_strFolder.data()) == nullptr)
    {
        return;
    }
    m_strPath = JoinPath(m_strFolder, strName);
    FILE* pFile = fopen(m_strPath.c_str(), "wbe");
    if (pFile != nullptr)
    {
        const bool bWritten = fwrite(strText.data(), 1, strText.size(), pFile) == strText.size();
        m_bThere = fclose(pFile) == 0 && bWritten;
    }
}

CNamedText::~CNamedText()
{
    unlink(m_strPath.c_str());
    rmdir(m_strFolder.c_str());
}

// Links stay: each has a name of its own at the server.
std::string AbsolutePath(const std::string& strPath)
{
    std::error_code error;
    return std::filesystem::absolute(strPath, error).lexically_normal().string();
}

// One run of submit. Thread: main, but for NoteSent.
class CSubmitRun final
{
public:
    CSubmitRun(const COptions& options, COutput& output);

    int Execute();

private:
    bool CheckManifestName(std::string& strReason) const;
    std::string JournalPath() const;
    void DropFinished();
    int Move();
    int Send(const std::vector<CSubmitEntry>& listEntries, size_t nLanes, bool bMoreFollows);
    int CheckBack(size_t nLanes);
    void ForgetUnverified();
    int SendSums();
    void NoteSent(const CSubmitEntry& entry, const CFileStamp* pStamp);
    std::string ManifestName() const
    {
        return m_options.m_strManifest.empty() ? SUM_LIST : m_options.m_strManifest;
    }

    const COptions& m_options;
    COutput& m_output;
    const CDeadline m_deadline;
    CProgress m_progress;
    CSubmitList m_list;
    std::unique_ptr<CJournal> m_pJournal;  // null: nothing is noted
    std::mutex m_mutex;                    // of the next one
    std::vector<CSentFile> m_listSent;
};

CSubmitRun::CSubmitRun(const COptions& options, COutput& output)
    : m_options(options),
      m_output(output),
      m_deadline(options.m_dwTimeoutSeconds),
      m_progress(output, ProgressStyle(options, output), true),
      m_list([this](const std::string& strPath, const std::string& strReason)
             { m_progress.Message(PlainText(strPath) + ": " + strReason); },
             [this](const std::string& strPath, const std::string& strReason)
             { m_progress.Fails(strPath, strReason, false); })
{
}

int CSubmitRun::Execute()
{
    std::string strReason;
    if (!m_list.Add(m_options.m_listNames, strReason) || !CheckManifestName(strReason))
    {
        m_output.Error(strReason);
        return EXIT_USAGE;
    }
    if (m_list.Entries().empty() && m_progress.Failures() > 0)
    {
        return EXIT_FILE_FAILED;
    }
    const std::string strJournal = JournalPath();
    // One file is done or not: there is nothing to note.
    if (m_list.Files() > 1 && !strJournal.empty())
    {
        m_pJournal = std::make_unique<CJournal>(strJournal, CJournal::SYNC_NOW_AND_THEN,
                                                [this](const std::string& strText)
                                                { m_progress.Message(strText); });
        DropFinished();
    }
    const int nCode = Move();
    if (m_pJournal && nCode == EXIT_DONE)
    {
        m_pJournal->Remove();
    }
    return nCode;
}

bool CSubmitRun::CheckManifestName(std::string& strReason) const
{
    const auto IsManifest = [this](const CSubmitEntry& entry)
    { return entry.Shown() == ManifestName(); };
    const bool bClash = m_options.m_bVerify &&
                        std::any_of(m_list.Entries().begin(), m_list.Entries().end(), IsManifest);
    if (bClash)
    {
        strReason = QuoteText(ManifestName()) +
                    " would be replaced by the list of sums; name that otherwise, with --manifest";
    }
    return !bClash;
}

// Empty: there is no place for it.
std::string CSubmitRun::JournalPath() const
{
    const std::string strFolder = StateFolder();
    std::vector<std::string> listTexts = {"submit", m_options.m_peer.ToString(), m_options.m_strTo};
    for (const std::string& strPath : m_options.m_listNames)
    {
        listTexts.push_back(AbsolutePath(strPath));
    }
    return strFolder.empty() ? strFolder
                             : JoinPath(strFolder, DigestOf(listTexts).substr(0, 32) + ".submit");
}

// Takes out what an earlier run has finished and nobody has changed since.
void CSubmitRun::DropFinished()
{
    m_pJournal->Open(false);
    if (m_options.m_bRestart)
    {
        m_pJournal->Restart();
    }
    const size_t nBefore = m_list.Files();
    m_list.DropFiles(
        [this](const CSubmitEntry& entry)
        {
            CFileStamp stamp;
            const bool bDone = StampOf(entry.m_strPath, stamp) &&
                               m_pJournal->Has(AbsolutePath(entry.m_strPath), stamp);
            if (bDone && m_options.m_bVerify)
            {
                m_listSent.push_back({entry.m_strPath, entry.Shown(), "", false});
            }
            return bDone;
        });
    m_progress.FinishedBefore(nBefore - m_list.Files());
}

int CSubmitRun::Move()
{
    const size_t nLanes = m_list.MayHaveTwins() ? 1 : CountLanes(m_options, m_list.Files());
    if (nLanes > 1)
    {
        m_list.PutFoldersFirst();
    }
    m_progress.Plan(m_list.Files(), m_list.Bytes(), true, nLanes > 1);
    int nCode = Send(m_list.Entries(), nLanes, m_options.m_bVerify);
    if (m_options.m_bVerify && (nCode == EXIT_DONE || nCode == EXIT_FILE_FAILED))
    {
        nCode = CheckBack(nLanes);
        if (nCode == EXIT_DONE || nCode == EXIT_FILE_FAILED || nCode == EXIT_NOT_VERIFIED)
        {
            nCode = SendSums();
        }
    }
    if (nCode != EXIT_NOT_CONNECTED && nCode != EXIT_INTERRUPTED)
    {
        m_progress.Finish();
    }
    return nCode;
}

int CSubmitRun::Send(const std::vector<CSubmitEntry>& listEntries, size_t nLanes, bool bMoreFollows)
{
    if (listEntries.empty())
    {
        return m_progress.Failures() > 0 ? EXIT_FILE_FAILED : EXIT_DONE;
    }
    CSubmitWork work(listEntries, m_options.m_strTo, m_progress,
                     [this](const CSubmitEntry& entry, const CFileStamp* pStamp)
                     { NoteSent(entry, pStamp); });
    CClientRun run(m_options, m_deadline, m_output, m_progress, work, nLanes);
    if (bMoreFollows)
    {
        run.MoreFollows();
    }
    run.Run();
    return run.Report();
}

void CSubmitRun::NoteSent(const CSubmitEntry& entry, const CFileStamp* pStamp)
{
    if (m_pJournal && pStamp != nullptr)
    {
        m_pJournal->Add(AbsolutePath(entry.m_strPath), *pStamp);
    }
    if (m_options.m_bVerify)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_listSent.push_back({entry.m_strPath, entry.Shown(), "", false});
    }
}

// The server has no means to tell digests: everything comes back once.
int CSubmitRun::CheckBack(size_t nLanes)
{
    if (m_listSent.empty())
    {
        return m_progress.Failures() > 0 ? EXIT_FILE_FAILED : EXIT_DONE;
    }
    CFetchWork work(
        m_listSent.size(), [this](size_t nItem)
        { return std::make_unique<CBackCheck>(m_listSent[nItem], m_options.m_strTo, m_progress); });
    CClientRun run(m_options, m_deadline, m_output, m_progress, work, nLanes);
    run.MoreFollows();
    run.Run();
    const int nCode = run.Report();
    if (nCode == EXIT_NOT_VERIFIED)
    {
        ForgetUnverified();
    }
    return nCode;
}

// What did not come back as it is here is not finished: the next run sends it again.
void CSubmitRun::ForgetUnverified()
{
    for (const CSentFile& file : m_listSent)
    {
        if (m_pJournal && !file.m_bSame)
        {
            m_pJournal->Add(AbsolutePath(file.m_strPath), CFileStamp());
        }
    }
}

int CSubmitRun::SendSums()
{
    CSumList sums;
    for (const CSentFile& file : m_listSent)
    {
        if (!file.m_strDigest.empty())
        {
            sums.Add(file.m_strShown, file.m_strDigest);
        }
    }
    m_listSent.clear();
    const CNamedText text(ManifestName(), sums.ToString());
    if (!text.IsThere())
    {
        m_progress.Fails(ManifestName(), strerror(errno), false);
        return m_progress.NotVerified() > 0 ? EXIT_NOT_VERIFIED : EXIT_FILE_FAILED;
    }
    return Send({text.Entry()}, 1, false);
}

}  // namespace

int RunSubmit(const COptions& options, COutput& output)
{
    return CSubmitRun(options, output).Execute();
}
