#ifndef OSPREY_OSPREYSERVERIMPL_H
#define OSPREY_OSPREYSERVERIMPL_H

// Internal header.

#include "OspreyServer.h"
#include "OspreyServerCore.h"
#include "WorkerThread.h"

// The exported server object: the engine, its worker thread and the core.
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

private:
    static void* ThreadProc(void* pThis);

    CIOEngine m_engine;
    CWorkerThread m_thread;
    CStopLoopPipe m_stopPipe;
    COspreyServer m_server;
};

#endif
