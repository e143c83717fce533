#ifndef OSPREY_TOOL_SERVERRUN_H
#define OSPREY_TOOL_SERVERRUN_H

#include "LibOsprey.h"
#include "Output.h"

// A server from its start to its end, as serve and publish share it.
//
// Thread: one, the host's.
class CServerRun final
{
public:
    // callback and output must outlive this object.
    CServerRun(IOspreyServerCallback& callback, COutput& output);

    // A server that was not started is deleted; one that was must have been ended.
    ~CServerRun();
    CServerRun(const CServerRun&) = delete;
    CServerRun& operator=(const CServerRun&) = delete;

    // Raises the limit of descriptors, and listens; port 0 picks a free one. False after having
    // told why not.
    bool Start(unsigned short wAsked);

    // The port that it listens on.
    unsigned short Port() const
    {
        return m_wPort;
    }
    IOspreyServer& Server()
    {
        return *m_pServer;
    }

    // Ends every connection, then the server.
    void End();

private:
    bool Listen(unsigned short wAsked, int& nError);

    COutput& m_output;
    IOspreyServer* m_pServer;
    unsigned short m_wPort = 0;
};

#endif
