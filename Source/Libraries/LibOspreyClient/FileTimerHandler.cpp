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
    m_nReserved = 0;
    Clear();
    while (CDLinkedListNode* pNode = m_listSpare.RemoveHead())
    {
        delete static_cast<CFileTimerHandler*>(pNode);
    }
}

bool CFileTimers::Reserve(int nTimers)
{
    m_nReserved = nTimers;
    while (m_listSpare.GetSize() < nTimers)
    {
        CFileTimerHandler* pTimer = new (std::nothrow) CFileTimerHandler(m_pCallback, 0);
        if (pTimer == nullptr)
        {
            return false;
        }
        m_listSpare.AddTail(pTimer);
    }
    // The engine's heap keeps the room of its first timers.
    CFileTimerHandler* pFirst = static_cast<CFileTimerHandler*>(m_listSpare.GetHead());
    return m_pEngine->AddTimerHandler(pFirst) && m_pEngine->RemoveTimerHandler(pFirst);
}

CFileTimerHandler* CFileTimers::Take()
{
    if (CDLinkedListNode* pSpare = m_listSpare.RemoveHead())
    {
        return static_cast<CFileTimerHandler*>(pSpare);
    }
    return new (std::nothrow) CFileTimerHandler(m_pCallback, 0);
}

bool CFileTimers::Arm(CFileTimerHandler*& pSlot, unsigned int dwID, unsigned int dwIntervalMs,
                      bool bPeriodic)
{
    pSlot = Take();
    if (pSlot == nullptr)
    {
        return false;
    }
    pSlot->SetID(dwID);
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
        if (m_listSpare.GetSize() < m_nReserved)
        {
            m_listSpare.AddTail(pNode);
        }
        else
        {
            delete static_cast<CFileTimerHandler*>(pNode);
        }
    }
}
