#include "Submission.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

namespace
{

const Orb_U64 BLOCK_SIZE = 32768;

class CSubmission final : public ITransfer
{
public:
    CSubmission(const CSubmitEntry& entry, const std::string& strTo, CProgress& progress,
                const CSubmitWork::CSent& fnSent, const CSubmitWork::CFailed& fnFailed)
        : m_entry(entry),
          m_strTo(strTo),
          m_progress(progress),
          m_fnSent(fnSent),
          m_fnFailed(fnFailed)
    {
    }

    bool IsFolder() const override
    {
        return m_entry.m_bFolder;
    }
    bool Begin(std::string& strLocal, std::string& strRemote, long long& llNumber) override;
    void Move(unsigned int dwPercent, Orb_U64 ullAnnounced) override;
    void Complete(Orb_U64 ullAnnounced) override;
    void Fail(const std::string& strReason, int nCode) override;
    void CleanUp() override {}

private:
    const CSubmitEntry& m_entry;
    const std::string& m_strTo;
    CProgress& m_progress;
    const CSubmitWork::CSent& m_fnSent;
    const CSubmitWork::CFailed& m_fnFailed;
    CFileStamp m_stamp;
    std::optional<CProgress::CFile> m_shown;
    Orb_U64 m_ullBlocks = 0;
};

bool CSubmission::Begin(std::string& strLocal, std::string& strRemote, long long& llNumber)
{
    // The client looks only after the peer has made room for the file.
    if (!m_entry.m_bFolder && faccessat(AT_FDCWD, m_entry.m_strPath.c_str(), R_OK, AT_EACCESS) != 0)
    {
        CSubmission::Fail(strerror(errno), OSPREY_FILE_OPEN_FAILED);
        return false;
    }
    StampOf(m_entry.m_strPath, m_stamp);
    strLocal = m_entry.m_strPath;
    strRemote = m_strTo;
    llNumber = static_cast<long long>(m_entry.m_nBase);
    m_shown.emplace(m_progress, m_entry.Shown());
    return true;
}

void CSubmission::Move(unsigned int dwPercent, Orb_U64)
{
    const Orb_U64 ullSize = m_entry.m_ullSize;
    m_shown->Moves(dwPercent, EstimateSent(++m_ullBlocks, dwPercent, ullSize), ullSize);
}

void CSubmission::Complete(Orb_U64)
{
    if (m_entry.m_bFolder)
    {
        m_shown->FolderEnds();
        return;
    }
    CFileStamp stamp;
    const bool bSame = StampOf(m_entry.m_strPath, stamp) && stamp == m_stamp;
    m_fnSent(m_entry, bSame ? &stamp : nullptr);
    m_shown->Ends(m_entry.m_ullSize);
}

void CSubmission::Fail(const std::string& strReason, int nCode)
{
    if (m_fnFailed)
    {
        m_shown.reset();
        m_fnFailed(m_entry, strReason, nCode);
        return;
    }
    if (m_shown)
    {
        m_shown->Fails(m_entry.m_strPath, strReason, !m_entry.m_bFolder);
        return;
    }
    m_progress.Fails(m_entry.m_strPath, strReason, !m_entry.m_bFolder);
}

}  // namespace

CSubmitWork::CSubmitWork(const std::vector<CSubmitEntry>& listEntries, const std::string& strTo,
                         CProgress& progress, CSent fnSent, CFailed fnFailed)
    : CTransferWork(listEntries.size()),
      m_listEntries(listEntries),
      m_strTo(strTo),
      m_progress(progress),
      m_fnSent(std::move(fnSent)),
      m_fnFailed(std::move(fnFailed))
{
}

std::unique_ptr<ITransfer> CSubmitWork::MakeTransfer(size_t nItem) const
{
    return std::make_unique<CSubmission>(m_listEntries[nItem], m_strTo, m_progress, m_fnSent,
                                         m_fnFailed);
}

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
