#include "OspreyServerImpl.h"

namespace
{

const int MAX_EVENTS = 1024;
const int BACKLOG = 10;

// The store's answer for a channel that nobody reads.
const unsigned int PUT_NO_READER = 5;

}  // namespace

COspreyServerImpl::COspreyServerImpl(IOspreyServerCallback* pCallback)
    : m_stopPipe(&m_engine), m_server(&m_engine, pCallback)
{
}

COspreyServerImpl::~COspreyServerImpl() = default;

Orb_BOOL COspreyServerImpl::Startup(unsigned int /*dwIP*/, unsigned short wPort)
{
    if (m_thread.IsCurrent())
    {
        return Orb_FALSE;
    }
    const CAutoSectionLock lock(m_csRun);
    // Connections of an earlier run belong to an engine that is gone: Release will insist on them.
    if (m_thread.IsStarted() || m_server.GetStreamCount() != 0)
    {
        return Orb_FALSE;
    }
    m_server.Destroy();  // the listener that an earlier Shutdown left open
    m_engine.ClearStop();
    if (m_engine.Create(MAX_EVENTS) && m_stopPipe.Create() &&
        m_server.Create(CSocketAddress(INADDR_ANY, wPort), BACKLOG) &&
        m_thread.Start(&COspreyServerImpl::ThreadProc, this))
    {
        return Orb_TRUE;
    }
    m_server.Destroy();
    ShutdownLocked();
    return Orb_FALSE;
}

void* COspreyServerImpl::ThreadProc(void* pThis)
{
    COspreyServerImpl* pServer = static_cast<COspreyServerImpl*>(pThis);
    pServer->m_engine.RunLoop();
    pServer->m_server.ProcessWorkerEnded();
    return nullptr;
}

Orb_BOOL COspreyServerImpl::Shutdown()
{
    if (m_thread.IsCurrent())
    {
        m_engine.StopLoop(1);
        return Orb_FALSE;
    }
    const CAutoSectionLock lock(m_csRun);
    return ShutdownLocked();
}

Orb_BOOL COspreyServerImpl::ShutdownLocked()
{
    m_thread.Stop(m_engine, m_stopPipe);
    m_server.InitiateDestroy();
    m_server.CloseHostRequests();
    m_stopPipe.Destroy();
    m_engine.Destroy();
    return Orb_TRUE;
}

void COspreyServerImpl::Release()
{
    if (m_server.IsEndingNow() || (m_thread.IsStarted() && !Shutdown()))
    {
        return;
    }
    delete this;
}

Orb_BOOL COspreyServerImpl::TerminateTask(long lTask)
{
    return m_server.TerminateTask(lTask);
}

unsigned int COspreyServerImpl::PutChannelPacket(unsigned int dwChannel, void* pData,
                                                 unsigned int dwSize)
{
    CChannelPacketServer* pStore = m_server.GetChannelPacketServer();
    return pStore != nullptr ? pStore->PutChannelPacket(dwChannel, pData, dwSize) : PUT_NO_READER;
}

// Hosts of this version expect 0.0, whatever the store measures.
float COspreyServerImpl::GetChannelMaxBufferUsage()
{
    CChannelPacketServer* pStore = m_server.GetChannelPacketServer();
    if (pStore != nullptr)
    {
        pStore->GetMaxBufferUsage();
    }
    return 0.0F;
}

Orb_BOOL COspreyServerImpl::EndAllConnections(unsigned int dwTimeoutMs)
{
    if (m_thread.IsCurrent())
    {
        m_server.EndAll();
        return Orb_TRUE;
    }
    if (m_thread.IsStarted() && !m_engine.IsStopping())
    {
        const bool bEnded = m_server.EndAllAndWait(dwTimeoutMs);
        if (!m_engine.IsStopping())
        {
            return bEnded ? Orb_TRUE : Orb_FALSE;
        }
    }
    // The worker is gone, or was asked to end: it answers no more.
    {
        const CAutoSectionLock lock(m_csRun);
        if (!m_thread.IsStarted() || m_engine.IsStopping())
        {
            ShutdownLocked();
            m_server.EndAllNow();
            return Orb_TRUE;
        }
    }
    return EndAllConnections(dwTimeoutMs);  // somebody has started it meanwhile
}

void COspreyServerImpl::FlushChannelPackets()
{
    m_server.FlushChannelPackets();
}

// Does it unless the worker runs, which reads what is set without a lock.
template <typename TSet>
Orb_BOOL COspreyServerImpl::WhileStopped(TSet fnSet)
{
    if (m_thread.IsCurrent())
    {
        return Orb_FALSE;
    }
    const CAutoSectionLock lock(m_csRun);
    if (m_thread.IsStarted())
    {
        return Orb_FALSE;
    }
    fnSet();
    return Orb_TRUE;
}

Orb_BOOL COspreyServerImpl::SetConnectionFilter(IOspreyConnectionFilter* pFilter)
{
    return WhileStopped([&] { m_server.SetConnectionFilter(pFilter); });
}

Orb_BOOL COspreyServerImpl::SetTransferObserver(IOspreyTransferObserver* pObserver)
{
    return WhileStopped([&] { m_server.SetTransferObserver(pObserver); });
}

long COspreyServerImpl::GetCallbackTask()
{
    return m_thread.IsCurrent() || m_server.IsEndingNow() ? m_server.GetCallbackTask() : 0;
}
