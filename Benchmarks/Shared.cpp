#include "Shared.h"

#include <sys/mman.h>
#include <sys/resource.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <new>
#include <string>

namespace
{

// Bytes without a period; a packet's begin where its number says.
class CPattern
{
public:
    CPattern()
    {
        uint32_t dwState = 1;
        for (unsigned char& b : m_bytes)
        {
            dwState = dwState * 1664525 + 1013904223;
            b = static_cast<unsigned char>(dwState >> 24);
        }
    }
    const unsigned char* Of(uint64_t ullNumber) const
    {
        return m_bytes + ullNumber % STARTS;
    }

private:
    static const size_t STARTS = 4093;
    unsigned char m_bytes[STARTS + 1500];
};

const CPattern PATTERN;

}  // namespace

CShared* MapShared()
{
    void* pMemory = mmap(nullptr, sizeof(CShared), PROT_READ | PROT_WRITE,
                         MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
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

long PeakKiB()
{
    std::ifstream file("/proc/self/status");
    const std::string strName = "VmHWM:";
    for (std::string strLine; std::getline(file, strLine);)
    {
        if (strLine.compare(0, strName.size(), strName) == 0)
        {
            return strtol(strLine.c_str() + strName.size(), nullptr, 10);
        }
    }
    abort();
}

uint64_t StampPacket(void* pData, size_t nSize, uint64_t ullNumber)
{
    const CStamp stamp = {NowNs(), ullNumber};
    memcpy(pData, &stamp, sizeof stamp);
    memcpy(static_cast<char*>(pData) + sizeof stamp, PATTERN.Of(ullNumber), nSize - sizeof stamp);
    return stamp.ullSent;
}

void TakePacket(CShared& shared, int nSubscriber, const void* pData, size_t nSize)
{
    CSubscriberFigures& figures = shared.m_subscribers[nSubscriber];
    figures.m_ullReceived.fetch_add(1, std::memory_order_relaxed);
    CStamp stamp{};
    if (nSize <= sizeof stamp)
    {
        ++figures.m_ullBroken;
        return;
    }
    memcpy(&stamp, pData, sizeof stamp);
    const char* pRest = static_cast<const char*>(pData) + sizeof stamp;
    if (stamp.ullNumber < figures.m_ullNext || nSize != shared.m_dwSize ||
        memcmp(pRest, PATTERN.Of(stamp.ullNumber), nSize - sizeof stamp) != 0)
    {
        ++figures.m_ullBroken;
    }
    figures.m_ullNext = stamp.ullNumber + 1;
    if (!IsAtRate(shared, stamp.ullSent))
    {
        return;
    }
    ++figures.m_ullAtRate;
    if (shared.m_bLatency && figures.m_dwSamples < MAX_SAMPLES)
    {
        shared.m_ppdwLatency[nSubscriber][figures.m_dwSamples++] =
            static_cast<uint32_t>((NowNs() - stamp.ullSent) / 1000);
    }
}
