#ifndef OSPREY_TOOL_RECEPTION_H
#define OSPREY_TOOL_RECEPTION_H

#include <mutex>
#include <optional>
#include <string>

#include "Digest.h"
#include "Progress.h"
#include "TransferWork.h"

class CJournal;

// One file to fetch.
struct CDownloadEntry
{
    std::string m_strName;         // at the peer
    std::string m_strTarget;       // local path
    std::string m_strDigest = {};  // what it must have; empty: any
    bool m_bListed = false;        // the peer itself has told of the file
};

// Fetches one file. It is written under a name of its own beside its target, and renamed only when
// it is as large as the peer announced, has the digest that was asked for, and is on the disk.
// Until then, and after any failure, what stands at the target stays as it was.
//
// Ownership: owns the file under construction, and removes it unless it got its name. It is locked
//            meanwhile: see CreateTemp.
class CReception final : public ITransfer
{
public:
    // All of them must outlive it; pJournal, which is told of a file that is whole, may be null.
    CReception(const CDownloadEntry& entry, CProgress& progress, CJournal* pJournal);
    ~CReception() override;
    CReception(const CReception&) = delete;
    CReception& operator=(const CReception&) = delete;

    bool IsFolder() const override
    {
        return false;
    }
    bool Begin(std::string& strLocal, std::string& strRemote, long long& llNumber) override;
    void Move(unsigned int dwPercent, Orb_U64 ullAnnounced) override;
    void Complete(Orb_U64 ullAnnounced) override;
    void Fail(const std::string& strReason, int nCode) override;
    void CleanUp() override;

private:
    bool Prepare();
    bool CheckTarget();
    bool CheckDigest();
    bool Store();
    std::string Temp();

    const CDownloadEntry& m_entry;
    CProgress& m_progress;
    CJournal* const m_pJournal;
    std::optional<CProgress::CFile> m_shown;
    std::optional<CDigest> m_digest;
    std::string m_strTarget;
    int m_nTemp = -1;    // holds the lock
    std::mutex m_mutex;  // of the next two, which CleanUp takes from any thread
    bool m_bCleanedUp = false;
    std::string m_strTemp;  // empty: there is none
};

#endif
