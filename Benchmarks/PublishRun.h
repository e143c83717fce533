#ifndef OSPREY_BENCHMARKS_PUBLISHRUN_H
#define OSPREY_BENCHMARKS_PUBLISHRUN_H

#include "Peer.h"

struct CScenario
{
    int m_nSubscribers = 1;
    unsigned int m_dwRate = 1000;  // packets a second; 0: as fast as they are taken
    unsigned int m_dwSize = 1400;  // bytes of a packet
    double m_dSeconds = 1;         // measured, after all have heard something and 0.3 s at the rate
    unsigned int m_dwFlush = 0;    // packets after which they are to be sent at once; 0: never
    bool m_bLatency = false;       // sample it
};

struct CResult
{
    double m_dDelivered = 0;  // packets a second, to all subscribers together
    double m_dDeliveredPart =
        0;                       // of all that was put, times the subscribers, 0.4 s after the last
    double m_dPublisherCPU = 0;  // microseconds a delivery
    double m_dSubscriberCPU = 0;  // the same
    long m_nPublisherKiB = 0;     // most that was resident
    long m_nSubscriberKiB = 0;    // the same, all subscribers together
    double m_dMedianMs = 0;       // latency
    double m_d99Ms = 0;
    uint64_t m_ullBroken = 0;
};

// One run: a publisher process and a process with all subscribers, forked from here; measured once
// every subscriber has received something.
CResult Run(const ISystem& system, const CScenario& scenario);

#endif
