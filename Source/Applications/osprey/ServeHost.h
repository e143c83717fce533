#ifndef OSPREY_TOOL_SERVEHOST_H
#define OSPREY_TOOL_SERVEHOST_H

#include <string>

#include "LibOsprey.h"
#include "RootMap.h"
#include "ServeEvents.h"
#include "ServeTransfers.h"

// Answers the server's requests: where a name leads, or that it leads nowhere.
//
// What is allowed is given a path below /proc/self/fd, which leads to what was judged here,
// whatever stands under its name by the time that the library opens it.
//
// What is refused is given the path /dev/null/refused, below which nothing can exist; the library
// then fails by itself with the protocol's own error (a deletion is answered with success). What is
// allowed but fails here (no permission, disk full) is refused the same way.
//
// Folders and deletions are done here, before the library looks, since it does not tell what came
// of them: it then finds a folder that exists, or nothing to delete.
//
// Thread: worker of the server.
class CServeHost final : public IOspreyServerCallback
{
public:
    // root, events and transfers must outlive this object.
    CServeHost(const CRootFolder& root, CServeEvents& events, CServeTransfers& transfers,
               bool bReadOnly);
    CServeHost(const CServeHost&) = delete;
    CServeHost& operator=(const CServeHost&) = delete;

    int OnRequest(KS_REQUEST eRequest, void* pRecord) override;
    void OnDisconnect(const char* pszName) override;

private:
    void Upload(KS_UPLOAD_FILE& request);
    void Download(KS_DOWNLOAD_FILE& request);
    void CreateFolder(KS_CREATE_DIR& request);
    void Delete(KS_DELETE_TREE& request);
    void NameConnection(const KS_NAME_CONNECTION& request);

    // Maps a name; false when refused, which is then reported.
    bool Allow(const char* pszRequest, const CConnectionName& connection, const char* pszName,
               CRootMap::EUse eUse, CRootMap::CResult& result);
    CDescriptor MakeFolder(const CConnectionName& connection, const std::string& strFolder);
    void Unlink(const CConnectionName& connection, const CRootMap::CResult& target,
                std::string& strResolvedPath);

    const CRootFolder& m_root;
    const CRootMap m_map;
    CServeEvents& m_events;
    CServeTransfers& m_transfers;
    bool m_bReadOnly;
};

#endif
