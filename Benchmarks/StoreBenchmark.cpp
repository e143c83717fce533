// The packet store alone: one thread puts packets of 1,400 bytes, others read them as the channel
// handlers do, in batches. Prints, as JSON, what a put takes and for how long it holds locks, in
// nanoseconds, and what the putting thread allocates. As many puts go before, to warm up.
//
//   StoreBenchmark READERS PUTS

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "ChannelPacketServer.h"

namespace
{

const unsigned int CHANNEL = 1;
const int BATCH_PACKETS = 32;

typedef std::chrono::steady_clock CClock;

long long ElapsedNs(CClock::time_point from)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(CClock::now() - from).count();
}

// Of the thread that puts.
thread_local int g_nLocks = 0;
thread_local long long g_llHeldNs = 0;
thread_local long long g_llAllocations = 0;
thread_local CClock::time_point g_locked;

}  // namespace

extern "C"
{
    int __real_pthread_mutex_lock(pthread_mutex_t* pMutex);
    int __real_pthread_mutex_unlock(pthread_mutex_t* pMutex);
    void* __real_malloc(size_t nSize);

    int __wrap_pthread_mutex_lock(pthread_mutex_t* pMutex)
    {
        const int nResult = __real_pthread_mutex_lock(pMutex);
        if (g_nLocks++ == 0)
        {
            g_locked = CClock::now();
        }
        return nResult;
    }

    int __wrap_pthread_mutex_unlock(pthread_mutex_t* pMutex)
    {
        if (--g_nLocks == 0)
        {
            g_llHeldNs += ElapsedNs(g_locked);
        }
        return __real_pthread_mutex_unlock(pMutex);
    }

    void* __wrap_malloc(size_t nSize)
    {
        ++g_llAllocations;
        return __real_malloc(nSize);
    }
}

void* operator new(size_t nSize)
{
    void* p = malloc(nSize);
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    return p;
}

void* operator new(size_t nSize, const std::nothrow_t& /*unused*/) noexcept
{
    return malloc(nSize);
}

void operator delete(void* p) noexcept
{
    free(p);
}

void operator delete(void* p, size_t /*nSize*/) noexcept
{
    free(p);
}

namespace
{

// Reads until it is told to stop; a batch after the other, and a pause where nothing is new.
void Read(CChannelPacketServer& store, long lTask, const std::atomic<bool>& bStop)
{
    std::vector<CChannelPacketItem*> batch;
    batch.reserve(BATCH_PACKETS);
    while (!bStop)
    {
        while (batch.size() < BATCH_PACKETS)
        {
            CChannelPacketItem* pItem = store.GetChannelPacket(CHANNEL, lTask, 0);
            if (pItem == nullptr)
            {
                break;
            }
            batch.push_back(pItem);
        }
        if (batch.empty())
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        for (CChannelPacketItem* pItem : batch)
        {
            pItem->Release();
        }
        batch.clear();
    }
    store.RemoveChannel(CHANNEL, lTask);
}

struct CFigures
{
    std::vector<long long> m_putNs;
    std::vector<long long> m_heldNs;
    long long m_llAllocations = 0;
};

CFigures Put(CChannelPacketServer& store, int nPuts)
{
    std::string strPacket(1400, 'x');
    CFigures figures;
    figures.m_putNs.reserve(static_cast<size_t>(nPuts));
    figures.m_heldNs.reserve(static_cast<size_t>(nPuts));
    for (int i = -nPuts; i < nPuts; ++i)
    {
        if (i == 0)
        {
            g_llAllocations = 0;
        }
        g_llHeldNs = 0;
        const CClock::time_point begun = CClock::now();
        if (store.PutChannelPacket(CHANNEL, strPacket.data(),
                                   static_cast<unsigned int>(strPacket.size())) != 0)
        {
            fputs("a packet was refused\n", stderr);
            exit(1);
        }
        if (i >= 0)
        {
            figures.m_putNs.push_back(ElapsedNs(begun));
            figures.m_heldNs.push_back(g_llHeldNs);
        }
    }
    figures.m_llAllocations = g_llAllocations;
    return figures;
}

void Print(const char* pszName, std::vector<long long> samples)
{
    std::sort(samples.begin(), samples.end());
    printf("\"%s_ns\": %lld, \"%s_p99_ns\": %lld, ", pszName, samples[samples.size() / 2], pszName,
           samples[samples.size() * 99 / 100]);
}

}  // namespace

int main(int nArguments, char** ppszArguments)
{
    const int nReaders = nArguments == 3 ? atoi(ppszArguments[1]) : 0;
    const int nPuts = nArguments == 3 ? atoi(ppszArguments[2]) : 0;
    if (nReaders < 1 || nPuts < 1)
    {
        fputs("usage: StoreBenchmark READERS PUTS\n", stderr);
        return 2;
    }
    CChannelPacketServer store;
    std::atomic<bool> bStop{false};
    std::vector<std::thread> readers;
    readers.reserve(static_cast<size_t>(nReaders));
    for (int i = 0; i < nReaders; ++i)
    {
        store.AddChannel(CHANNEL, i + 1, 0);
        readers.emplace_back([&store, &bStop, i] { Read(store, i + 1, bStop); });
    }
    const CFigures figures = Put(store, nPuts);
    bStop = true;
    for (std::thread& reader : readers)
    {
        reader.join();
    }
    printf("{");
    Print("put", figures.m_putNs);
    Print("lock", figures.m_heldNs);
    printf("\"allocations\": %lld}\n", figures.m_llAllocations);
    return 0;
}
