#include "ServeCommand.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "LibOsprey.h"
#include "RootMap.h"
#include "ServeEvents.h"
#include "ServeHost.h"
#include "ServeTransfers.h"
#include "Signals.h"
#include "Text.h"

namespace
{

const unsigned int END_CONNECTIONS_MS = 5000;
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

// Starts the server. With port 0 the port found free may be gone a moment later: then another one.
bool Listen(IOspreyServer& server, unsigned short wAsked, unsigned short& wPort, int& nError)
{
    const int nAttempts = wAsked == 0 ? PORT_ATTEMPTS : 1;
    for (int i = 0; i < nAttempts; ++i)
    {
        wPort = wAsked;
        nError = ProbePort(wPort);
        if (nError == 0 && server.Startup(INADDR_ANY, wPort))
        {
            return true;
        }
    }
    return false;
}

void RaiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0)
    {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

CServeEvents::EStyle StyleOf(const COptions& options)
{
    if (options.m_bQuiet)
    {
        return CServeEvents::STYLE_QUIET;
    }
    return options.m_bJson ? CServeEvents::STYLE_JSON : CServeEvents::STYLE_TEXT;
}

// Ends every connection, then the server. Releasing it with a connection left would abort.
void EndServer(IOspreyServer* pServer, COutput& output)
{
    const bool bEnded = pServer->EndAllConnections(END_CONNECTIONS_MS) != Orb_FALSE;
    pServer->Shutdown();
    if (bEnded)
    {
        pServer->Release();
    }
    else
    {
        output.Error("some connections did not end in time");
    }
}

}  // namespace

int RunServe(const COptions& options, COutput& output)
{
    CRootMap map;
    std::string strReason;
    if (!map.Open(options.m_strRoot, strReason))
    {
        output.Error("cannot serve " + QuoteText(options.m_strRoot) + ": " + strReason);
        return EXIT_USAGE;
    }
    RaiseDescriptorLimit();
    const CSignals signals;
    output.EndWithReader();
    CServeEvents events(output, StyleOf(options));
    CServeTransfers transfers(events, map.Root());
    CServeHost host(map, events, transfers, options.m_bReadOnly);
    IOspreyServer* pServer = CreateOspreyServer(&host);
    unsigned short wPort = 0;
    int nError = 0;
    if (!Listen(*pServer, options.m_wPort, wPort, nError))
    {
        pServer->Release();
        output.Error("cannot listen on port " + std::to_string(options.m_wPort) +
                     (nError == 0 ? "" : std::string(": ") + strerror(nError)));
        return EXIT_NOT_CONNECTED;
    }
    events.Listening(wPort, map.Root(), options.m_bReadOnly);
    signals.Wait();
    signals.ForceOnNext([] {});
    EndServer(pServer, output);
    transfers.EndAll();
    events.Stopped();
    return EXIT_DONE;
}
