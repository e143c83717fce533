#ifndef OSPREY_BENCHMARKS_SHARED_H
#define OSPREY_BENCHMARKS_SHARED_H

// What the processes of one run have in common: memory that was mapped before they were forked.

#include <atomic>
#include <cstddef>
#include <cstdint>

const int MAX_SUBSCRIBERS = 1000;
const uint32_t MAX_SAMPLES = 20000;  // latencies of one subscriber

// The head of every packet; what follows is filler.
struct CStamp
{
    uint64_t ullSent;  // nanoseconds of the monotonic clock
    uint64_t ullNumber;
};

struct alignas(64) CSubscriberFigures
{
    std::atomic<uint64_t> m_ullReceived{0};  // ever
    uint64_t m_ullMeasured = 0;              // of those that are measured
    uint64_t m_ullBroken = 0;                // packets whose content was not as sent
    uint32_t m_dwSamples = 0;
    uint32_t m_pdwLatency[MAX_SAMPLES] = {};  // microseconds
};

struct CShared
{
    std::atomic<int> m_nPort{0};
    // What is put from here to there is measured, in nanoseconds of the monotonic clock.
    std::atomic<uint64_t> m_ullFrom{~0ULL};
    std::atomic<uint64_t> m_ullTo{~0ULL};
    std::atomic<uint64_t> m_ullPut{0};      // packets put in that time
    std::atomic<uint64_t> m_ullRefused{0};  // of those, not taken
    double m_dPublisherCPU = 0;             // seconds, user and system, while measuring
    double m_dSubscriberCPU = 0;
    CSubscriberFigures m_subscribers[MAX_SUBSCRIBERS];
};

inline bool IsMeasured(const CShared& shared, uint64_t ullNs)
{
    return ullNs >= shared.m_ullFrom && ullNs < shared.m_ullTo;
}

// Maps it in its initial state.
CShared* MapShared();

uint64_t NowNs();
// Seconds of processor time that this process has used.
double ProcessCPU();

// A subscriber's packet: counts it and samples its latency.
void TakePacket(CShared& shared, int nSubscriber, const void* pData, size_t nSize);
// A publisher's packet of nSize bytes, more than sizeof(CStamp). Returns the time in the stamp.
uint64_t StampPacket(void* pData, size_t nSize, uint64_t ullNumber);

#endif
