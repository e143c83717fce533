#include "TCPStream.h"

#include <cerrno>
#include <cstdio>

#include "OspreyAssert.h"

namespace
{

const int STREAM_EVENTS = EPOLLIN | EPOLLOUT | static_cast<int>(EPOLLET);

// What one call of DoSend or DoReceive may move before everybody else has a turn: as much in the
// 1 KiB buffers of a client as in any others.
const int PASS_BUFFERS = 256;
const long long PASS_BYTES = 256LL * 1024;

}  // namespace

CTCPStream::CTCPStream(CIOEngine* pEngine)
    : m_pEngine(pEngine),
      m_handlerDeferredIO(this, &CTCPStream::ProcessDeferredIO),
      m_handlerDestroy(this, &CTCPStream::InternalProcessDestroied)
{
}

CTCPStream::~CTCPStream()
{
    Destroy();
}

bool CTCPStream::Create(const CSocketAddress& addrLocal)
{
    OSPREY_ASSERT(!m_sock.IsValid());
    Reset();
    if (!m_sock.CreateBound(addrLocal) || !m_sock.SetNonBlocking() ||
        !m_pEngine->AddIOHandler(m_sock.m_hSocket, STREAM_EVENTS, this))
    {
        Destroy();
        return false;
    }
    return true;
}

bool CTCPStream::Connect(const CSocketAddress& addrRemote)
{
    return m_sock.Connect(addrRemote);
}

bool CTCPStream::Attach(SOCKET s, bool bConnected)
{
    OSPREY_ASSERT(!m_sock.IsValid());
    Reset();
    m_sock.m_hSocket = s;
    if (!m_sock.SetNonBlocking() || !m_pEngine->AddIOHandler(s, STREAM_EVENTS, this))
    {
        m_sock.m_hSocket = -1;
        return false;
    }
    m_bConnected = bConnected;
    return true;
}

// A destroy that an earlier engine never ran is withdrawn, or it would hit the new socket.
void CTCPStream::Reset()
{
    m_pEngine->RemoveDeferredHandler(&m_handlerDestroy);
    m_bPendingDestroy = false;
    m_bPeerClosed = false;
    ++m_dwIncarnation;
}

bool CTCPStream::IsIdle() const
{
    return m_bPendingDestroy || !m_sock.IsValid();
}

bool CTCPStream::Send(CTCPStreamBuffer* pBuffer)
{
    if (m_bPendingDestroy || pBuffer->GetDataSize() < 1)
    {
        return false;
    }
    m_listSend.AddTail(pBuffer);
    if (m_bCanSend)
    {
        m_pEngine->AddDeferredHandler(&m_handlerDeferredIO);
    }
    return true;
}

bool CTCPStream::Receive(CTCPStreamBuffer* pBuffer)
{
    if (m_bPendingDestroy || pBuffer->GetFreeSize() < 1)
    {
        return false;
    }
    m_listReceive.AddTail(pBuffer);
    if (m_bCanReceive)
    {
        m_pEngine->AddDeferredHandler(&m_handlerDeferredIO);
    }
    return true;
}

bool CTCPStream::InitiateDestroy()
{
    if (IsIdle())
    {
        return false;
    }
    m_bPendingDestroy = true;
    m_pEngine->AddDeferredHandler(&m_handlerDestroy);
    return true;
}

void CTCPStream::Destroy()
{
    OSPREY_ASSERT(!m_bPendingDestroy);
    m_bConnected = false;
    m_bCanSend = m_bCanReceive = true;
    ++m_dwIncarnation;
    if (m_sock.IsValid())
    {
        m_pEngine->RemoveIOHandler(m_sock.m_hSocket, STREAM_EVENTS, this);
    }
    m_pEngine->RemoveDeferredHandler(&m_handlerDeferredIO);
    m_sock.Close();
    while (m_listSend.RemoveHead() != nullptr)
    {
    }
    while (m_listReceive.RemoveHead() != nullptr)
    {
    }
}

void CTCPStream::Abandon()
{
    if (m_sock.IsValid())
    {
        m_pEngine->RemoveIOHandler(m_sock.m_hSocket, STREAM_EVENTS, this);
        m_sock.m_hSocket = -1;
    }
}

void CTCPStream::ProcessInput()
{
    puts("CTCPStream::ProcessInput 1\r");
    if (IsIdle())
    {
        return;
    }
    // The edge of a close that a deferred receive has already met still comes: it is no news.
    m_bCanReceive = !m_bPeerClosed;
    DoReceive();
}

void CTCPStream::ProcessOutput()
{
    puts("CTCPStream::ProcessOutput 1\r");
    if (IsIdle())
    {
        return;
    }
    if (!m_bConnected && !FinishConnect())
    {
        return;
    }
    m_bCanSend = true;
    DoSend();
}

// The outcome of an outgoing connect. False when there is nothing to send on.
bool CTCPStream::FinishConnect()
{
    int nError = m_sock.GetSocketError();
    if (nError == 0 && m_sock.IsConnectedToItself())
    {
        nError = ECONNREFUSED;  // nobody else listens there
    }
    if (nError != 0)
    {
        puts("CTCPStream::ProcessOutputError 1\r");
        InternalProcessNetworkError(nError);
        return false;
    }
    CSocketAddress addrRemote;
    if (!m_sock.GetPeerAddress(addrRemote) && errno == ENOTCONN)
    {
        // A socket that was registered but not connected yet reports itself writable.
        return false;
    }
    const unsigned int dwIncarnation = m_dwIncarnation;
    m_bConnected = true;
    ProcessConnected();
    return !IsIdle() && dwIncarnation == m_dwIncarnation;
}

void CTCPStream::ProcessError()
{
    if (IsIdle())
    {
        return;
    }
    puts("CTCPStream::ProcessError 1\r");
    InternalProcessNetworkError(m_sock.GetSocketError());
}

void CTCPStream::ProcessDeferredIO(void* /*pParam*/)
{
    if (IsIdle())
    {
        return;
    }
    const unsigned int dwIncarnation = m_dwIncarnation;
    if (m_bCanSend)
    {
        DoSend();
    }
    if (!IsIdle() && dwIncarnation == m_dwIncarnation && m_bCanReceive)
    {
        DoReceive();
    }
}

// False when a callback ended the connection, replaced it, or asked the loop to stop.
bool CTCPStream::MayGoOn(unsigned int dwIncarnation) const
{
    return !IsIdle() && dwIncarnation == m_dwIncarnation && !m_pEngine->IsStopping();
}

// Readiness that is left behind gives no new edge: come back for it in the next pass.
void CTCPStream::ContinueLater(unsigned int dwIncarnation, const CSLinkedList& listWaiting)
{
    if (!IsIdle() && dwIncarnation == m_dwIncarnation && listWaiting.GetHead() != nullptr)
    {
        m_pEngine->AddNextPassHandler(&m_handlerDeferredIO);
    }
}

void CTCPStream::DoSend()
{
    const unsigned int dwIncarnation = m_dwIncarnation;
    long long llBytes = 0;
    int nBuffers = 0;
    while (m_bCanSend && m_listSend.GetHead() != nullptr)
    {
        CTCPStreamBuffer* pBuffer = static_cast<CTCPStreamBuffer*>(m_listSend.GetHead());
        const int nBefore = pBuffer->GetDataSize();
        if (!SendHead())
        {
            return;
        }
        llBytes += nBefore - pBuffer->GetDataSize();
        if (pBuffer->GetDataSize() == 0)
        {
            ++nBuffers;
            m_listSend.RemoveHead();
            ProcessDataSent(pBuffer);
            if (!MayGoOn(dwIncarnation))
            {
                ContinueLater(dwIncarnation, m_listSend);
                return;
            }
        }
        if (nBuffers >= PASS_BUFFERS || llBytes >= PASS_BYTES)
        {
            ContinueLater(dwIncarnation, m_listSend);
            return;
        }
    }
}

// One send() from the head buffer. False when the loop must end: not writable, closed or failed.
bool CTCPStream::SendHead()
{
    CTCPStreamBuffer* pBuffer = static_cast<CTCPStreamBuffer*>(m_listSend.GetHead());
    const int nFlags = MSG_NOSIGNAL | (pBuffer->m_bMoreFollows ? MSG_MORE : 0);
    const ssize_t nSent = send(m_sock.m_hSocket, pBuffer->GetData(0),
                               static_cast<size_t>(pBuffer->GetDataSize()), nFlags);
    if (nSent > 0)
    {
        return pBuffer->RemoveData(static_cast<int>(nSent));
    }
    const int nError = errno;
    if (nSent < 0 && nError == EINTR)
    {
        return true;
    }
    m_bCanSend = false;
    if (nSent == 0)
    {
        InternalProcessDisconnected();
    }
    else if (nError != EAGAIN)
    {
        puts("CTCPStream::SendError 1\r");
        InternalProcessNetworkError(nError);
    }
    return false;
}

void CTCPStream::DoReceive()
{
    puts("CTCPStream::DoReceive 1\r");
    const unsigned int dwIncarnation = m_dwIncarnation;
    long long llBytes = 0;
    int nBuffers = 0;
    while (m_bCanReceive && m_listReceive.GetHead() != nullptr)
    {
        if (m_pEngine->IsStopping())
        {
            ContinueLater(dwIncarnation, m_listReceive);
            return;
        }
        int nReceived = 0;
        if (!ReceiveIntoHead(nReceived))
        {
            return;
        }
        if (nReceived == 0)
        {
            continue;  // interrupted
        }
        llBytes += nReceived;
        ++nBuffers;
        ProcessDataReceived(static_cast<CTCPStreamBuffer*>(m_listReceive.RemoveHead()));
        if (!MayGoOn(dwIncarnation) || nBuffers >= PASS_BUFFERS || llBytes >= PASS_BYTES)
        {
            ContinueLater(dwIncarnation, m_listReceive);
            return;
        }
    }
}

// One recv() into the head buffer. False when the loop must end: nothing there, closed or failed.
bool CTCPStream::ReceiveIntoHead(int& nReceived)
{
    CTCPStreamBuffer* pBuffer = static_cast<CTCPStreamBuffer*>(m_listReceive.GetHead());
    const ssize_t nResult =
        recv(m_sock.m_hSocket, pBuffer->GetFree(0), static_cast<size_t>(pBuffer->GetFreeSize()), 0);
    const int nError = errno;
    if (nResult > 0)
    {
        nReceived = static_cast<int>(nResult);
        return pBuffer->AppendData(nReceived);
    }
    if (nResult < 0 && nError == EINTR)
    {
        return true;
    }
    m_bCanReceive = false;
    if (nResult == 0)
    {
        m_bPeerClosed = true;
        InternalProcessDisconnected();
    }
    else if (nError != EAGAIN)
    {
        puts("CTCPStream::ReceiveError 1\r");
        InternalProcessNetworkError(nError);
    }
    return false;
}

void CTCPStream::InternalProcessDestroied(void* /*pParam*/)
{
    m_bPendingDestroy = false;
    Destroy();
    ProcessDestroied();
}

void CTCPStream::CompleteDestroy()
{
    if (m_bPendingDestroy)
    {
        m_pEngine->RemoveDeferredHandler(&m_handlerDestroy);
        InternalProcessDestroied(nullptr);
    }
}

void CTCPStream::InternalProcessDisconnected()
{
    m_pEngine->RemoveDeferredHandler(&m_handlerDeferredIO);
    ProcessDisconnected();
}

void CTCPStream::InternalProcessNetworkError(int nError)
{
    m_pEngine->RemoveDeferredHandler(&m_handlerDeferredIO);
    ProcessNetworkError(nError);
}
