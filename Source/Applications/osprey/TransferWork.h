#ifndef OSPREY_TOOL_TRANSFERWORK_H
#define OSPREY_TOOL_TRANSFERWORK_H

#include <atomic>
#include <memory>
#include <string>

#include "FileClient.h"
#include "LibOsprey.h"

// One file or folder, from the moment in which a lane takes it to its end.
//
//   Begin --true--> Move ... --> Complete, or Fail
//     |
//     +----false: cannot even be tried, and that was told
//
// One that is deleted before its end, as an interruption does, is told nowhere.
//
// Thread: the worker of its lane, and the main thread once that has ended; CleanUp any.
class ITransfer
{
public:
    ITransfer() = default;
    virtual ~ITransfer() = default;
    ITransfer(const ITransfer&) = delete;
    ITransfer& operator=(const ITransfer&) = delete;

    virtual bool IsFolder() const = 0;

    // Stores what the client is to be told, see IFileClientCallback::GetNextFile.
    virtual bool Begin(std::string& strLocal, std::string& strRemote, long long& llNumber) = 0;
    // ullAnnounced: bytes that the peer announced; 0 for an upload.
    virtual void Move(unsigned int dwPercent, Orb_U64 ullAnnounced) = 0;
    virtual void Complete(Orb_U64 ullAnnounced) = 0;
    // nCode: why, as the peer or the client said it, see IFileClientCallback::OnFileFailed; 0: for
    // another reason.
    virtual void Fail(const std::string& strReason, int nCode) = 0;

    // Removes what is left here of a file that came to nothing; none is made any more. Quick.
    virtual void CleanUp() = 0;
};

// Everything that a run is to move: a list that its lanes share, each taking the next item when it
// is free. Folders come before the files in them; before all files when there are several lanes.
//
// Thread: any.
class CTransferWork
{
public:
    explicit CTransferWork(size_t nItems) : m_nItems(nItems) {}
    virtual ~CTransferWork() = default;
    CTransferWork(const CTransferWork&) = delete;
    CTransferWork& operator=(const CTransferWork&) = delete;

    // Takes the next item; null when there is none.
    std::unique_ptr<ITransfer> Take();

    // Files that nobody has taken.
    virtual size_t FilesLeft() const = 0;

    // Why a client failed a file: nCode is that of IFileClientCallback::OnFileFailed.
    virtual std::string ReasonOf(int nCode) const = 0;

    virtual std::unique_ptr<IFileClient> MakeClient(IFileClientCallback& callback) const = 0;

protected:
    virtual std::unique_ptr<ITransfer> MakeTransfer(size_t nItem) const = 0;

    // How many items were taken.
    size_t Taken() const;

private:
    const size_t m_nItems;
    std::atomic<size_t> m_nNext{0};  // past the end once every lane has asked in vain
};

#endif
