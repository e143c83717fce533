// One connection of a server, from its acceptance to its end: a stream, both protocol handlers and
// every request handler, on a loop that the target runs itself. Time is the target's, files are
// those of a folder of its own.
//
// Input: what the host and the peer do beside the stream; the rule of the pieces; how much time
// passes after each and while the server works; the stream.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "FuzzEngine.h"
#include "FuzzHost.h"
#include "FuzzInput.h"
#include "OpenPacketStore.h"
#include "OspreyServerStream.h"
#include "ReplyCheck.h"
#include "SystemCalls.h"
#include "TestClock.h"

namespace
{

const int PASSES = 3;
const int MOST_PIECES = 64;          // what is left then comes at once
const size_t MOST_REPLIES = 400000;  // bytes: what a link leads to may have no end
const int SMALL_SEND_BUFFER = 4096;
const long long BEYOND_KEEP_ALIVE_MS = 30002;
const unsigned int PUT_CHANNELS = 4;

enum FUZZ_FLAG : unsigned int
{
    FLAG_PROGRESS = 1,     // the host wants to hear of it
    FLAG_TERMINATE = 2,    // the host ends the connection when it is named
    FLAG_PUT = 4,          // the host puts packets on some channels
    FLAG_DEAF = 8,         // the peer reads nothing until the end
    FLAG_LITTLE_ROOM = 16  // of the send buffer
};

enum FUZZ_END : unsigned int
{
    END_CLOSED,      // by the peer
    END_SHUT_DOWN,   // by the peer, who still reads
    END_TERMINATED,  // by the host
    END_ALL          // by the host
};

bool g_bLocalPeer = false;
bool g_bSlow = false;  // a millisecond passes whenever the server looks how long it has worked

class CFuzzCore final : public COspreyServer
{
public:
    CFuzzCore(CIOEngine* pEngine, IOspreyServerCallback* pHost)
        : COspreyServer(pEngine, pHost), m_pStore(new COpenPacketServer)
    {
        m_pChannelPacketServer = m_pStore;
    }
    long GetTask() const
    {
        return reinterpret_cast<long>(static_cast<COspreyServerStream*>(m_listStreams.GetHead()));
    }

    COpenPacketServer* const m_pStore;  // owned by the base
};

// What lives as long as the process: nothing of a run may stay in it.
struct CFuzzServer
{
    CFuzzServer()
    {
        DropOutput();
        Require(m_engine.Create(16), "there is an epoll");
        Require(m_core.Create(CSocketAddress(INADDR_LOOPBACK, 0), 1), "a port is to be had");
    }
    ~CFuzzServer()
    {
        m_core.EndAllNow();
        m_core.CloseHostRequests();
    }

    std::chrono::steady_clock::time_point GetNow()
    {
        m_clock.Advance(g_bSlow ? 1 : 0);
        return std::chrono::steady_clock::time_point(
            std::chrono::milliseconds(m_clock.GetWallMs()));
    }

    CTestClock m_clock;
    // A timer due within a millisecond is slept for: that clock stands still.
    CReplacedCall<int(pollfd*, nfds_t, const timespec*, const sigset_t*)> m_noSleep{
        g_callPpoll, [](pollfd*, nfds_t, const timespec*, const sigset_t*) { return 0; }};
    CFuzzEngine m_engine;
    CFuzzHost m_host;
    CFuzzCore m_core{&m_engine, &m_host};
};

CFuzzServer& GetServer()
{
    static CFuzzServer server;
    return server;
}

class CConnection
{
public:
    CConnection(CFuzzServer& server, CFuzzInput& input);

    void Run(CFuzzInput& input);

private:
    bool Has(unsigned int dwFlag) const
    {
        return (m_cFlags & dwFlag) != 0;
    }
    void Connect();
    void Deliver(std::string_view bytes);
    void PutPackets();
    void Drain();
    void End();
    void EndAll();
    void RequireNothingLeft();

    CFuzzServer& m_server;
    const unsigned char m_cFlags;
    const unsigned char m_cRule;
    const unsigned char m_cTime;
    int m_hPeer = -1;
    int m_nPieces = 0;
    std::string m_strReplies;
};

CConnection::CConnection(CFuzzServer& server, CFuzzInput& input)
    : m_server(server),
      m_cFlags(input.TakeByte()),
      m_cRule(input.TakeByte()),
      m_cTime(input.TakeByte())
{
}

void CConnection::Connect()
{
    int hEnds[2] = {-1, -1};
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, hEnds) == 0, "there are sockets");
    m_hPeer = hEnds[0];
    if (Has(FLAG_LITTLE_ROOM))
    {
        setsockopt(hEnds[1], SOL_SOCKET, SO_SNDBUF, &SMALL_SEND_BUFFER, sizeof SMALL_SEND_BUFFER);
    }
    m_server.m_core.ProcessClientConnect(hEnds[1], CSocketAddress(INADDR_LOOPBACK, 0));
    Require(m_server.m_core.GetStreamCount() == 1, "the connection is accepted");
}

// Sends and lets the server work, until it has taken everything or takes no more.
void CConnection::Deliver(std::string_view bytes)
{
    while (!bytes.empty())
    {
        const ssize_t nSent =
            send(m_hPeer, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        m_server.m_engine.RunPasses(PASSES);
        if (nSent <= 0)
        {
            return;
        }
        bytes.remove_prefix(static_cast<size_t>(nSent));
    }
}

void CConnection::PutPackets()
{
    for (unsigned int i = 0; i < PUT_CHANNELS; ++i)
    {
        std::string strData(static_cast<size_t>(m_nPieces * 37 % 1501), GetChannelByte(i));
        m_server.m_core.m_pStore->PutChannelPacket(i, strData.data(),
                                                   static_cast<unsigned int>(strData.size()));
    }
}

void CConnection::Drain()
{
    static char s_part[65536];
    ssize_t nReceived = 0;
    while (m_strReplies.size() < MOST_REPLIES &&
           (nReceived = recv(m_hPeer, s_part, sizeof s_part, MSG_DONTWAIT)) > 0)
    {
        m_strReplies.append(s_part, static_cast<size_t>(nReceived));
        m_server.m_engine.RunPasses(1);
    }
}

void CConnection::End()
{
    switch (m_cFlags / 32 % 4)
    {
        case END_SHUT_DOWN:
            shutdown(m_hPeer, SHUT_WR);
            m_server.m_engine.RunPasses(PASSES);
            Drain();
            break;
        case END_TERMINATED:
            if (m_server.m_core.GetStreamCount() > 0)
            {
                m_server.m_core.TerminateTask(m_server.m_core.GetTask());
            }
            m_server.m_engine.RunPasses(PASSES);
            Drain();
            break;
        case END_ALL:
            Drain();
            EndAll();
            break;
        default:
            break;
    }
    close(m_hPeer);
    m_server.m_engine.RunPasses(PASSES);
    m_server.m_clock.Advance(BEYOND_KEEP_ALIVE_MS);
    m_server.m_engine.RunPasses(PASSES);
}

// In the loop, or without one as after the worker's end; then as for the next start.
void CConnection::EndAll()
{
    if (Has(FLAG_PROGRESS))
    {
        m_server.m_core.EndAll();
        m_server.m_engine.RunPasses(PASSES);
    }
    m_server.m_core.EndAllNow();
    m_server.m_core.CloseHostRequests();
    Require(m_server.m_core.Create(CSocketAddress(INADDR_LOOPBACK, 0), 1), "a server restarts");
}

void CConnection::RequireNothingLeft()
{
    Require(m_server.m_core.GetStreamCount() == 0, "a connection ends with its peer");
    Require(m_server.m_engine.m_timerHeap.GetCount() == 0, "no timer is left");
    for (const auto& channel : m_server.m_core.m_pStore->m_mapChannels)
    {
        Require(COpenPacketBuffer::CountReferences(*channel.second) == 0,
                "every packet was given back");
    }
    m_server.m_core.m_pStore->RemoveAll();
    RequireReplies(m_strReplies);
    m_server.m_host.End();
}

void CConnection::Run(CFuzzInput& input)
{
    static const long long TIMES_MS[] = {0, 1, 101, 202, 1000, 4999, 29000, 31000};
    m_server.m_host.Begin(&m_server.m_core, Has(FLAG_PROGRESS), Has(FLAG_TERMINATE));
    g_bLocalPeer = m_cFlags / 128 != 0;
    g_bSlow = m_cTime / 8 % 2 != 0;
    const int nDescriptors = CountOpenDescriptors();
    Connect();
    for (CPieces pieces(m_cRule, input.TakeRest()); !pieces.IsEmpty(); ++m_nPieces)
    {
        Deliver(m_nPieces < MOST_PIECES ? pieces.Take() : pieces.TakeRest());
        if (Has(FLAG_PUT))
        {
            PutPackets();
        }
        m_server.m_clock.Advance(TIMES_MS[m_cTime % 8]);
        m_server.m_engine.RunPasses(1);
        if (!Has(FLAG_DEAF))
        {
            Drain();
        }
    }
    End();
    RequireNothingLeft();
    Require(CountOpenDescriptors() == nDescriptors, "no descriptor is left open");
}

}  // namespace

extern "C"
{
    // A pair of sockets has no addresses; whether the peer is this very machine makes a difference.
    int __wrap_getpeername(int /*s*/, sockaddr* pAddress, socklen_t* pLength)
    {
        const CSocketAddress address(g_bLocalPeer ? INADDR_LOOPBACK : INADDR_LOOPBACK + 1, 1);
        *pLength = std::min(*pLength, address.GetLength());
        memcpy(pAddress, address.GetAddress(), *pLength);
        return 0;
    }
}

// What std::chrono::steady_clock::now() is to the library.
std::chrono::steady_clock::time_point SteadyNow() asm(
    "__wrap__ZNSt6chrono3_V212steady_clock3nowEv");

std::chrono::steady_clock::time_point SteadyNow()
{
    return GetServer().GetNow();
}

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    CFuzzInput input(pData, nSize);
    CConnection connection(GetServer(), input);
    connection.Run(input);
    return 0;
}
