// Live packets to many subscribers on loopback: one run of one system. Prints its figures as JSON.
//
//   ChannelBenchmark Osprey|ZeroMQ|NNG SUBSCRIBERS RATE SECONDS [FLUSH [latency]]
//
// RATE is in packets a second; 0: as fast as they are taken. FLUSH: after so many packets they are
// sent at once; 0: never. latency: it is sampled too.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "PublishRun.h"

namespace
{

const ISystem* FindSystem(const std::string& strName)
{
    for (const ISystem* pSystem : {&Osprey(), &ZeroMQ(), &NNG()})
    {
        if (strName == pSystem->GetName())
        {
            return pSystem;
        }
    }
    return nullptr;
}

void Print(const CResult& result)
{
    printf(
        "{\"delivered\": %.1f, \"part\": %.6f, \"publisher_us\": %.4f, \"subscriber_us\": %.4f, ",
        result.m_dDelivered, result.m_dDeliveredPart, result.m_dPublisherCPU,
        result.m_dSubscriberCPU);
    printf(
        "\"publisher_kib\": %ld, \"subscriber_kib\": %ld, \"median_ms\": %.3f, \"p99_ms\": %.3f}\n",
        result.m_nPublisherKiB, result.m_nSubscriberKiB, result.m_dMedianMs, result.m_d99Ms);
}

}  // namespace

int main(int nArguments, char** ppszArguments)
{
    const ISystem* const pSystem = nArguments >= 5 ? FindSystem(ppszArguments[1]) : nullptr;
    if (pSystem == nullptr)
    {
        fputs("usage: ChannelBenchmark SYSTEM SUBSCRIBERS RATE SECONDS [FLUSH [latency]]\n",
              stderr);
        return 2;
    }
    CScenario scenario;
    scenario.m_nSubscribers = atoi(ppszArguments[2]);
    scenario.m_dwRate = static_cast<unsigned int>(atoi(ppszArguments[3]));
    scenario.m_dSeconds = atof(ppszArguments[4]);
    scenario.m_dwFlush = nArguments > 5 ? static_cast<unsigned int>(atoi(ppszArguments[5])) : 0;
    scenario.m_bLatency = nArguments > 6;
    const CResult result = Run(*pSystem, scenario);
    if (result.m_ullBroken != 0)
    {
        fprintf(stderr, "%s: %llu packets were not as sent\n", pSystem->GetName(),
                static_cast<unsigned long long>(result.m_ullBroken));
        return 1;
    }
    Print(result);
    return 0;
}
