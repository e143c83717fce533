#include "ServerRun.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "DescriptorLimit.h"

namespace
{

const unsigned int END_CONNECTIONS_MS = 1500;  // a signal ends the tool within 2 seconds
const int PORT_ATTEMPTS = 20;

// Whether a port can be listened on, and which one the system gives for port 0. The server's own
// interface tells neither. Returns 0 or an errno.
int ProbePort(unsigned short& wPort)
{
    const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (nSocket < 0)
    {
        return errno;
    }
    const int nOn = 1;
    setsockopt(nSocket, SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof nOn);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(wPort);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    socklen_t nLength = sizeof address;
    sockaddr* pAddress = reinterpret_cast<sockaddr*>(&address);
    const bool bGood =
        bind(nSocket, pAddress, nLength) == 0 && getsockname(nSocket, pAddress, &nLength) == 0;
    const int nError = bGood ? 0 : errno;
    close(nSocket);
    wPort = ntohs(address.sin_port);
    return nError;
}

}  // namespace

CServerRun::CServerRun(IOspreyServerCallback& callback, COutput& output)
    : m_output(output), m_pServer(CreateOspreyServer(&callback))
{
}

CServerRun::~CServerRun()
{
    if (m_pServer != nullptr)
    {
        m_pServer->Release();
    }
}

bool CServerRun::Start(unsigned short wAsked)
{
    RaiseDescriptorLimit();
    int nError = 0;
    if (Listen(wAsked, nError))
    {
        return true;
    }
    m_output.Error("cannot listen on port " + std::to_string(wAsked) +
                   (nError == 0 ? "" : std::string(": ") + strerror(nError)));
    return false;
}

// With port 0 the port found free may be gone a moment later: then another one.
bool CServerRun::Listen(unsigned short wAsked, int& nError)
{
    const int nAttempts = wAsked == 0 ? PORT_ATTEMPTS : 1;
    for (int i = 0; i < nAttempts; ++i)
    {
        m_wPort = wAsked;
        nError = ProbePort(m_wPort);
        if (nError == 0 && m_pServer->Startup(INADDR_ANY, m_wPort))
        {
            return true;
        }
    }
    return false;
}

void CServerRun::End()
{
    const bool bEnded = m_pServer->EndAllConnections(END_CONNECTIONS_MS) != Orb_FALSE;
    m_pServer->Shutdown();
    if (bEnded)
    {
        m_pServer->Release();
    }
    else
    {
        // Releasing it with a connection left would abort.
        m_output.Error("some connections did not end in time");
    }
    m_pServer = nullptr;
}
