#ifndef OSPREY_OSPREYSERVERIMPL_H
#define OSPREY_OSPREYSERVERIMPL_H

// Internal header.

#include "OspreyServer.h"
#include "OspreyServerCore.h"
#include "WorkerThread.h"

// The exported server object: the engine, its worker thread and the core.
//
// Thread: any, but for Release. What starts the worker, joins it or works in its place does so one
//         at a time.
class COspreyServerImpl final : public IOspreyServer
{
public:
    explicit COspreyServerImpl(IOspreyServerCallback* pCallback);
    ~COspreyServerImpl() override;

    Orb_BOOL Startup(unsigned int dwIP, unsigned short wPort) override;
    Orb_BOOL Shutdown() override;
    void Release() override;
    Orb_BOOL TerminateTask(long lTask) override;
    unsigned int PutChannelPacket(unsigned int dwChannel, void* pData,
                                  unsigned int dwSize) override;
    float GetChannelMaxBufferUsage() override;
    Orb_BOOL EndAllConnections(unsigned int dwTimeoutMs) override;
    void FlushChannelPackets() override;
    Orb_BOOL SetConnectionFilter(IOspreyConnectionFilter* pFilter) override;
    long GetCallbackTask() override;
    Orb_BOOL SetTransferObserver(IOspreyTransferObserver* pObserver) override;

private:
    template <typename TSet>
    Orb_BOOL WhileStopped(TSet fnSet);
    static void* ThreadProc(void* pThis);

    Orb_BOOL ShutdownLocked();

    CCriticalSection m_csRun;  // Startup, Shutdown and the end without a worker; never the worker
    CIOEngine m_engine;
    CWorkerThread m_thread;
    CStopLoopPipe m_stopPipe;
    COspreyServer m_server;
};

#endif
