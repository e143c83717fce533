#ifndef OSPREY_BENCHMARKS_PUBLISHRUN_H
#define OSPREY_BENCHMARKS_PUBLISHRUN_H

#include <vector>

#include "Peer.h"

struct CScenario
{
    int m_nSubscribers = 1;
    unsigned int m_dwRate = 1000;  // packets a second; 0: as fast as they are taken
    unsigned int m_dwSize = 1316;  // bytes of a packet
    double m_dSeconds = 2;         // measured, after a warm-up
};

struct CResult
{
    double m_dPut = 0;            // packets a second
    double m_dDelivered = 0;      // packets a second, to all subscribers together
    double m_dDeliveredPart = 0;  // of what was put, times the subscribers
    double m_dPublisherCPU = 0;   // seconds for a million deliveries
    double m_dSubscriberCPU = 0;  // the same
    double m_dMedianMs = 0;       // latency
    double m_d99Ms = 0;
    uint64_t m_ullBroken = 0;
};

// One run: a publisher process and a process with all subscribers, forked from here; measured once
// every subscriber has received something.
CResult Run(const ISystem& system, const CScenario& scenario);

#endif
