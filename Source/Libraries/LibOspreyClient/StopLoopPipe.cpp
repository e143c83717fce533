#include "StopLoopPipe.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

CStopLoopPipe::CStopLoopPipe(CIOEngine* pEngine) : m_pEngine(pEngine) {}

CStopLoopPipe::~CStopLoopPipe()
{
    Destroy();
}

bool CStopLoopPipe::Create()
{
    int hEnds[2] = {-1, -1};
    if (pipe2(hEnds, O_CLOEXEC) == 0)
    {
        m_hRead = hEnds[0];
        m_hWrite = hEnds[1];
    }
    if (!m_pEngine->AddIOHandler(m_hRead, EPOLLIN | EPOLLHUP | static_cast<int>(EPOLLET), this))
    {
        Destroy();
        return false;
    }
    return true;
}

void CStopLoopPipe::Destroy()
{
    if (m_hRead >= 0)
    {
        m_pEngine->RemoveIOHandler(m_hRead, EPOLLIN, this);
    }
    if (m_hWrite >= 0)
    {
        close(m_hWrite);
        m_hWrite = -1;
    }
    if (m_hRead >= 0)
    {
        close(m_hRead);
        m_hRead = -1;
    }
}

void CStopLoopPipe::WriteStopLoop()
{
    if (m_hWrite < 0)
    {
        return;
    }
    while (write(m_hWrite, "StopLoopPipe", 12) < 0 && (errno == EAGAIN || errno == EINTR))
    {
    }
}

CWakeEvent::CWakeEvent(CIOEngine* pEngine, CDeferredHandler* pHandler)
    : m_pEngine(pEngine), m_pHandler(pHandler)
{
}

CWakeEvent::~CWakeEvent()
{
    Destroy();
}

bool CWakeEvent::Create()
{
    const CAutoSectionLock lock(m_cs);
    m_hEvent = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (!m_pEngine->AddIOHandler(m_hEvent, EPOLLIN | static_cast<int>(EPOLLET), this))
    {
        Destroy();
        return false;
    }
    return true;
}

void CWakeEvent::Destroy()
{
    const CAutoSectionLock lock(m_cs);
    if (m_hEvent >= 0)
    {
        m_pEngine->RemoveIOHandler(m_hEvent, EPOLLIN, this);
        close(m_hEvent);
        m_hEvent = -1;
    }
}

void CWakeEvent::Wake()
{
    // A full counter (EAGAIN) means that a wake-up is under way already.
    const CAutoSectionLock lock(m_cs);
    if (m_hEvent >= 0)
    {
        eventfd_write(m_hEvent, 1);
    }
}

void CWakeEvent::ProcessInput()
{
    // Clear first, then queue: a request made meanwhile gives a new edge.
    eventfd_t ullRequests = 0;
    eventfd_read(m_hEvent, &ullRequests);
    m_pEngine->AddDeferredHandler(m_pHandler);
}
