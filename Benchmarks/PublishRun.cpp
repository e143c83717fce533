#include "PublishRun.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

namespace
{

const unsigned int WARM_UP_RATE = 100;  // packets a second, until everybody listens
const uint64_t TICK_NS = 1000000;       // packets are put once a millisecond
const uint64_t RAMP_NS = 300000000;     // at the full rate before measuring
const uint64_t DRAIN_NS = 400000000;    // for what is still on its way at the end
const uint64_t DEADLINE_NS = 60000000000;

// A child of the run. It is told by single bytes: 'b' begin, 'e' end of the measurement, 'q' quit.
// It ends as it stands: how a system closes is not measured, and NNG 1.5 may hang there.
class CChild
{
public:
    explicit CChild(const std::function<void(int)>& fnMain)
    {
        int pnEnds[2] = {-1, -1};
        int pnAnswers[2] = {-1, -1};
        if (pipe(pnEnds) != 0 || pipe(pnAnswers) != 0)
        {
            abort();
        }
        m_nProcess = fork();
        if (m_nProcess == 0)
        {
            // The library's trace lines are not what is measured.
            dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
            close(pnEnds[1]);
            m_nAnswers = pnAnswers[1];
            s_nAnswers = pnAnswers[1];
            fnMain(pnEnds[0]);
        }
        close(pnEnds[0]);
        close(pnAnswers[1]);
        m_nControl = pnEnds[1];
        m_nAnswers = pnAnswers[0];
    }
    ~CChild()
    {
        Tell('q');
        close(m_nControl);
        close(m_nAnswers);
        waitpid(m_nProcess, nullptr, 0);
    }
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;

    // Returns when the child has done it.
    void Tell(char cWhat) const
    {
        char cAnswer = 0;
        if (write(m_nControl, &cWhat, 1) == 1)
        {
            static_cast<void>(read(m_nAnswers, &cAnswer, 1) == 1);
        }
    }

    // In the child: obeys until 'q'.
    static void Obey(int nControl, const std::function<void(char)>& fnDo)
    {
        char cWhat = 0;
        while (read(nControl, &cWhat, 1) == 1 && cWhat != 'q')
        {
            fnDo(cWhat);
            static_cast<void>(write(s_nAnswers, &cWhat, 1) == 1);
        }
    }

private:
    static int s_nAnswers;
    pid_t m_nProcess = -1;
    int m_nControl = -1;
    int m_nAnswers = -1;
};

int CChild::s_nAnswers = -1;

// Keeps the processor time between 'b' and 'e', and the memory until then.
void Account(char cWhat, CProcessFigures& figures)
{
    figures.m_dCPU = ProcessCPU() - (cWhat == 'e' ? figures.m_dCPU : 0);
    figures.m_nPeakKiB = PeakKiB();
}

void SleepUntil(uint64_t ullNs)
{
    const timespec ts = {static_cast<time_t>(ullNs / 1000000000),
                         static_cast<long>(ullNs % 1000000000)};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
}

class CPutter
{
public:
    CPutter(IPublisher& publisher, const CScenario& scenario, CShared& shared)
        : m_publisher(publisher), m_scenario(scenario), m_shared(shared)
    {
    }

    // On a thread of its own, until the end of the measurement.
    void Work()
    {
        uint64_t ullBegun = NowNs();
        uint64_t ullPut = 0;
        unsigned int dwRate = WARM_UP_RATE;
        for (uint64_t ullNow = ullBegun; ullNow < m_shared.m_ullTo; ullNow = NowNs())
        {
            if (dwRate != m_scenario.m_dwRate && ullNow >= m_shared.m_ullFrom)
            {
                dwRate = m_scenario.m_dwRate;
                ullBegun = ullNow;
                ullPut = 0;
            }
            if (dwRate == 0)
            {
                Put();
                continue;
            }
            const uint64_t ullDue = (ullNow - ullBegun) * dwRate / 1000000000;
            for (; ullPut < ullDue; ++ullPut)
            {
                Put();
            }
            SleepUntil(ullNow - ullNow % TICK_NS + TICK_NS);
        }
    }

private:
    void Put()
    {
        const uint64_t ullSent = StampPacket(m_pPacket, m_scenario.m_dwSize, m_ullNumber++);
        m_publisher.Publish(m_pPacket, m_scenario.m_dwSize);
        if (m_scenario.m_dwFlush != 0 && m_ullNumber % m_scenario.m_dwFlush == 0)
        {
            m_publisher.Flush();
        }
        if (IsAtRate(m_shared, ullSent))
        {
            m_shared.m_ullPut.fetch_add(1, std::memory_order_relaxed);
        }
    }

    IPublisher& m_publisher;
    const CScenario& m_scenario;
    CShared& m_shared;
    uint64_t m_ullNumber = 0;
    char m_pPacket[1500] = {};
};

void PublisherMain(const ISystem& system, const CScenario& scenario, CShared& shared, int nControl)
{
    const std::unique_ptr<IPublisher> pPublisher = system.MakePublisher();
    CPutter putter(*pPublisher, scenario, shared);
    std::thread thread([&putter] { putter.Work(); });
    shared.m_nPort = pPublisher->GetPort();
    CChild::Obey(nControl, [&](char cWhat) { Account(cWhat, shared.m_publisher); });
    _exit(0);
}

void SubscribersMain(const ISystem& system, const CScenario& scenario, CShared& shared,
                     int nControl)
{
    static const auto pSubscribers = system.MakeSubscribers(shared, scenario.m_nSubscribers);
    CChild::Obey(nControl, [&](char cWhat) { Account(cWhat, shared.m_subscriber); });
    _exit(0);
}

void WaitFor(const char* pszWhat, const std::function<bool()>& fnCondition)
{
    const uint64_t ullDeadline = NowNs() + DEADLINE_NS;
    while (!fnCondition())
    {
        if (NowNs() > ullDeadline)
        {
            fprintf(stderr, "waited in vain: %s\n", pszWhat);
            exit(1);
        }
        SleepUntil(NowNs() + TICK_NS);
    }
}

uint64_t CountReceived(const CScenario& scenario, const CShared& shared)
{
    uint64_t ullReceived = 0;
    for (int i = 0; i < scenario.m_nSubscribers; ++i)
    {
        ullReceived += shared.m_subscribers[i].m_ullReceived.load();
    }
    return ullReceived;
}

// Milliseconds below which the given part (0 to 1) of all samples lies.
double Quantile(std::vector<uint32_t>& listSamples, double dPart)
{
    if (listSamples.empty())
    {
        return 0;
    }
    const auto nIndex = lround(dPart * static_cast<double>(listSamples.size() - 1));
    std::nth_element(listSamples.begin(), listSamples.begin() + nIndex, listSamples.end());
    return listSamples[static_cast<size_t>(nIndex)] / 1000.0;
}

// What was delivered in the measured time decides all but the part, which is of everything put.
CResult Evaluate(const CScenario& scenario, const CShared& shared, uint64_t ullDelivered)
{
    uint64_t ullOfThosePut = 0;
    CResult result;
    std::vector<uint32_t> listLatencies;
    for (int i = 0; i < scenario.m_nSubscribers; ++i)
    {
        const CSubscriberFigures& figures = shared.m_subscribers[i];
        ullOfThosePut += figures.m_ullAtRate;
        result.m_ullBroken += figures.m_ullBroken;
        listLatencies.insert(listLatencies.end(), shared.m_ppdwLatency[i],
                             shared.m_ppdwLatency[i] + figures.m_dwSamples);
    }
    result.m_dDelivered = static_cast<double>(ullDelivered) / scenario.m_dSeconds;
    const auto dDelivered = static_cast<double>(std::max<uint64_t>(ullDelivered, 1));
    result.m_dDeliveredPart = static_cast<double>(ullOfThosePut) /
                              (static_cast<double>(shared.m_ullPut) * scenario.m_nSubscribers);
    result.m_dPublisherCPU = shared.m_publisher.m_dCPU / dDelivered * 1e6;
    result.m_dSubscriberCPU = shared.m_subscriber.m_dCPU / dDelivered * 1e6;
    result.m_nPublisherKiB = shared.m_publisher.m_nPeakKiB;
    result.m_nSubscriberKiB = shared.m_subscriber.m_nPeakKiB;
    result.m_dMedianMs = Quantile(listLatencies, 0.5);
    result.m_d99Ms = Quantile(listLatencies, 0.99);
    return result;
}

// Returns what was delivered in the measured time.
uint64_t Measure(const CScenario& scenario, CShared& shared, const CChild& publisher,
                 const CChild& subscribers)
{
    const uint64_t ullBegin = NowNs();
    const uint64_t ullTo = ullBegin + RAMP_NS + static_cast<uint64_t>(scenario.m_dSeconds * 1e9);
    shared.m_ullTo = ullTo;
    shared.m_ullFrom = ullBegin;
    SleepUntil(ullBegin + RAMP_NS);
    publisher.Tell('b');
    subscribers.Tell('b');
    const uint64_t ullBefore = CountReceived(scenario, shared);
    SleepUntil(ullTo);
    const uint64_t ullAfter = CountReceived(scenario, shared);
    publisher.Tell('e');
    subscribers.Tell('e');
    SleepUntil(ullTo + DRAIN_NS);
    return ullAfter - ullBefore;
}

}  // namespace

CResult Run(const ISystem& system, const CScenario& scenario)
{
    CShared* const pShared = MapShared();
    pShared->m_dwSize = scenario.m_dwSize;
    pShared->m_bLatency = scenario.m_bLatency;
    CResult result;
    {
        const CChild publisher([&](int nControl)
                               { PublisherMain(system, scenario, *pShared, nControl); });
        WaitFor("a port", [&] { return pShared->m_nPort != 0; });
        const CChild subscribers([&](int nControl)
                                 { SubscribersMain(system, scenario, *pShared, nControl); });
        for (int i = 0; i < scenario.m_nSubscribers; ++i)
        {
            WaitFor("a first packet",
                    [&] { return pShared->m_subscribers[i].m_ullReceived.load() > 1; });
        }
        const uint64_t ullDelivered = Measure(scenario, *pShared, publisher, subscribers);
        result = Evaluate(scenario, *pShared, ullDelivered);
    }
    munmap(pShared, sizeof *pShared);
    return result;
}
