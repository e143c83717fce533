#ifndef OSPREY_TESTS_SERVEDFOLDER_H
#define OSPREY_TESTS_SERVEDFOLDER_H

#include <memory>
#include <string>
#include <vector>

#include "RawSocket.h"
#include "TempFolder.h"
#include "ToolProcess.h"

// The real server over a folder of its own, on a port that was free, telling its events as JSON.
class CServedFolder
{
public:
    explicit CServedFolder(const std::vector<std::string>& listOptions = {});

    CToolProcess& Tool()
    {
        return *m_pTool;
    }
    unsigned short GetPort() const
    {
        return m_wPort;
    }
    // "127.0.0.1:PORT".
    std::string GetPeer() const
    {
        return "127.0.0.1:" + std::to_string(m_wPort);
    }
    // Path of an entry of the served folder, or of the folder.
    std::string GetPath(const std::string& strName) const
    {
        return m_folder.GetPath("root/" + strName);
    }
    std::string GetRoot() const
    {
        return m_folder.GetPath("root");
    }
    // The folder in which the served one stands.
    const CTempFolder& Around() const
    {
        return m_folder;
    }
    // The names in the served folder and below it, sorted, folders with a "/" behind.
    std::vector<std::string> List() const;

    // A connection that has been given a name.
    CRawSocket Connect(const std::u16string& strName = u"peer");
    // One that has none.
    CRawSocket ConnectUnnamed() const;

    // Ends the server with a signal; returns its exit code.
    int Stop();

private:
    CTempFolder m_folder;
    std::unique_ptr<CToolProcess> m_pTool;
    unsigned short m_wPort = 0;
};

// The names in a folder and below it, sorted, folders with a "/" behind.
std::vector<std::string> ListFolder(const std::string& strPath);
// The same, without what the tool keeps for itself: ".osprey-...".
std::vector<std::string> ListVisible(const std::string& strPath);

#endif
