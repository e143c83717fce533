#ifndef OSPREY_TOOL_SUBMISSION_H
#define OSPREY_TOOL_SUBMISSION_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Journal.h"
#include "Progress.h"
#include "SubmitList.h"
#include "TransferWork.h"

// Files and folders on their way to a peer.
class CSubmitWork final : public CTransferWork
{
public:
    // Called on the worker of a lane once the peer has a file, with its stamp; null when that has
    // changed since it began.
    using CSent = std::function<void(const CSubmitEntry& entry, const CFileStamp* pStamp)>;

    // Called likewise when it has failed; see ITransfer::Fail.
    using CFailed =
        std::function<void(const CSubmitEntry& entry, const std::string& strReason, int nCode)>;

    // Without fnFailed a failure is told by the progress. All of them must outlive the work and its
    // transfers.
    CSubmitWork(const std::vector<CSubmitEntry>& listEntries, const std::string& strTo,
                CProgress& progress, CSent fnSent, CFailed fnFailed = nullptr);

    size_t FilesLeft() const override;
    std::string ReasonOf(int nCode) const override;
    std::unique_ptr<IFileClient> MakeClient(IFileClientCallback& callback) const override
    {
        return MakeSubmitClient(callback);
    }

protected:
    std::unique_ptr<ITransfer> MakeTransfer(size_t nItem) const override;

private:
    const std::vector<CSubmitEntry>& m_listEntries;
    const std::string& m_strTo;
    CProgress& m_progress;
    const CSent m_fnSent;
    const CFailed m_fnFailed;
};

// How far an upload is, in bytes. The library tells whole percents, once a block: the number of
// blocks refines that, and the percents bound it should the block size be another.
Orb_U64 EstimateSent(Orb_U64 ullBlocks, unsigned int dwPercent, Orb_U64 ullSize);

#endif
