#ifndef OSPREY_BENCHMARKS_SHARED_H
#define OSPREY_BENCHMARKS_SHARED_H

// What the processes of one run have in common: memory that was mapped before they were forked.

#include <atomic>
#include <cstddef>
#include <cstdint>

const int MAX_SUBSCRIBERS = 1000;
const uint32_t MAX_SAMPLES = 10000;  // latencies of one subscriber

// The head of every packet; what follows is a pattern that its number chooses.
struct CStamp
{
    uint64_t ullSent;  // nanoseconds of the monotonic clock
    uint64_t ullNumber;
};

struct alignas(64) CSubscriberFigures
{
    std::atomic<uint64_t> m_ullReceived{0};  // ever
    uint64_t m_ullAtRate = 0;                // of what was put at the rate
    uint64_t m_ullBroken = 0;                // not as sent, or not after the packet before
    uint64_t m_ullNext = 0;                  // the least number that may come
    uint32_t m_dwSamples = 0;
};

struct CProcessFigures
{
    double m_dCPU = 0;    // seconds, user and system, while measuring
    long m_nPeakKiB = 0;  // resident, until the end of the measurement
};

struct CShared
{
    std::atomic<int> m_nPort{0};
    // Packets are put at the rate of the run from here to there, and at a low one before, so that
    // everybody hears something; nanoseconds of the monotonic clock.
    std::atomic<uint64_t> m_ullFrom{~0ULL};
    std::atomic<uint64_t> m_ullTo{~0ULL};
    std::atomic<uint64_t> m_ullPut{0};  // packets put at the rate
    uint32_t m_dwSize = 0;              // bytes of a packet
    bool m_bLatency = false;            // take samples of it
    CProcessFigures m_publisher;
    CProcessFigures m_subscriber;
    CSubscriberFigures m_subscribers[MAX_SUBSCRIBERS];
    uint32_t m_ppdwLatency[MAX_SUBSCRIBERS][MAX_SAMPLES];  // microseconds
};

inline bool IsAtRate(const CShared& shared, uint64_t ullNs)
{
    return ullNs >= shared.m_ullFrom && ullNs < shared.m_ullTo;
}

// Maps it in its initial state. Pages that nobody touches take no memory.
CShared* MapShared();

uint64_t NowNs();
// Seconds of processor time that this process has used.
double ProcessCPU();
// The most that was ever resident in it.
long PeakKiB();

// A subscriber's packet: checks and counts it, and samples its latency.
void TakePacket(CShared& shared, int nSubscriber, const void* pData, size_t nSize);
// A publisher's packet of nSize bytes, more than sizeof(CStamp), 1,500 at most. Returns the time in
// the stamp.
uint64_t StampPacket(void* pData, size_t nSize, uint64_t ullNumber);

#endif
