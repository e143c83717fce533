#include "OspreyServerCore.h"

#include <malloc.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>

#include "OspreyAssert.h"
#include "OspreyServerStream.h"
#include "WXSPChannelHandler.h"

namespace
{

const int CROWD = 256;     // connections
const int CROWD_PART = 8;  // of it one part is left when most have gone

// It can take as long as half a second, and peers choose when it is due.
const std::chrono::minutes HEAP_PAUSE(1);

}  // namespace

COspreyServerListener::COspreyServerListener(CIOEngine* pEngine) : CTCPListener(pEngine) {}

void COspreyServerListener::SetOspreyServer(COspreyServer* pServer)
{
    m_pServer = pServer;
}

void COspreyServerListener::ProcessClientConnect(int s, const CSocketAddress& addrRemote)
{
    m_pServer->ProcessClientConnect(s, addrRemote);
}

void COspreyServerListener::ProcessError(int nError)
{
    m_pServer->ProcessListenerError(nError);
}

void COspreyServerListener::ProcessDestroied()
{
    m_pServer->ProcessListenerDestroy();
}

COspreyServer::COspreyServer(CIOEngine* pEngine, IOspreyServerCallback* pCallback)
    : m_listener(pEngine),
      m_pCallback(pCallback),
      m_handlerHostRequests(this, &COspreyServer::ProcessHostRequests),
      m_wake(pEngine, &m_handlerHostRequests)
{
    m_listener.SetOspreyServer(this);
}

COspreyServer::~COspreyServer()
{
    Destroy();
    delete m_pChannelPacketServer.load();
}

// Host threads may be putting packets while another one starts the server again: the store of an
// earlier run is emptied, never replaced.
bool COspreyServer::CreateStore()
{
    if (m_pChannelPacketServer != nullptr)
    {
        m_pChannelPacketServer.load()->RemoveAll();
        return true;
    }
    m_pChannelPacketServer = new (std::nothrow) CChannelPacketServer;
    return m_pChannelPacketServer != nullptr;
}

Orb_BOOL COspreyServer::Create(const CSocketAddress& addrLocal, int nBacklog)
{
    m_bDestroying = Orb_FALSE;
    m_bEndRequested = false;
    m_ended.Reset();
    GetEngine()->RemoveDeferredHandler(&m_handlerHostRequests);
    if (!CreateStore() || !m_wake.Create() || !m_listener.Create(addrLocal, nBacklog))
    {
        Destroy();
        return Orb_FALSE;
    }
    m_bFlushRequested = false;  // what was asked while nothing could be woken
    return Orb_TRUE;
}

void COspreyServer::Destroy()
{
    OSPREY_ASSERT(m_listStreams.GetSize() == 0);
    m_listener.Destroy();
    DeleteStreams(m_listStreams);
    DeleteStreams(m_listFreeStreams);
}

void COspreyServer::CloseHostRequests()
{
    m_wake.Destroy();
}

void COspreyServer::DeleteStreams(CDLinkedList& list)
{
    while (CDLinkedListNode* pNode = list.RemoveHead())
    {
        delete static_cast<COspreyServerStream*>(pNode);
    }
}

void COspreyServer::ProcessDestroied()
{
    Destroy();
    m_ended.Signal();
}

bool COspreyServer::InitiateDestroy()
{
    return m_listener.InitiateDestroy();
}

COspreyServerStream* COspreyServer::MakeStream()
{
    if (CDLinkedListNode* pFree = m_listFreeStreams.RemoveHead())
    {
        return static_cast<COspreyServerStream*>(pFree);
    }
    COspreyServerStream* pStream = new (std::nothrow) COspreyServerStream(this);
    if (pStream != nullptr && !pStream->Create())
    {
        delete pStream;
        return nullptr;
    }
    return pStream;
}

bool COspreyServer::IsWelcome(const CSocketAddress& addrRemote)
{
    const sockaddr* pAddress = addrRemote.GetAddress();
    if (m_pFilter == nullptr || pAddress->sa_family != AF_INET)
    {
        return m_pFilter == nullptr;
    }
    sockaddr_in address{};
    memcpy(&address, pAddress, sizeof address);
    return m_pFilter->OnAccept(ntohl(address.sin_addr.s_addr), ntohs(address.sin_port),
                               static_cast<unsigned int>(m_listStreams.GetSize())) != Orb_FALSE;
}

void COspreyServer::ProcessClientConnect(int s, const CSocketAddress& addrRemote)
{
    if (!IsWelcome(addrRemote))
    {
        close(s);
        return;
    }
    COspreyServerStream* pStream = MakeStream();
    if (pStream == nullptr)
    {
        close(s);
        return;
    }
    if (!pStream->Attach(s))
    {
        printf("COspreyServerStream %p ProcessClientConnect pStream->Attach error\n",
               static_cast<void*>(pStream));
        close(s);
        delete pStream;
        return;
    }
    ListStream(pStream);
    printf("COspreyServerStream %p ProcessClientConnect m_listStreams.GetSize(): %d\n",
           static_cast<void*>(pStream), m_listStreams.GetSize());
}

void COspreyServer::ListStream(COspreyServerStream* pStream)
{
    const CAutoSectionLock lock(m_csStreams);
    m_listStreams.AddTail(pStream);
    m_nMostStreams = std::max(m_nMostStreams, m_listStreams.GetSize());
}

void COspreyServer::UnlistStream(COspreyServerStream* pStream)
{
    const CAutoSectionLock lock(m_csStreams);
    m_listStreams.Remove(pStream);
}

// When most of very many connections have gone, the pages that they leave empty in the heap go back
// to the system, once a minute at most; it would keep them for good. See malloc_trim(3).
void COspreyServer::GiveBackHeapOfCrowd()
{
    if (m_nMostStreams < CROWD || m_listStreams.GetSize() > m_nMostStreams / CROWD_PART)
    {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now < m_timeHeapGivenBack + HEAP_PAUSE)
    {
        return;
    }
    m_timeHeapGivenBack = now;
    m_nMostStreams = m_listStreams.GetSize();
#ifdef __GLIBC__  // other allocators have no such call
    malloc_trim(0);
#endif
}

void COspreyServer::ProcessListenerError(int nError)
{
    printf("ListenerError: %d\n", nError);
}

void COspreyServer::ProcessListenerDestroy()
{
    if (m_listStreams.GetSize() == 0)
    {
        Destroy();
        ProcessDestroied();
        return;
    }
    m_bDestroying = Orb_TRUE;
    for (CDLinkedListNode* pNode = m_listStreams.GetHead(); pNode != nullptr;
         pNode = pNode->m_pNext)
    {
        static_cast<COspreyServerStream*>(pNode)->InitiateDetach();
    }
}

void COspreyServer::ProcessStreamDetached(COspreyServerStream* pStream)
{
    UnlistStream(pStream);
    printf("COspreyServerStream %p ProcessStreamDetached m_listStreams.GetSize(): %d\n",
           static_cast<void*>(pStream), m_listStreams.GetSize());
    delete pStream;
    GiveBackHeapOfCrowd();
    if (m_bDestroying && m_listStreams.GetSize() <= 0)
    {
        m_bDestroying = Orb_FALSE;
        Destroy();
        ProcessDestroied();
    }
}

Orb_BOOL COspreyServer::TerminateTask(long lTask)
{
    const CAutoSectionLock lock(m_csStreams);
    for (CDLinkedListNode* pNode = m_listStreams.GetHead(); pNode != nullptr;
         pNode = pNode->m_pNext)
    {
        COspreyServerStream* pStream = static_cast<COspreyServerStream*>(pNode);
        if (reinterpret_cast<long>(pStream) == lTask)
        {
            const bool bMarked = pStream->RequestTerminate();
            m_bTerminateRequested = true;
            m_wake.Wake();
            return bMarked ? Orb_TRUE : Orb_FALSE;
        }
    }
    return Orb_TRUE;
}

void COspreyServer::FlushChannelPackets()
{
    if (!m_bFlushRequested.exchange(true))
    {
        m_wake.Wake();
    }
}

void COspreyServer::EndAll()
{
    // A listener that is closed already has no destruction left to run.
    if (!InitiateDestroy())
    {
        ProcessListenerDestroy();
    }
}

bool COspreyServer::EndAllAndWait(unsigned int dwTimeoutMs)
{
    m_bEndRequested = true;
    m_wake.Wake();
    return m_ended.Wait(dwTimeoutMs);
}

void COspreyServer::ProcessWorkerEnded()
{
    m_ended.Signal();
}

void COspreyServer::EndAllNow()
{
    if (m_bEndingNow)
    {
        return;  // called by an OnDisconnect below; what is listed ends anyway
    }
    m_bEndingNow = true;
    m_listener.Destroy();
    while (CDLinkedListNode* pNode = m_listStreams.GetHead())
    {
        COspreyServerStream* pStream = static_cast<COspreyServerStream*>(pNode);
        pStream->InitiateDetach();
        pStream->CompleteDestroy();  // deletes it
    }
    m_bEndingNow = false;
}

int COspreyServer::GetStreamCount()
{
    const CAutoSectionLock lock(m_csStreams);
    return m_listStreams.GetSize();
}

// On the worker, after host threads asked for something.
void COspreyServer::ProcessHostRequests(void* /*pParam*/)
{
    if (m_bTerminateRequested.exchange(false))
    {
        DetachTerminated();
    }
    // Withdrawn first: a packet that is put meanwhile asks anew.
    if (m_bFlushRequested.exchange(false))
    {
        FlushWaitingHandlers();
    }
    if (m_bEndRequested.exchange(false))
    {
        EndAll();
    }
}

void COspreyServer::DetachTerminated()
{
    const CAutoSectionLock lock(m_csStreams);
    for (CDLinkedListNode* pNode = m_listStreams.GetHead(); pNode != nullptr;
         pNode = pNode->m_pNext)
    {
        COspreyServerStream* pStream = static_cast<COspreyServerStream*>(pNode);
        if (pStream->IsTerminateRequested())
        {
            pStream->InitiateDetach();
        }
    }
}

// One that finds nothing stays in the list, one that finds packets leaves it: neither moves
// another.
void COspreyServer::FlushWaitingHandlers()
{
    CDLinkedListNode* pNext = nullptr;
    for (CDLinkedListNode* pNode = m_listWaitingHandlers.GetHead(); pNode != nullptr; pNode = pNext)
    {
        pNext = pNode->m_pNext;
        static_cast<CWXSPChannelHandler*>(pNode)->Flush();
    }
}

unsigned int COspreyServer::OnRequest(COspreyServerStream* pStream, KS_REQUEST eRequest,
                                      void* pRecord)
{
    if (m_pCallback != nullptr)
    {
        m_pCalledAbout = pStream;
        m_pCallback->OnRequest(eRequest, pRecord);
        m_pCalledAbout = nullptr;
    }
    return 0;
}

void COspreyServer::OnDisconnect(COspreyServerStream* pStream, const char* pszName)
{
    if (m_pCallback != nullptr)
    {
        m_pCalledAbout = pStream;
        m_pCallback->OnDisconnect(pszName);
        m_pCalledAbout = nullptr;
    }
}

void COspreyServer::OnTransferEnded(COspreyServerStream* pStream, OSPREY_TRANSFER_END eEnd,
                                    unsigned long long ullContext)
{
    if (m_pObserver != nullptr)
    {
        m_pCalledAbout = pStream;
        m_pObserver->OnTransferEnded(eEnd, ullContext);
        m_pCalledAbout = nullptr;
    }
}
