#ifndef OSPREY_TOOL_BACKCHECK_H
#define OSPREY_TOOL_BACKCHECK_H

#include <optional>
#include <string>

#include "Digest.h"
#include "MemoryFile.h"
#include "Progress.h"
#include "TransferWork.h"

// A file that was sent, and is to be fetched back.
struct CSentFile
{
    std::string m_strPath;    // local
    std::string m_strShown;   // below the remote root, with "/"
    std::string m_strDigest;  // of the local file, once it was checked
    bool m_bSame = false;     // what came back has it too
};

// Fetches a file back from the server and compares its digest with that of the local one. Both are
// read side by side, piece by piece: what came back is kept nowhere.
class CBackCheck final : public ITransfer
{
public:
    // All of them must outlive it. strTo: the remote root.
    CBackCheck(CSentFile& file, const std::string& strTo, CProgress& progress)
        : m_file(file), m_strTo(strTo), m_progress(progress)
    {
    }
    ~CBackCheck() override;
    CBackCheck(const CBackCheck&) = delete;
    CBackCheck& operator=(const CBackCheck&) = delete;

    bool IsFolder() const override
    {
        return false;
    }
    bool Begin(std::string& strLocal, std::string& strRemote, long long& llNumber) override;
    void Move(unsigned int dwPercent, Orb_U64 ullAnnounced) override;
    void Complete(Orb_U64 ullAnnounced) override;
    void Fail(const std::string& strReason, int nCode) override;
    void CleanUp() override {}

private:
    bool ReadOn();
    void NotVerified(const std::string& strReason);

    CSentFile& m_file;
    const std::string& m_strTo;
    CProgress& m_progress;
    int m_nLocal = -1;
    const CMemoryFile m_back;
    CDigest m_digestLocal;
    CDigest m_digestBack;
    std::optional<CProgress::CFile> m_shown;  // while it comes back
};

#endif
