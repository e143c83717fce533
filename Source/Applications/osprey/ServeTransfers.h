#ifndef OSPREY_TOOL_SERVETRANSFERS_H
#define OSPREY_TOOL_SERVETRANSFERS_H

#include <dirent.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "LibOsprey.h"
#include "RootMap.h"
#include "ServeEvents.h"
#include "ServeQuota.h"

// The files that move between the server and its peers.
//
// An upload is written beside its target, under a name of its own, and renamed to the target when
// all announced bytes are there; so the target is the old file or the whole new one at any time:
//
//   Begin ---> DIR/.osprey-NN.part ----all bytes, or an empty last block---> DIR/NAME
//                      |
//                      +--connection ended, server stopped--> DIR/NAME.osprey-partial (kept)
//                      +--cancelled by its peer, nothing arrived--> removed
//                      +--server killed--> removed by the next one, since nobody has it locked
//
// A peer that asks to continue an upload goes on with what is kept, or starts anew. What is kept is
// then a file under construction like any other: should the server be killed, it is gone.
//
// Progress comes with the context value that BeginUpload and BeginDownload return; one object
// serves all transfers, so it lives as long as the server needs it. The library does not tell when
// a transfer is given up; that an upload is over shows in its file, which nothing else in this
// process has open any more.
//
// An upload keeps the folder of its target open until it is over, so that it ends where it began,
// whatever is renamed meanwhile; uploads to one folder share it.
//
// Where there is a quota, an upload stays known after it is whole until the library has closed its
// file, since a peer may send more than it announced. One that sends more than it may loses what it
// sent, and its connection.
//
// Thread: worker of the server; EndAll after the server has ended.
class CServeTransfers final : public IOspreyProgress
{
public:
    CServeTransfers(CServeEvents& events, CServeQuota& quota);
    CServeTransfers(const CServeTransfers&) = delete;
    CServeTransfers& operator=(const CServeTransfers&) = delete;

    // Says which connection a call is about, and ends those that send more than they may. Before
    // the server starts; it must outlive what calls here.
    void SetServer(IOspreyServer& server)
    {
        m_pServer = &server;
    }

    // An upload that the map has allowed.
    struct CUpload
    {
        CConnectionName m_connection;
        const CRootMap::CResult& m_target;
        Orb_U64 m_ullSize;
        Orb_U64 m_ullOffset;
    };

    // Why the quota does not allow an upload as it is announced; null when it does.
    const char* Fault(const CRootFolder& root, const CUpload& upload);

    // Prepares the file for an upload into the folder, which is that of its target, and stores the
    // path to write. Returns the context value; 0 with errno when the file cannot be made.
    Orb_U64 BeginUpload(const CUpload& upload, CDescriptor&& folder, std::string& strPath);

    Orb_U64 BeginDownload(const CConnectionName& connection, const std::string& strShown,
                          Orb_U64 ullSize);

    // A peer deletes what is shown as strShown. True when that ends an upload that it has given up:
    // what arrived is removed, and an older file at the target stays.
    bool Discard(const CConnectionName& connection, const std::string& strShown);

    // Keeps a descriptor open until the library has opened what its path leads to, which it does
    // before its next call into the host. Returns that path.
    std::string Hold(CDescriptor&& descriptor);
    // The library has called.
    void ReleaseHeld()
    {
        m_held.Close();
    }

    // A peer has deleted a file.
    void Deleted(const CDescriptor& file);

    // The connection that the server calls about has ended. Reports what it leaves undone.
    void ConnectionEnded();

    // Everything has ended.
    void EndAll();

    void OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext) override;

    // The name under which the beginning of an upload is kept; empty when it would be too long.
    static std::string PartialName(const std::string& strName);
    static bool IsPartialName(const std::string& strName);

private:
    using CTime = std::chrono::steady_clock::time_point;
    using CFileId = std::pair<dev_t, ino_t>;
    using COpenFiles = std::map<CFileId, unsigned int>;  // descriptors of this process, by file
    using CFolder = std::shared_ptr<const CDescriptor>;

    struct CTransfer
    {
        bool m_bUpload = false;
        long m_lTask = 0;  // of its connection
        CConnectionName m_connection;
        std::string m_strShown;
        std::string m_strName;  // uploads, as all that follows: of the target, in its folder
        std::string m_strTemp;  // the name there until it is whole
        CDescriptor m_file;     // holds its lock
        CFolder m_pFolder;
        CFileId m_idFolder;
        CFileId m_idFile;
        Orb_U64 m_ullCounted = 0;  // in the total
        bool m_bWhole = false;     // has its name, but its peer may send more
        bool m_bGone = false;      // is whole, and was deleted or replaced
        Orb_U64 m_ullDone = 0;
        Orb_U64 m_ullTotal = 0;
        std::chrono::steady_clock::time_point m_start;

        double Seconds() const;
    };
    using CMap = std::map<Orb_U64, CTransfer>;

    Orb_U64 Add(CTransfer&& transfer);
    void Advance(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext);
    CMap::iterator OneTooMany();
    const char* QuotaFault(const CRootFolder& root, const CUpload& upload) const;
    void ShareFolder(CTransfer& transfer, CDescriptor&& folder) const;
    static bool TakePartial(CTransfer& transfer);
    void EndTransfer(CMap::iterator it);
    bool FinishUpload(CTransfer& transfer);
    bool CountArrived(CTransfer& transfer, Orb_U64 ullDone);
    void CutOff(CTransfer& transfer, const char* pszFault);
    void Leaves(const CFileId& id, Orb_U64 ullSize);
    void Abandon(CTransfer& transfer);
    std::string Keep(const CTransfer& transfer);
    void SweepUploads();
    void SweepBefore(const std::string& strShown);
    bool CountOpen(COpenFiles& mapOpen) const;
    static bool IsOver(const CTransfer& transfer, const COpenFiles& mapOpen);
    bool IsOver(const CTransfer& transfer) const;
    static bool FileId(const CDescriptor& file, CFileId& id, Orb_U64* pSize);

    CServeEvents& m_events;
    CServeQuota& m_quota;
    IOspreyServer* m_pServer = nullptr;
    const std::unique_ptr<DIR, int (*)(DIR*)> m_pOpenFiles;  // of this process; null: not to be had
    CMap m_mapTransfers;
    Orb_U64 m_ullLastId = 0;
    CTime m_timeSweepDue;
    CDescriptor m_held;
};

#endif
