#include "WorkerThread.h"

#include <new>

namespace
{

// The worker object that this thread runs for. The handle that pthread_create stores would do as
// well, were it sure to be stored before the new thread asks.
thread_local const CWorkerThread* t_pWorker = nullptr;

}  // namespace

CWorkerThread::~CWorkerThread()
{
    delete m_pThread.load();
}

bool CWorkerThread::Start(CThreadProc pfnProc, void* pParam)
{
    if (IsStarted())
    {
        return false;
    }
    pthread_t* pThread = new (std::nothrow) pthread_t;
    if (pThread == nullptr)
    {
        return false;
    }
    m_pfnProc = pfnProc;
    m_pParam = pParam;
    m_pThread = pThread;
    if (pthread_create(pThread, nullptr, &CWorkerThread::Main, this) != 0)
    {
        m_pThread = nullptr;
        delete pThread;
        return false;
    }
    return true;
}

void* CWorkerThread::Main(void* pThis)
{
    const CWorkerThread* pWorker = static_cast<CWorkerThread*>(pThis);
    t_pWorker = pWorker;
    // The procedure may delete the worker object: nothing of it is touched afterwards.
    return pWorker->m_pfnProc(pWorker->m_pParam);
}

void CWorkerThread::Stop(CIOEngine& engine, CStopLoopPipe& pipe)
{
    pthread_t* pThread = m_pThread;
    if (pThread == nullptr)
    {
        return;
    }
    engine.StopLoop(1);
    pipe.WriteStopLoop();
    pthread_join(*pThread, nullptr);
    m_pThread = nullptr;
    delete pThread;
}

void CWorkerThread::Detach()
{
    pthread_detach(pthread_self());
    delete m_pThread.exchange(nullptr);
}

bool CWorkerThread::IsCurrent() const
{
    return t_pWorker == this;
}
