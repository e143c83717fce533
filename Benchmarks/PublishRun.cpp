#include "PublishRun.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>

#include "Figures.h"

namespace
{

const unsigned int WARM_UP_RATE = 100;  // packets a second, until everybody listens
const uint64_t TICK_NS = 1000000;       // packets are put once a millisecond
const uint64_t DRAIN_NS = 500000000;    // for what is still on its way at the end
const uint64_t DEADLINE_NS = 60000000000;

// A child of the run. It is told by single bytes: 'b' begin, 'e' end of the measurement, 'q' quit.
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
            _exit(0);
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

// Keeps the processor time between 'b' and 'e'.
void MeasureCPU(char cWhat, double& dCPU)
{
    dCPU = ProcessCPU() - (cWhat == 'e' ? dCPU : 0);
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

    // On a thread of its own, until m_bStop.
    void Work()
    {
        uint64_t ullBegun = NowNs();
        uint64_t ullPut = 0;
        bool bMeasured = false;
        while (!m_bStop)
        {
            const uint64_t ullNow = NowNs();
            if (bMeasured != IsMeasured(m_shared, ullNow))
            {
                bMeasured = !bMeasured;
                ullBegun = ullNow;
                ullPut = 0;
            }
            const unsigned int dwRate = bMeasured ? m_scenario.m_dwRate : WARM_UP_RATE;
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

    std::atomic<bool> m_bStop{false};

private:
    void Put()
    {
        const uint64_t ullSent = StampPacket(m_pPacket, m_scenario.m_dwSize, m_ullNumber++);
        const bool bTaken = m_publisher.Publish(m_pPacket, m_scenario.m_dwSize);
        if (IsMeasured(m_shared, ullSent))
        {
            m_shared.m_ullPut.fetch_add(1, std::memory_order_relaxed);
            m_shared.m_ullRefused.fetch_add(bTaken ? 0 : 1, std::memory_order_relaxed);
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
    CChild::Obey(nControl, [&](char cWhat) { MeasureCPU(cWhat, shared.m_dPublisherCPU); });
    putter.m_bStop = true;
    thread.join();
}

void SubscribersMain(const ISystem& system, const CScenario& scenario, CShared& shared,
                     int nControl)
{
    const auto pSubscribers = system.MakeSubscribers(shared, scenario.m_nSubscribers);
    CChild::Obey(nControl, [&](char cWhat) { MeasureCPU(cWhat, shared.m_dSubscriberCPU); });
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

CResult Evaluate(const CScenario& scenario, const CShared& shared)
{
    const double dSeconds = scenario.m_dSeconds;
    CResult result;
    double dDelivered = 0;
    std::vector<double> listLatencies;
    for (int i = 0; i < scenario.m_nSubscribers; ++i)
    {
        const CSubscriberFigures& figures = shared.m_subscribers[i];
        dDelivered += static_cast<double>(figures.m_ullMeasured);
        result.m_ullBroken += figures.m_ullBroken;
        listLatencies.insert(listLatencies.end(), figures.m_pdwLatency,
                             figures.m_pdwLatency + figures.m_dwSamples);
    }
    const double dPut = static_cast<double>(shared.m_ullPut);
    result.m_dPut = dPut / dSeconds;
    result.m_dDelivered = dDelivered / dSeconds;
    result.m_dDeliveredPart = dDelivered / (dPut * scenario.m_nSubscribers);
    result.m_dPublisherCPU = shared.m_dPublisherCPU / dDelivered * 1e6;
    result.m_dSubscriberCPU = shared.m_dSubscriberCPU / dDelivered * 1e6;
    result.m_dMedianMs = Quantile(listLatencies, 0.5) / 1000;
    result.m_d99Ms = Quantile(listLatencies, 0.99) / 1000;
    return result;
}

}  // namespace

CResult Run(const ISystem& system, const CScenario& scenario)
{
    CShared* const pShared = MapShared();
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
        publisher.Tell('b');
        subscribers.Tell('b');
        const uint64_t ullBegun = NowNs();
        const uint64_t ullEnd = ullBegun + static_cast<uint64_t>(scenario.m_dSeconds * 1e9);
        pShared->m_ullTo = ullEnd;
        pShared->m_ullFrom = ullBegun;
        SleepUntil(ullEnd + DRAIN_NS);
        publisher.Tell('e');
        subscribers.Tell('e');
        result = Evaluate(scenario, *pShared);
    }
    munmap(pShared, sizeof *pShared);
    return result;
}
