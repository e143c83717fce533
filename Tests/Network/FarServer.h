#ifndef OSPREY_TESTS_FARSERVER_H
#define OSPREY_TESTS_FARSERVER_H

#include <stdexcept>

#include "LibOsprey.h"
#include "Link.h"

// A server at the far end of a link; ended with all its connections at the end of the block.
class CFarServer
{
public:
    CFarServer(const CLink& link, IOspreyServerCallback* pHost)
        : m_pServer(CreateOspreyServer(pHost))
    {
        bool bRuns = false;
        link.AtFarEnd([&] { bRuns = m_pServer->Startup(0, PORT) != 0; });
        if (!bRuns)
        {
            m_pServer->Release();
            throw std::runtime_error("the server does not start");
        }
    }
    ~CFarServer()
    {
        while (!m_pServer->EndAllConnections(1000))
        {
        }
        m_pServer->Shutdown();
        m_pServer->Release();
    }
    CFarServer(const CFarServer&) = delete;
    CFarServer& operator=(const CFarServer&) = delete;

    IOspreyServer* operator->() const
    {
        return m_pServer;
    }

private:
    IOspreyServer* m_pServer;
};

#endif
