#include "CriticalSection.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace
{

class COpenCriticalSection final : public CCriticalSection
{
public:
    bool TryLock()
    {
        return pthread_mutex_trylock(&m_mutex) == 0;
    }
};

bool IsFreeForOthers(COpenCriticalSection& cs)
{
    bool bFree = false;
    std::thread other(
        [&]
        {
            bFree = cs.TryLock();
            if (bFree)
            {
                cs.Unlock();
            }
        });
    other.join();
    return bFree;
}

TEST(CriticalSection, TheHolderMayLockAgainAndUnlocksAsOften)
{
    COpenCriticalSection cs;
    cs.Lock();
    cs.Lock();
    cs.Unlock();
    EXPECT_FALSE(IsFreeForOthers(cs));
    cs.Unlock();
    EXPECT_TRUE(IsFreeForOthers(cs));
}

TEST(CriticalSection, AutoLockHoldsForTheLengthOfItsBlock)
{
    COpenCriticalSection cs;
    {
        const CAutoSectionLock lock(cs);
        const CAutoSectionLock again(cs);
        EXPECT_FALSE(IsFreeForOthers(cs));
    }
    EXPECT_TRUE(IsFreeForOthers(cs));
}

TEST(CriticalSection, LetsOneThreadInAtATime)
{
    COpenCriticalSection cs;
    int nCount = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&]
            {
                for (int j = 0; j < 5000; ++j)
                {
                    const CAutoSectionLock lock(cs);
                    ++nCount;
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(nCount, 20000);
}

}  // namespace
