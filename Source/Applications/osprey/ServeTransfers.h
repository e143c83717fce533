#ifndef OSPREY_TOOL_SERVETRANSFERS_H
#define OSPREY_TOOL_SERVETRANSFERS_H

#include <chrono>
#include <map>
#include <string>

#include "LibOsprey.h"
#include "ServeEvents.h"

// The files that move between the server and its peers.
//
// An upload is written beside its target, under a name of its own, and renamed to the target when
// all announced bytes are there; so the target is the old file or the whole new one at any time:
//
//   Begin ---> DIR/.osprey-NNNN.tmp ---all bytes, or an empty last block---> DIR/NAME
//                      |
//                      +--connection ended, server stopped--> DIR/NAME.osprey-partial (kept)
//                      +--cancelled by its peer, nothing arrived--> removed
//
// A peer that asks to continue an upload goes on with what is kept, or starts anew.
//
// Progress comes with the context value that BeginUpload and BeginDownload return; one object
// serves all transfers, so it lives as long as the server needs it. The library does not tell when
// a transfer is given up; that an upload is over shows in its file, which nobody in this process
// has open any more.
//
// Thread: worker of the server; EndAll after the server has ended.
class CServeTransfers final : public IOspreyProgress
{
public:
    CServeTransfers(CServeEvents& events, const std::string& strRoot);
    CServeTransfers(const CServeTransfers&) = delete;
    CServeTransfers& operator=(const CServeTransfers&) = delete;

    // Prepares the file for an upload to strTarget, whose folder exists, and stores the path to
    // write. Returns the context value; 0 with errno when the file cannot be made.
    Orb_U64 BeginUpload(const CConnectionName& connection, const std::string& strTarget,
                        const std::string& strShown, Orb_U64 ullSize, Orb_U64 ullOffset,
                        std::string& strPath);

    Orb_U64 BeginDownload(const CConnectionName& connection, const std::string& strShown,
                          Orb_U64 ullSize);

    // A peer deletes strTarget. True when that ends an upload that it has given up: what arrived is
    // removed, and an older file at the target stays.
    bool Discard(const CConnectionName& connection, const std::string& strTarget);

    // A connection has ended; bLast: no other of that name is left. Reports what it leaves undone.
    void ConnectionEnded(const std::string& strConnection, bool bLast);

    // Everything has ended.
    void EndAll();

    void OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext) override;

    // The name under which the beginning of an upload is kept; empty when it would be too long.
    static std::string PartialPath(const std::string& strTarget);
    static bool IsPartialName(const std::string& strName);

private:
    struct CTransfer
    {
        bool m_bUpload = false;
        CConnectionName m_connection;
        std::string m_strShown;
        std::string m_strTarget;  // uploads
        std::string m_strTemp;    // uploads
        Orb_U64 m_ullDone = 0;
        Orb_U64 m_ullTotal = 0;
        std::chrono::steady_clock::time_point m_start;
    };
    using CMap = std::map<Orb_U64, CTransfer>;

    Orb_U64 Add(CTransfer&& transfer);
    Orb_U64 ContinuePartial(const CTransfer& transfer, Orb_U64 ullOffset) const;
    void FinishUpload(CTransfer& transfer);
    void Abandon(CTransfer& transfer);
    void SweepUploads();
    std::string Shown(const std::string& strPath) const;

    CServeEvents& m_events;
    std::string m_strRoot;
    CMap m_mapTransfers;
    Orb_U64 m_ullLastId = 0;
};

#endif
