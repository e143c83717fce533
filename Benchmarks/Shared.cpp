#include "Shared.h"

#include <sys/mman.h>
#include <sys/resource.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

CShared* MapShared()
{
    void* pMemory =
        mmap(nullptr, sizeof(CShared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (pMemory == MAP_FAILED)
    {
        abort();
    }
    return new (pMemory) CShared;
}

uint64_t NowNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000 + static_cast<uint64_t>(ts.tv_nsec);
}

double ProcessCPU()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& tv)
    { return static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

uint64_t StampPacket(void* pData, size_t nSize, uint64_t ullNumber)
{
    const CStamp stamp = {NowNs(), ullNumber};
    memcpy(pData, &stamp, sizeof stamp);
    // The last byte tells a packet that was cut or mixed up.
    static_cast<unsigned char*>(pData)[nSize - 1] = static_cast<unsigned char>(ullNumber);
    return stamp.ullSent;
}

void TakePacket(CShared& shared, int nSubscriber, const void* pData, size_t nSize)
{
    CSubscriberFigures& figures = shared.m_subscribers[nSubscriber];
    figures.m_ullReceived.fetch_add(1, std::memory_order_relaxed);
    CStamp stamp{};
    memcpy(&stamp, pData, sizeof stamp);
    if (!IsMeasured(shared, stamp.ullSent))
    {
        return;
    }
    ++figures.m_ullMeasured;
    if (static_cast<const unsigned char*>(pData)[nSize - 1] !=
        static_cast<unsigned char>(stamp.ullNumber))
    {
        ++figures.m_ullBroken;
    }
    if (figures.m_dwSamples < MAX_SAMPLES)
    {
        figures.m_pdwLatency[figures.m_dwSamples++] =
            static_cast<uint32_t>((NowNs() - stamp.ullSent) / 1000);
    }
}
