#include "SubmitCommand.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include "ClientRun.h"
#include "Progress.h"
#include "SubmitList.h"
#include "Text.h"
#include "TransferWork.h"

namespace
{

const Orb_U64 BLOCK_SIZE = 32768;

class CSubmission final : public ITransfer
{
public:
    CSubmission(const CSubmitEntry& entry, const std::string& strTo, CProgress& progress)
        : m_entry(entry), m_strTo(strTo), m_progress(progress)
    {
    }

    bool IsFolder() const override
    {
        return m_entry.m_bFolder;
    }
    bool Begin(std::string& strLocal, std::string& strRemote, long long& llNumber) override;
    void Move(unsigned int dwPercent) override;
    void Complete() override;
    void Fail(const std::string& strReason) override;
    void CleanUp() override {}

private:
    const CSubmitEntry& m_entry;
    const std::string& m_strTo;
    CProgress& m_progress;
    std::optional<CProgress::CFile> m_shown;
    Orb_U64 m_ullBlocks = 0;
};

bool CSubmission::Begin(std::string& strLocal, std::string& strRemote, long long& llNumber)
{
    // The client looks only after the peer has made room for the file.
    if (!m_entry.m_bFolder && faccessat(AT_FDCWD, m_entry.m_strPath.c_str(), R_OK, AT_EACCESS) != 0)
    {
        m_progress.Fails(m_entry.m_strPath, strerror(errno), true);
        return false;
    }
    strLocal = m_entry.m_strPath;
    strRemote = m_strTo;
    llNumber = static_cast<long long>(m_entry.m_nBase);
    m_shown.emplace(m_progress, m_entry.Shown());
    return true;
}

void CSubmission::Move(unsigned int dwPercent)
{
    const Orb_U64 ullSize = m_entry.m_ullSize;
    m_shown->Moves(dwPercent, EstimateSent(++m_ullBlocks, dwPercent, ullSize), ullSize);
}

void CSubmission::Complete()
{
    if (m_entry.m_bFolder)
    {
        m_shown->FolderEnds();
        return;
    }
    m_shown->Ends(m_entry.m_ullSize);
}

void CSubmission::Fail(const std::string& strReason)
{
    if (m_shown)
    {
        m_shown->Fails(m_entry.m_strPath, strReason, !m_entry.m_bFolder);
        return;
    }
    m_progress.Fails(m_entry.m_strPath, strReason, !m_entry.m_bFolder);
}

class CSubmitWork final : public CTransferWork
{
public:
    // All of them must outlive the work and its transfers.
    CSubmitWork(const CSubmitList& list, const std::string& strTo, CProgress& progress)
        : CTransferWork(list.Entries().size()),
          m_listEntries(list.Entries()),
          m_strTo(strTo),
          m_progress(progress)
    {
    }

    size_t FilesLeft() const override;
    std::string ReasonOf(int nCode) const override;
    std::unique_ptr<IFileClient> MakeClient(IFileClientCallback& callback) const override
    {
        return MakeSubmitClient(callback);
    }

protected:
    std::unique_ptr<ITransfer> MakeTransfer(size_t nItem) const override
    {
        return std::make_unique<CSubmission>(m_listEntries[nItem], m_strTo, m_progress);
    }

private:
    const std::vector<CSubmitEntry>& m_listEntries;
    const std::string& m_strTo;
    CProgress& m_progress;
};

size_t CSubmitWork::FilesLeft() const
{
    return static_cast<size_t>(
        std::count_if(m_listEntries.begin() + static_cast<std::ptrdiff_t>(Taken()),
                      m_listEntries.end(), [](const auto& entry) { return !entry.m_bFolder; }));
}

std::string CSubmitWork::ReasonOf(int nCode) const
{
    switch (nCode)
    {
        case OSPREY_FILE_NO_MEMORY:
            return "out of memory";
        case OSPREY_FILE_NOT_FOUND:
            return "it is gone";
        case OSPREY_FILE_OPEN_FAILED:
            return "it could not be opened";
        case OSPREY_FILE_READ_FAILED:
            return "it could not be read";
        case OSPREY_FILE_DIR_REFUSED:
            return "the server refused the folder, or could not create it";
        case OSPREY_FILE_UPLOAD_REFUSED:
            return "the server refused the file, or could not create it";
        case OSPREY_FILE_WRITE_FAILED:
            return "the server could not write it; its disk may be full";
        default:
            return "failed with code " + std::to_string(nCode);
    }
}

}  // namespace

Orb_U64 EstimateSent(Orb_U64 ullBlocks, unsigned int dwPercent, Orb_U64 ullSize)
{
    if (dwPercent >= 100)
    {
        return ullSize;
    }
    // In two steps: sizes near 2^64 times 100 would not fit.
    const Orb_U64 ullHundredth = ullSize / 100;
    const Orb_U64 ullRest = ullSize % 100;
    const Orb_U64 ullLeast = ullHundredth * dwPercent + ullRest * dwPercent / 100;
    const Orb_U64 ullMost = ullHundredth * (dwPercent + 1) + ullRest * (dwPercent + 1) / 100;
    return std::min(std::max(ullBlocks * BLOCK_SIZE, ullLeast), std::min(ullMost, ullSize));
}

int RunSubmit(const COptions& options, COutput& output)
{
    CProgress progress(output, ProgressStyle(options, output), true);
    CSubmitList list([&progress](const std::string& strPath, const std::string& strReason)
                     { progress.Message(PlainText(strPath) + ": " + strReason); },
                     [&progress](const std::string& strPath, const std::string& strReason)
                     { progress.Fails(strPath, strReason, false); });
    std::string strReason;
    if (!list.Add(options.m_listNames, strReason))
    {
        output.Error(strReason);
        return EXIT_USAGE;
    }
    if (list.Entries().empty() && progress.Failures() > 0)
    {
        return EXIT_FILE_FAILED;
    }
    const size_t nLanes = list.MayHaveTwins() ? 1 : CountLanes(options, list.Files());
    if (nLanes > 1)
    {
        list.PutFoldersFirst();
    }
    progress.Plan(list.Files(), list.Bytes(), true, nLanes > 1);
    CSubmitWork work(list, options.m_strTo, progress);
    return CClientRun(options, output, progress, work, nLanes).Execute();
}
