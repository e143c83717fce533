#include "FileTimerHandler.h"

#include <new>

CFileTimerHandler::CFileTimerHandler(IFileTimerCallback* pCallback, unsigned int dwID)
    : m_pCallback(pCallback), m_dwID(dwID)
{
}

void CFileTimerHandler::Process()
{
    if (m_pCallback != nullptr)
    {
        m_pCallback->OnTimeout(m_dwID);
    }
}

CFileTimers::CFileTimers(CIOEngine* pEngine, IFileTimerCallback* pCallback)
    : m_pEngine(pEngine),
      m_pCallback(pCallback),
      m_handlerDropped(this, &CFileTimers::ProcessDropped)
{
}

CFileTimers::~CFileTimers()
{
    Clear();
}

bool CFileTimers::Arm(CFileTimerHandler*& pSlot, unsigned int dwID, unsigned int dwIntervalMs,
                      bool bPeriodic)
{
    pSlot = new (std::nothrow) CFileTimerHandler(m_pCallback, dwID);
    if (pSlot == nullptr)
    {
        return false;
    }
    pSlot->m_dwInterval = dwIntervalMs;
    pSlot->m_bPeriodic = bPeriodic;
    if (!m_pEngine->AddTimerHandler(pSlot))
    {
        delete pSlot;
        pSlot = nullptr;
        return false;
    }
    return true;
}

void CFileTimers::Restart(CFileTimerHandler* pTimer)
{
    m_pEngine->RestartTimerHandler(pTimer);
}

void CFileTimers::Drop(CFileTimerHandler*& pSlot)
{
    if (pSlot != nullptr)
    {
        m_pEngine->RemoveTimerHandler(pSlot);
        m_listDropped.AddTail(pSlot);
        m_pEngine->AddDeferredHandler(&m_handlerDropped);
        pSlot = nullptr;
    }
}

void CFileTimers::ProcessDropped(void* /*pParam*/)
{
    Clear();
}

void CFileTimers::Clear()
{
    m_pEngine->RemoveDeferredHandler(&m_handlerDropped);
    while (CDLinkedListNode* pNode = m_listDropped.RemoveHead())
    {
        delete static_cast<CFileTimerHandler*>(pNode);
    }
}
