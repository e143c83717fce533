#ifndef OSPREY_CRITICALSECTION_H
#define OSPREY_CRITICALSECTION_H

// Internal header.

#include <pthread.h>

#include <condition_variable>
#include <mutex>

// Recursive mutex: the thread that holds it may lock it again, and unlocks it as often.
class CCriticalSection
{
public:
    CCriticalSection();
    virtual ~CCriticalSection();
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;

    void Lock();
    void Unlock();

protected:
    pthread_mutex_t m_mutex;
};

// Holds a CCriticalSection for the length of a block.
class CAutoSectionLock
{
public:
    explicit CAutoSectionLock(CCriticalSection& cs);
    virtual ~CAutoSectionLock();
    CAutoSectionLock(const CAutoSectionLock&) = delete;
    CAutoSectionLock& operator=(const CAutoSectionLock&) = delete;

protected:
    CCriticalSection* m_pSection;
};

// Something that happens once, and a thread that waits for it.
class CCompletion
{
public:
    CCompletion() = default;
    CCompletion(const CCompletion&) = delete;
    CCompletion& operator=(const CCompletion&) = delete;

    void Reset();
    void Signal();
    void Wait();
    // False when dwTimeoutMs milliseconds (by the monotonic clock) passed first.
    bool Wait(unsigned int dwTimeoutMs);

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_bDone = false;
};

#endif
