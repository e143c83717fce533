#include "DownloadCommand.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>

#include "ClientRun.h"
#include "LibOsprey.h"
#include "Progress.h"
#include "TempFile.h"
#include "Text.h"

namespace
{

const char SUBMIT_PREFIX[] = "FILESUBMIT|";

Orb_U64 SizeOf(const std::string& strPath)
{
    struct stat info
    {
    };
    return stat(strPath.c_str(), &info) == 0 ? static_cast<Orb_U64>(info.st_size) : 0;
}

// The part of a peer's name behind the last separator; in the long form "|" is one as well.
std::string LastPart(const std::string& strName)
{
    const bool bLong = strName.compare(0, sizeof SUBMIT_PREFIX - 1, SUBMIT_PREFIX) == 0;
    return strName.substr(strName.find_last_of(bLong ? "/\\|" : "/\\") + 1);
}

// A link to a file stays, and the file that it leads to is replaced.
std::string BehindLink(const std::string& strTarget)
{
    if (KindOf(strTarget, false) != KIND_LINK || KindOf(strTarget, true) != KIND_FILE)
    {
        return strTarget;
    }
    const std::unique_ptr<char, void (*)(void*)> pReal(realpath(strTarget.c_str(), nullptr), free);
    return pReal ? pReal.get() : strTarget;
}

class CDownloadRun final : public CClientRun
{
public:
    CDownloadRun(const COptions& options, COutput& output, CProgress& progress,
                 const std::vector<CDownloadEntry>& listEntries)
        : CClientRun(options, output, progress),
          m_listEntries(listEntries),
          m_callback(*this),
          m_pClient(CreateDownloadFileClient(&m_callback))
    {
    }
    ~CDownloadRun() override
    {
        m_pClient->Release();
    }
    CDownloadRun(const CDownloadRun&) = delete;
    CDownloadRun& operator=(const CDownloadRun&) = delete;

protected:
    bool StartClient(unsigned short* pName, unsigned int dwAddress, unsigned short wPort,
                     unsigned int dwTimeoutMs) override
    {
        return m_pClient->StartFileDownload(pName, 0, dwAddress, wPort, dwTimeoutMs) != Orb_FALSE;
    }
    bool StopClient() override
    {
        return m_pClient->StopFileDownload() != Orb_FALSE;
    }
    bool NextFile(std::string& strLocal, std::string& strRemote, long long& llNumber) override;
    void FileMoves(unsigned int dwPercent) override;
    void FileEnds() override;
    void FileFails(const std::string& strReason) override;
    std::string ReasonOf(int nCode) const override;
    void CleanUp() override;
    size_t FilesLeft() const override
    {
        return m_listEntries.size() - m_nNext;
    }

private:
    const CDownloadEntry& Current() const
    {
        return m_listEntries[m_nNext - 1];
    }
    bool Prepare(const CDownloadEntry& entry);

    const std::vector<CDownloadEntry>& m_listEntries;
    CClientCallback<IDownloadFileClientCallback> m_callback;
    IDownloadFileClient* m_pClient;
    size_t m_nNext = 0;
    std::string m_strTarget;  // of the file under way
    std::mutex m_mutex;       // m_strTemp, which CleanUp takes from any thread
    std::string m_strTemp;    // empty: no file under way
};

bool CDownloadRun::NextFile(std::string& strLocal, std::string& strRemote, long long& llNumber)
{
    while (m_nNext < m_listEntries.size())
    {
        const CDownloadEntry& entry = m_listEntries[m_nNext++];
        if (!Prepare(entry))
        {
            continue;
        }
        strLocal = m_strTemp;
        strRemote = entry.m_strName;
        llNumber = 0;
        m_progress.FileBegins(entry.m_strName);
        return true;
    }
    return false;
}

bool CDownloadRun::Prepare(const CDownloadEntry& entry)
{
    const EFileKind eKind = KindOf(entry.m_strTarget, true);
    if (eKind == KIND_FOLDER || eKind == KIND_OTHER)
    {
        m_progress.Fails(entry.m_strName, entry.m_strTarget + " exists and is no regular file",
                         true);
        return false;
    }
    m_strTarget = BehindLink(entry.m_strTarget);
    struct stat old
    {
    };
    const bool bReplaces = stat(m_strTarget.c_str(), &old) == 0;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!CreateTempFile(FolderOf(m_strTarget), bReplaces ? old.st_mode : 0, m_strTemp))
    {
        m_strTemp.clear();
        m_progress.Fails(entry.m_strName,
                         "no file can be made in " + FolderOf(m_strTarget) + ": " + strerror(errno),
                         true);
        return false;
    }
    return true;
}

void CDownloadRun::FileMoves(unsigned int dwPercent)
{
    // The client tells percents alone; what is on the disk tells the bytes, and both the size.
    const Orb_U64 ullDone = SizeOf(m_strTemp);
    const Orb_U64 ullSize = dwPercent == 0 ? 0 : ullDone / dwPercent * 100;
    m_progress.FileMoves(dwPercent, ullDone, ullSize);
}

void CDownloadRun::FileEnds()
{
    const Orb_U64 ullBytes = SizeOf(m_strTemp);
    if (!SyncFile(m_strTemp) || rename(m_strTemp.c_str(), m_strTarget.c_str()) != 0)
    {
        FileFails("it arrived, but cannot be stored: " + std::string(strerror(errno)));
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_strTemp.clear();
    }
    // The name is on the disk once its folder is; a failure leaves nothing to undo.
    static_cast<void>(SyncFile(FolderOf(m_strTarget)));
    m_progress.FileEnds(ullBytes);
}

void CDownloadRun::FileFails(const std::string& strReason)
{
    CleanUp();
    m_progress.Fails(Current().m_strName, strReason, true);
}

void CDownloadRun::CleanUp()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_strTemp.empty())
    {
        unlink(m_strTemp.c_str());
        m_strTemp.clear();
    }
}

std::string CDownloadRun::ReasonOf(int nCode) const
{
    switch (nCode)
    {
        case OSPREY_FILE_NO_MEMORY:
            return "out of memory";
        case OSPREY_FILE_NOT_FOUND:
            return "not found at the server, or refused";
        case OSPREY_FILE_OPEN_FAILED:
            return "it could not be opened, at the server or here";
        case OSPREY_FILE_READ_FAILED:
            return "the server could not read it";
        case OSPREY_FILE_WRITE_FAILED:
            return "it could not be written; the disk may be full";
        default:
            return "the server answered with code " + std::to_string(nCode);
    }
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

int RunDownload(const COptions& options, COutput& output)
{
    std::vector<CDownloadEntry> listEntries;
    std::string strReason;
    if (!PlanDownload(options.m_listNames, options.m_strFolder, listEntries, strReason))
    {
        output.Error(strReason);
        return EXIT_USAGE;
    }
    std::error_code error;
    std::filesystem::create_directories(options.m_strFolder, error);
    if (KindOf(options.m_strFolder, true) != KIND_FOLDER)
    {
        output.Error("cannot use the folder " + QuoteText(options.m_strFolder) +
                     (error ? ": " + error.message() : ""));
        return EXIT_FILE_FAILED;
    }
    CProgress progress(output, ProgressStyle(options, output), false);
    progress.Plan(listEntries.size(), 0, false);
    CDownloadRun run(options, output, progress, listEntries);
    return run.Execute();
}
