#include "HostileServer.h"

#include <unistd.h>

#include <cerrno>
#include <memory>

#include "ReplyCheck.h"

namespace
{

const int MOST_TIMES = 8;
const unsigned int MOST_PIECES = 64;  // what is left then comes at once

bool g_bUnanswered = false;  // the pair at hand passes for a connection that is not made yet

}  // namespace

// A thread that says when it has ended.
struct CHostileServer::CWorker
{
    void* (*m_pfnMain)(void*);
    void* m_pParam;
    CHostileServer* m_pServer;
};

CHostileServer::CHostileServer(CFuzzInput& input)
    : m_cRule(input.TakeByte()),
      m_dwEvent(input.TakeBelow(EVENT_COUNT)),
      m_dwEventBefore(input.TakeByte()),
      m_nTimeLeft(input.TakeByte() % MOST_TIMES),
      m_pieces(m_cRule, input.TakeRest()),
      m_threads(g_callPthreadCreate,
                [this](pthread_t* pThread, const pthread_attr_t* pAttr, void* (*pfnMain)(void*),
                       void* pParam) { return StartWorker(pThread, pAttr, pfnMain, pParam); }),
      m_sockets(g_callSocket, [this](int, int, int) { return MakeSocket(); }),
      m_connects(g_callConnect, [this](int, const sockaddr*, socklen_t) { return Connect(); }),
      m_receives(g_callRecv, [this](int s, void* pData, size_t nSize, int nFlags)
                 { return Receive(s, pData, nSize, nFlags); }),
      m_waits(g_callEpollWait,
              [this](int hEpoll, epoll_event* pEvents, int nMaxEvents, int nTimeoutMs)
              { return Wait(hEpoll, pEvents, nMaxEvents, nTimeoutMs); })
{
    sem_init(&m_semaphore, 0, 0);
}

CHostileServer::~CHostileServer()
{
    ClosePeer();
    sem_destroy(&m_semaphore);
}

void* CHostileServer::RunWorker(void* pWorker)
{
    const std::unique_ptr<CWorker> pOwned(static_cast<CWorker*>(pWorker));
    CHostileServer* pServer = pOwned->m_pServer;
    void* pResult = pOwned->m_pfnMain(pOwned->m_pParam);
    pServer->m_eWanted = MOVE_NONE;
    sem_post(&pServer->m_semaphore);
    return pResult;
}

int CHostileServer::StartWorker(pthread_t* pThread, const pthread_attr_t* pAttr,
                                void* (*pfnMain)(void*), void* pParam)
{
    return g_callPthreadCreate.Real(pThread, pAttr, &CHostileServer::RunWorker,
                                    new CWorker{pfnMain, pParam, this});
}

// One end of a pair: the other one is this server's.
int CHostileServer::MakeSocket()
{
    int hEnds[2] = {-1, -1};
    ClosePeer();
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, hEnds) == 0, "there are sockets");
    m_hPeer = hEnds[0];
    g_bUnanswered = false;
    return hEnds[1];
}

int CHostileServer::Connect()
{
    if (m_dwEvent == EVENT_REFUSED)
    {
        m_dwEvent = EVENT_NONE;
        errno = ECONNREFUSED;
        return -1;
    }
    m_bUnanswered = m_dwEvent == EVENT_UNANSWERED;
    g_bUnanswered = m_bUnanswered;
    m_dwEvent = m_bUnanswered ? EVENT_NONE : m_dwEvent;
    errno = EINPROGRESS;
    return m_bUnanswered ? -1 : 0;
}

ssize_t CHostileServer::Receive(int s, void* pData, size_t nSize, int nFlags)
{
    if (m_bLost)
    {
        m_bLost = false;
        errno = ECONNRESET;
        return -1;
    }
    return g_callRecv.Real(s, pData, nSize, nFlags);
}

// A client that has something to do does it; one that would sleep is moved.
int CHostileServer::Wait(int hEpoll, epoll_event* pEvents, int nMaxEvents, int nTimeoutMs)
{
    TakeRequests();  // first: that makes room, which is an event
    const int nReady = g_callEpollWait.Real(hEpoll, pEvents, nMaxEvents, 0);
    if (nReady != 0)
    {
        return nReady;
    }
    if (nTimeoutMs == 0)
    {
        m_clock.Advance(1);  // what is due in this millisecond expires in the next
        return 0;
    }
    const MOVE eMove = Move(nTimeoutMs);
    if (eMove == MOVE_MADE)
    {
        return g_callEpollWait.Real(hEpoll, pEvents, nMaxEvents, 0);
    }
    m_eWanted = eMove;
    sem_post(&m_semaphore);
    return g_callEpollWait.Real(hEpoll, pEvents, nMaxEvents, -1);
}

CHostileServer::MOVE CHostileServer::Move(int nTimeoutMs)
{
    if (m_bUnanswered)
    {
        m_bUnanswered = false;
        ++m_nTimeLeft;
        return PassTime(nTimeoutMs) ? MOVE_MADE : MOVE_NONE;
    }
    if (m_dwEvent != EVENT_NONE && m_dwPieces >= m_dwEventBefore % MOST_PIECES)
    {
        const MOVE eMove = PlayEvent(nTimeoutMs);
        m_dwEvent = EVENT_NONE;
        return eMove;
    }
    if (SendPiece() || PassTime(nTimeoutMs))
    {
        return MOVE_MADE;
    }
    if (m_hPeer < 0)
    {
        return MOVE_NONE;
    }
    ClosePeer();
    return MOVE_MADE;
}

CHostileServer::MOVE CHostileServer::PlayEvent(int nTimeoutMs)
{
    switch (m_dwEvent)
    {
        case EVENT_CLOSED:
            ClosePeer();
            return MOVE_MADE;
        case EVENT_TIME:
            ++m_nTimeLeft;
            PassTime(nTimeoutMs);
            return MOVE_MADE;
        case EVENT_STOP:
            m_nTimeLeft += MOST_TIMES;  // a clean-up ends with its timer
            return MOVE_STOP;
        case EVENT_LOST:
            m_bLost = m_hPeer >= 0 && write(m_hPeer, "!", 1) == 1;
            return MOVE_MADE;
        default:
            return MOVE_MADE;
    }
}

// As long as the client wanted to sleep, and a moment more.
bool CHostileServer::PassTime(int nTimeoutMs)
{
    if (nTimeoutMs < 0 || m_nTimeLeft <= 0)
    {
        return false;
    }
    --m_nTimeLeft;
    m_clock.Advance(nTimeoutMs + 1LL);
    return true;
}

bool CHostileServer::SendPiece()
{
    if (m_hPeer < 0 || (m_piece.empty() && m_pieces.IsEmpty()))
    {
        return false;
    }
    if (m_piece.empty())
    {
        m_piece = m_dwPieces < MOST_PIECES ? m_pieces.Take() : m_pieces.TakeRest();
        ++m_dwPieces;
    }
    const ssize_t nSent =
        g_callSend.Real(m_hPeer, m_piece.data(), m_piece.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (nSent <= 0)
    {
        ClosePeer();
        return true;
    }
    m_piece.remove_prefix(static_cast<size_t>(nSent));
    return true;
}

void CHostileServer::TakeRequests()
{
    char part[4096];
    ssize_t nReceived = 0;
    while (m_hPeer >= 0 &&
           (nReceived = g_callRecv.Real(m_hPeer, part, sizeof part, MSG_DONTWAIT)) > 0)
    {
        m_strRequests.append(part, static_cast<size_t>(nReceived));
    }
}

// A packet that was cut off is not continued on the next connection.
void CHostileServer::ClosePeer()
{
    TakeRequests();
    RequireRequests(m_strRequests);
    m_strRequests.clear();
    m_piece = {};
    if (m_hPeer >= 0)
    {
        close(m_hPeer);
        m_hPeer = -1;
    }
}

void CHostileServer::WaitForEnd(const std::function<void()>& fnStop)
{
    for (;;)
    {
        while (sem_wait(&m_semaphore) != 0)
        {
        }
        if (m_eWanted != MOVE_STOP)
        {
            return;
        }
        fnStop();
    }
}

extern "C"
{
    int __real_getpeername(int s, sockaddr* pAddress, socklen_t* pLength);

    // A pair of sockets has no address to be bound to ...
    int __wrap_bind(int /*s*/, const sockaddr* /*pAddress*/, socklen_t /*nLength*/)
    {
        return 0;
    }

    // ... and is connected from the first.
    int __wrap_getpeername(int s, sockaddr* pAddress, socklen_t* pLength)
    {
        if (g_bUnanswered)
        {
            errno = ENOTCONN;
            return -1;
        }
        return __real_getpeername(s, pAddress, pLength);
    }
}
