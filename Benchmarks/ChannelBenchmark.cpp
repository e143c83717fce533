// Live packets to many subscribers on loopback: this library beside ZeroMQ PUB/SUB, with the same
// packets, in turn, round after round.

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "Figures.h"
#include "PublishRun.h"

namespace
{

struct CColumn
{
    std::vector<double> m_listDelivered;
    std::vector<double> m_listPart;
    std::vector<double> m_listPublisherCPU;
    std::vector<double> m_listSubscriberCPU;
    std::vector<double> m_listMedian;
    std::vector<double> m_list99;
    uint64_t m_ullBroken = 0;
};

void Add(CColumn& column, const CResult& result)
{
    column.m_listDelivered.push_back(result.m_dDelivered);
    column.m_listPart.push_back(result.m_dDeliveredPart * 100);
    column.m_listPublisherCPU.push_back(result.m_dPublisherCPU);
    column.m_listSubscriberCPU.push_back(result.m_dSubscriberCPU);
    column.m_listMedian.push_back(result.m_dMedianMs);
    column.m_list99.push_back(result.m_d99Ms);
    column.m_ullBroken += result.m_ullBroken;
}

void Print(const char* pszName, const CColumn& column)
{
    printf("  %-8s %-28s %-24s %-22s %-22s %-24s %-24s\n", pszName,
           Spread(column.m_listDelivered, 0).c_str(), Spread(column.m_listPart, 1).c_str(),
           Spread(column.m_listPublisherCPU, 2).c_str(),
           Spread(column.m_listSubscriberCPU, 2).c_str(), Spread(column.m_listMedian, 2).c_str(),
           Spread(column.m_list99, 2).c_str());
    if (column.m_ullBroken != 0)
    {
        printf("  %-8s %llu packets were not as sent\n", pszName,
               static_cast<unsigned long long>(column.m_ullBroken));
        exit(1);
    }
}

void Measure(const CScenario& scenario, int nRounds)
{
    const ISystem* const ppSystems[] = {&Osprey(), &ZeroMQ()};
    std::map<const ISystem*, CColumn> mapColumns;
    for (int i = 0; i < nRounds; ++i)
    {
        for (const ISystem* pSystem : ppSystems)
        {
            Add(mapColumns[pSystem], Run(*pSystem, scenario));
        }
    }
    printf("\n%d subscribers, %s, %u bytes a packet, %d rounds of %.1f s: median (least to most)\n",
           scenario.m_nSubscribers,
           scenario.m_dwRate == 0 ? "as fast as packets are taken"
                                  : (std::to_string(scenario.m_dwRate) + " packets/s").c_str(),
           scenario.m_dwSize, nRounds, scenario.m_dSeconds);
    printf("  %-8s %-28s %-24s %-22s %-22s %-24s %-24s\n", "", "delivered packets/s", "delivered %",
           "publisher CPU s/1e6", "subscriber CPU s/1e6", "latency median ms", "latency 99 % ms");
    for (const ISystem* pSystem : ppSystems)
    {
        Print(pSystem->GetName(), mapColumns[pSystem]);
    }
    fflush(stdout);
}

}  // namespace

// ChannelBenchmark [ROUNDS [SECONDS [SUBSCRIBERS...]]]
int main(int nArguments, char** ppszArguments)
{
    const int nRounds = nArguments > 1 ? atoi(ppszArguments[1]) : 5;
    CScenario scenario;
    scenario.m_dSeconds = nArguments > 2 ? atof(ppszArguments[2]) : 2;
    std::vector<int> listSubscribers = {1, 10, 100};
    if (nArguments > 3)
    {
        listSubscribers.clear();
        for (int i = 3; i < nArguments; ++i)
        {
            listSubscribers.push_back(atoi(ppszArguments[i]));
        }
    }
    for (const int nSubscribers : listSubscribers)
    {
        scenario.m_nSubscribers = nSubscribers;
        for (const unsigned int dwRate : {1000U, 10000U, 0U})
        {
            scenario.m_dwRate = dwRate;
            Measure(scenario, nRounds);
        }
    }
    return 0;
}
