#include "DownloadCommand.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <system_error>

#include "ClientRun.h"
#include "LibOsprey.h"
#include "Progress.h"
#include "TempFile.h"
#include "Text.h"
#include "TransferWork.h"

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

// The path itself when nothing stands there.
std::string RealPath(const std::string& strPath)
{
    const std::unique_ptr<char, void (*)(void*)> pReal(realpath(strPath.c_str(), nullptr), free);
    return pReal ? pReal.get() : strPath;
}

// A link to a file stays, and the file that it leads to is replaced.
std::string BehindLink(const std::string& strTarget)
{
    const bool bLink =
        KindOf(strTarget, false) == KIND_LINK && KindOf(strTarget, true) == KIND_FILE;
    return bLink ? RealPath(strTarget) : strTarget;
}

class CReception final : public ITransfer
{
public:
    CReception(const CDownloadEntry& entry, CProgress& progress)
        : m_entry(entry), m_progress(progress)
    {
    }

    bool IsFolder() const override
    {
        return false;
    }
    bool Begin(std::string& strLocal, std::string& strRemote, long long& llNumber) override;
    void Move(unsigned int dwPercent) override;
    void Complete() override;
    void Fail(const std::string& strReason) override;
    void CleanUp() override;

private:
    bool Prepare();
    std::string Temp();

    const CDownloadEntry& m_entry;
    CProgress& m_progress;
    std::optional<CProgress::CFile> m_shown;
    std::string m_strTarget;
    std::mutex m_mutex;  // of the next two, which CleanUp takes from any thread
    bool m_bCleanedUp = false;
    std::string m_strTemp;  // empty: there is none
};

bool CReception::Begin(std::string& strLocal, std::string& strRemote, long long& llNumber)
{
    if (!Prepare())
    {
        return false;
    }
    strLocal = Temp();
    strRemote = m_entry.m_strName;
    llNumber = 0;
    m_shown.emplace(m_progress, m_entry.m_strName);
    return true;
}

bool CReception::Prepare()
{
    const EFileKind eKind = KindOf(m_entry.m_strTarget, true);
    if (eKind == KIND_FOLDER || eKind == KIND_OTHER)
    {
        m_progress.Fails(m_entry.m_strName, m_entry.m_strTarget + " exists and is no regular file",
                         true);
        return false;
    }
    m_strTarget = BehindLink(m_entry.m_strTarget);
    struct stat old
    {
    };
    const bool bReplaces = stat(m_strTarget.c_str(), &old) == 0;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_bCleanedUp)
    {
        return false;
    }
    if (!CreateTempFile(FolderOf(m_strTarget), bReplaces ? old.st_mode : 0, m_strTemp))
    {
        m_strTemp.clear();
        m_progress.Fails(m_entry.m_strName,
                         "no file can be made in " + FolderOf(m_strTarget) + ": " + strerror(errno),
                         true);
        return false;
    }
    return true;
}

std::string CReception::Temp()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_strTemp;
}

void CReception::Move(unsigned int dwPercent)
{
    // The client tells percents alone; what is on the disk tells the bytes, and both the size.
    const Orb_U64 ullDone = SizeOf(Temp());
    const Orb_U64 ullSize = dwPercent == 0 ? 0 : ullDone / dwPercent * 100;
    m_shown->Moves(dwPercent, ullDone, ullSize);
}

void CReception::Complete()
{
    const std::string strTemp = Temp();
    const Orb_U64 ullBytes = SizeOf(strTemp);
    if (!SyncFile(strTemp) || rename(strTemp.c_str(), m_strTarget.c_str()) != 0)
    {
        Fail("it arrived, but cannot be stored: " + std::string(strerror(errno)));
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_strTemp.clear();
    }
    // The name is on the disk once its folder is; a failure leaves nothing to undo.
    static_cast<void>(SyncFile(FolderOf(m_strTarget)));
    m_shown->Ends(ullBytes);
}

void CReception::Fail(const std::string& strReason)
{
    CleanUp();
    if (m_shown)
    {
        m_shown->Fails(m_entry.m_strName, strReason, true);
        return;
    }
    m_progress.Fails(m_entry.m_strName, strReason, true);
}

void CReception::CleanUp()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bCleanedUp = true;
    if (!m_strTemp.empty())
    {
        unlink(m_strTemp.c_str());
        m_strTemp.clear();
    }
}

class CDownloadWork final : public CTransferWork
{
public:
    // Both must outlive the work and its transfers.
    CDownloadWork(const std::vector<CDownloadEntry>& listEntries, CProgress& progress)
        : CTransferWork(listEntries.size()), m_listEntries(listEntries), m_progress(progress)
    {
    }

    size_t FilesLeft() const override
    {
        return m_listEntries.size() - Taken();
    }
    std::string ReasonOf(int nCode) const override;
    std::unique_ptr<IFileClient> MakeClient(IFileClientCallback& callback) const override
    {
        return MakeDownloadClient(callback);
    }

protected:
    std::unique_ptr<ITransfer> MakeTransfer(size_t nItem) const override
    {
        return std::make_unique<CReception>(m_listEntries[nItem], m_progress);
    }

private:
    const std::vector<CDownloadEntry>& m_listEntries;
    CProgress& m_progress;
};

std::string CDownloadWork::ReasonOf(int nCode) const
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

// Two targets may be one file, by way of links: what comes last must not be left to chance. A link
// that leads nowhere now may lead to a file of this run once that is there.
bool MayHaveTwins(const std::vector<CDownloadEntry>& listEntries)
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
    const size_t nLanes = options.m_dwJobs > 1 && !MayHaveTwins(listEntries)
                              ? CountLanes(options, listEntries.size())
                              : 1;
    progress.Plan(listEntries.size(), 0, false, nLanes > 1);
    CDownloadWork work(listEntries, progress);
    return CClientRun(options, output, progress, work, nLanes).Execute();
}
