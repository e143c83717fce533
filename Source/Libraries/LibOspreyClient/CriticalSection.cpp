#include "CriticalSection.h"

#include <chrono>

CCriticalSection::CCriticalSection()
{
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_mutex, &attr);
}

CCriticalSection::~CCriticalSection()
{
    pthread_mutex_destroy(&m_mutex);
}

void CCriticalSection::Lock()
{
    pthread_mutex_lock(&m_mutex);
}

void CCriticalSection::Unlock()
{
    pthread_mutex_unlock(&m_mutex);
}

CAutoSectionLock::CAutoSectionLock(CCriticalSection& cs) : m_pSection(&cs)
{
    m_pSection->Lock();
}

CAutoSectionLock::~CAutoSectionLock()
{
    m_pSection->Unlock();
}

void CCompletion::Reset()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bDone = false;
}

void CCompletion::Signal()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bDone = true;
    m_condition.notify_all();
}

void CCompletion::Wait()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_condition.wait(lock, [this] { return m_bDone; });
}

bool CCompletion::Wait(unsigned int dwTimeoutMs)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_condition.wait_for(lock, std::chrono::milliseconds(dwTimeoutMs),
                                [this] { return m_bDone; });
}
