#ifndef OSPREY_TESTS_HOSTEDFOLDER_H
#define OSPREY_TESTS_HOSTEDFOLDER_H

#include "EventLog.h"
#include "RawSocket.h"
#include "RootFolder.h"
#include "ServeHost.h"
#include "ServerRun.h"
#include "TempFolder.h"

// The tool's own host in front of a server in the test's process, which can then choose how the
// host finds files, and look at its descriptors. It tells no events.
class CHostedFolder
{
public:
    explicit CHostedFolder(CRootFolder::EMethod eMethod = CRootFolder::METHOD_BEST);
    ~CHostedFolder();
    CHostedFolder(const CHostedFolder&) = delete;
    CHostedFolder& operator=(const CHostedFolder&) = delete;

    // A connection that has a name.
    CRawSocket Connect() const;

    // What stands around the served folder, which is "root" in it.
    const CTempFolder& Around() const
    {
        return m_folder;
    }
    std::string GetPath(const std::string& strName) const
    {
        return m_folder.GetPath("root/" + strName);
    }

private:
    CTempFolder m_folder;
    COutput m_output;
    CEventLog m_log;
    CServeEvents m_events;
    CRootFolder m_root;
    CServeQuota m_quota;
    CServeTransfers m_transfers;
    CServeHost m_host;
    CServerRun m_server;
};

// What the requests of one connection come to.

// Result code of an upload of one block; 0: it is there.
unsigned int Upload(CRawSocket& peer, const std::u16string& strName, const std::string& strData,
                    unsigned long long ullOffset = 0);
// True with the contents when the file is given.
bool Download(CRawSocket& peer, const std::u16string& strName, std::string& strContents);
// The results of a new folder and of a deletion.
unsigned int MakeFolder(CRawSocket& peer, const std::u16string& strName);
unsigned int Delete(CRawSocket& peer, const std::u16string& strName);

#endif
