#ifndef OSPREY_WXSPDIRECTORYREQUESTS_H
#define OSPREY_WXSPDIRECTORYREQUESTS_H

// Internal header. The requests that are answered with one result: each handler ends when its reply
// has been sent.

#include "WXSPRequestHandler.h"

class CResultRequestHandler : public CWXSPRequestHandler
{
public:
    explicit CResultRequestHandler(CWXSPBrowserHandler* pBrowser) : CWXSPRequestHandler(pBrowser) {}

    void OnSendComplete() override;
    void OnShutdown() override {}

protected:
    // Does the work on the name that the peer sent and returns the result to send.
    virtual unsigned int Perform(const std::string& strName) = 0;
    int Reply(unsigned int dwRequestID, const void* pName, unsigned int dwMagic, int nRoom);
};

// NAMC: the name that the host sees with every later operation of the connection.
class CNameConnectionRequestHandler final : public CResultRequestHandler
{
public:
    explicit CNameConnectionRequestHandler(CWXSPBrowserHandler* pBrowser)
        : CResultRequestHandler(pBrowser)
    {
    }
    int Startup(_WXS_NAME_CONNECTION* pRequest);

protected:
    unsigned int Perform(const std::string& strName) override;
};

// CDIR: makes sure that a directory exists and is writable, creating missing parents.
class CCreateDirRequestHandler final : public CResultRequestHandler
{
public:
    explicit CCreateDirRequestHandler(CWXSPBrowserHandler* pBrowser)
        : CResultRequestHandler(pBrowser)
    {
    }
    int Startup(_WXS_CREATE_DIR* pRequest);

    // Walks up to the nearest directory that exists, makes sure that it is writable (mode 0755 if
    // it was not), and creates what is missing below it. Directories created before a failure stay.
    static bool CheckDirExistsAndWriteLimit(const std::string& strPath);
    static bool wxDirExist(const std::string& strPath);

protected:
    unsigned int Perform(const std::string& strPath) override;

private:
    static std::string FindExistingAncestor(const std::string& strPath);
};

// DELT: deletes one file. Never descends into a directory nor removes one: peers rely on the
// success that it reports for those, and for what does not exist.
class CDeleteTreeRequestHandler final : public CResultRequestHandler
{
public:
    explicit CDeleteTreeRequestHandler(CWXSPBrowserHandler* pBrowser)
        : CResultRequestHandler(pBrowser)
    {
    }
    int Startup(_WXS_DELETE_TREE* pRequest);

protected:
    unsigned int Perform(const std::string& strPath) override;
};

#endif
