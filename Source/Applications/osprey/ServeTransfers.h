#ifndef OSPREY_TOOL_SERVETRANSFERS_H
#define OSPREY_TOOL_SERVETRANSFERS_H

#include <sys/types.h>

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
// its peer has marked the last block; so the target is the old file or the whole new one at any
// time:
//
//   Begin ---> DIR/.osprey-NN.part ----last block----> DIR/NAME
//                      |
//                      +--given up, connection ended, server stopped--> DIR/NAME.osprey-partial
//                      +--nothing arrived--> removed
//                      +--server killed--> removed by the next one, since nobody has it locked
//
// A peer that gives an upload up and then deletes the file means what has arrived of it: that is
// removed, and an older file at the target stays.
//
// A peer that asks to continue an upload goes on with what is kept, or starts anew; any other
// upload to the same target removes it. What is continued is a file under construction like any
// other: should the server be killed, it is gone.
//
// Progress comes with the context value that BeginUpload and BeginDownload return; one object
// serves all transfers, so it lives as long as the server needs it.
//
// An upload keeps the folder of its target open until it is over, so that it ends where it began,
// whatever is renamed meanwhile; uploads to one folder share it.
//
// An upload that sends more than it announced, and more than it may, loses what it sent, and its
// connection.
//
// Thread: worker of the server; EndAll after the server has ended.
class CServeTransfers final : public IOspreyProgress, public IOspreyTransferObserver
{
public:
    CServeTransfers(CServeEvents& events, CServeQuota& quota);
    CServeTransfers(const CServeTransfers&) = delete;
    CServeTransfers& operator=(const CServeTransfers&) = delete;

    // Tells of transfers that end, says which connection a call is about, and ends those that send
    // more than they may. Before the server starts; it must outlive what calls here.
    void SetServer(IOspreyServer& server);

    // An upload that the map has allowed.
    struct CUpload
    {
        CConnectionName m_connection;
        const CRootMap::CResult& m_target;
        Orb_U64 m_ullSize;
        Orb_U64 m_ullOffset;
    };

    // Why the quota does not allow an upload as it is announced; null when it does.
    const char* Fault(const CRootFolder& root, const CUpload& upload) const;

    // Prepares the file for an upload into the folder, which is that of its target, and stores the
    // path to write. Returns the context value; 0 with errno when the file cannot be made.
    Orb_U64 BeginUpload(const CUpload& upload, CDescriptor&& folder, std::string& strPath);

    Orb_U64 BeginDownload(const CConnectionName& connection, const std::string& strShown,
                          Orb_U64 ullSize);

    // A connection asks for something. It remembers, for this request alone, what the connection
    // has given up last.
    void Called();

    // The peer that calls deletes what is shown as strShown. True when it has given up an upload
    // there just before: what arrived is removed, and an older file at the target stays.
    bool Discard(const CRootFolder& root, const CConnectionName& connection,
                 const std::string& strShown);

    // Keeps a descriptor open until the library has opened what its path leads to, which it does
    // before its next call into the host. Returns that path.
    std::string Hold(CDescriptor&& descriptor);

    // A peer has deleted a file.
    void Deleted(const CDescriptor& file);

    // The connection that the server calls about has ended.
    void ConnectionEnded();

    // Everything has ended.
    void EndAll();

    void OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext) override;
    void OnTransferEnded(OSPREY_TRANSFER_END eEnd, Orb_U64 ullContext) override;

    // The name under which the beginning of an upload is kept; empty when it would be too long.
    static std::string PartialName(const std::string& strName);
    static bool IsPartialName(const std::string& strName);

private:
    using CFileId = std::pair<dev_t, ino_t>;
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
        Orb_U64 m_ullCounted = 0;  // in the total
        Orb_U64 m_ullDone = 0;
        Orb_U64 m_ullTotal = 0;
        std::chrono::steady_clock::time_point m_start;

        double Seconds() const;
    };
    using CMap = std::map<Orb_U64, CTransfer>;

    // An upload that its peer has given up.
    struct CGivenUp
    {
        std::string m_strShown;  // empty: there is none
        std::string m_strKept;   // empty: nothing arrived
        CFileId m_idFile;
    };

    Orb_U64 Add(CTransfer&& transfer);
    void ShareFolder(CTransfer& transfer, CDescriptor&& folder) const;
    static bool TakePartial(CTransfer& transfer, unsigned int nMode);
    void RemovePartial(const CTransfer& transfer);
    bool CountArrived(CTransfer& transfer, Orb_U64 ullDone);
    void CutOff(CTransfer& transfer, const char* pszFault);
    void End(OSPREY_TRANSFER_END eEnd, CTransfer& transfer);
    void FinishUpload(CTransfer& transfer);
    void Abandon(const CTransfer& transfer, bool bGivenUp);
    std::string Keep(const CTransfer& transfer);
    static CFileId FileId(const CDescriptor& file);

    CServeEvents& m_events;
    CServeQuota& m_quota;
    IOspreyServer* m_pServer = nullptr;
    CMap m_mapTransfers;
    Orb_U64 m_ullLastId = 0;
    std::map<long, CGivenUp> m_mapGivenUp;  // by task, until its next request
    CGivenUp m_givenUp;                     // by the connection that asks
    CDescriptor m_held;
};

#endif
