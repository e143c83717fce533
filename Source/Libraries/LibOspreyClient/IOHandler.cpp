#include "IOHandler.h"

#include <sys/epoll.h>

namespace
{

// The dispatch under way on this thread; the handler clears itself from it when it is deleted.
struct CDispatch
{
    const CIOHandler* m_pHandler;
    CDispatch* m_pOuter;
};

thread_local CDispatch* t_pDispatch = nullptr;

}  // namespace

CIOHandler::~CIOHandler()
{
    for (CDispatch* pDispatch = t_pDispatch; pDispatch != nullptr; pDispatch = pDispatch->m_pOuter)
    {
        if (pDispatch->m_pHandler == this)
        {
            pDispatch->m_pHandler = nullptr;
        }
    }
}

void CIOHandler::Process(unsigned int dwEvents)
{
    CDispatch dispatch = {this, t_pDispatch};
    t_pDispatch = &dispatch;
    if ((dwEvents & EPOLLIN) != 0)
    {
        ProcessInput();
    }
    if (dispatch.m_pHandler != nullptr && (dwEvents & EPOLLOUT) != 0)
    {
        ProcessOutput();
    }
    if (dispatch.m_pHandler != nullptr && (dwEvents & EPOLLERR) != 0)
    {
        ProcessError();
    }
    if (dispatch.m_pHandler != nullptr && (dwEvents & EPOLLHUP) != 0)
    {
        ProcessHangUp();
    }
    t_pDispatch = dispatch.m_pOuter;
}

CDeferredHandler::~CDeferredHandler()
{
    if (m_pList != nullptr)
    {
        m_pList->Remove(this);
    }
}
