// Live channels over a link: what comes must be what was put, in order, and must come again soon
// after the link has.

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>

#include "Events.h"
#include "FarServer.h"
#include "Runs.h"

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

const unsigned int CHANNELS = 2;
const unsigned int CONNECT_TIMEOUT_MS = 2000;
const int ENOUGH = 50;  // packets
// The server keeps 2,048 packets of a channel: more than come while any connection outlives a cut.
const milliseconds PUT_PAUSE(40);

// A packet that says what it is: channel, number, and as many bytes as the number asks for; few
// enough that what a cut holds up is through the link in a moment.
std::string Packet(unsigned int dwChannel, unsigned int dwNumber)
{
    std::string strPacket(sizeof dwChannel + sizeof dwNumber, '\0');
    memcpy(&strPacket[0], &dwChannel, sizeof dwChannel);
    memcpy(&strPacket[sizeof dwChannel], &dwNumber, sizeof dwNumber);
    strPacket.resize(strPacket.size() + (dwNumber % 20 == 0 ? 1400 : dwNumber * 37 % 211),
                     static_cast<char>(static_cast<unsigned char>(dwChannel * 59 + dwNumber)));
    return strPacket;
}

// Puts packets into all channels until the end of the block.
class CPutter
{
public:
    explicit CPutter(const CFarServer& server)
        : m_thread(
              [this, &server]
              {
                  while (!m_bStop)
                  {
                      Put(server);
                      std::this_thread::sleep_for(PUT_PAUSE);
                  }
              })
    {
    }
    ~CPutter()
    {
        m_bStop = true;
        m_thread.join();
    }
    CPutter(const CPutter&) = delete;
    CPutter& operator=(const CPutter&) = delete;

    // The number that the next packet of channel 1 has.
    unsigned int GetNext() const
    {
        return m_dwNumbers[0];
    }

private:
    // A packet of a channel that nobody has opened yet is put again.
    void Put(const CFarServer& server)
    {
        for (unsigned int i = 0; i < CHANNELS; ++i)
        {
            std::string strPacket = Packet(i + 1, m_dwNumbers[i]);
            if (server->PutChannelPacket(i + 1, strPacket.data(),
                                         static_cast<unsigned int>(strPacket.size())) == 0)
            {
                ++m_dwNumbers[i];
            }
        }
    }

    std::atomic<unsigned int> m_dwNumbers[CHANNELS] = {};
    std::atomic<bool> m_bStop{false};
    std::thread m_thread;
};

// Events: "connected", "failed", "lost", "packet", "damaged", "out of order", "gap".
class CReader final : public IWXSPChannelClientCallback
{
public:
    explicit CReader(CEvents& events) : m_events(events) {}

    void OnConnected(unsigned int /*dwUserParam*/) override
    {
        m_events.Add("connected");
        memset(m_dwNext, 0, sizeof m_dwNext);
    }
    void OnConnectFailed(unsigned int /*dwUserParam*/) override
    {
        m_events.Add("failed");
    }
    void OnDisconnected(unsigned int /*dwUserParam*/) override
    {
        m_events.Add("lost");
    }
    void OnChannelPacket(unsigned int /*dwUserParam*/, unsigned int dwChannel, void* pData,
                         unsigned int dwSize) override
    {
        const std::string strPacket(static_cast<const char*>(pData), dwSize);
        unsigned int dwNumber = 0;
        if (dwSize < 8 || dwChannel < 1 || dwChannel > CHANNELS)
        {
            m_events.Add("damaged");
            return;
        }
        memcpy(&dwNumber, &strPacket[4], sizeof dwNumber);
        unsigned int& dwNext = m_dwNext[dwChannel - 1];
        if (strPacket != Packet(dwChannel, dwNumber))
        {
            m_events.Add("damaged");
        }
        else if (dwNext != 0 && dwNumber != dwNext)
        {
            m_events.Add(dwNumber < dwNext ? "out of order" : "gap");
        }
        dwNext = dwNumber + 1;
        m_dwNewest = m_dwNext[0];
        m_events.Add("packet");
    }

    // The number after that of the last packet of channel 1.
    unsigned int GetNext() const
    {
        return m_dwNewest;
    }

private:
    CEvents& m_events;
    unsigned int m_dwNext[CHANNELS] = {};
    std::atomic<unsigned int> m_dwNewest{0};
};

class CChannelRun
{
public:
    CChannelRun(const CSetting& setting, CLink& link) : m_setting(setting), m_link(link) {}

    COutcome Run()
    {
        const CFarServer server(m_link, nullptr);
        const CPutter putter(server);
        IWXSPChannelClient* pClient = CreateWXSPChannelClient(&m_reader, 1);
        unsigned int dwChannels[CHANNELS] = {1, 2};
        const CTime timeStart = Now();
        pClient->Connect(0, FAR_ADDRESS, PORT, CONNECT_TIMEOUT_MS, CHANNELS, dwChannels);
        WaitForPackets(ENOUGH, "at first");
        if (m_setting.IsForGood())
        {
            WatchTheEnd();
        }
        else
        {
            if (m_setting.IsCut())
            {
                CutAndJoin(putter);
            }
            WaitForPackets(m_events.Count("packet") + ENOUGH, "after all");
        }
        m_outcome.m_dSeconds = SecondsBetween(timeStart, Now());
        ForbidIdleFaults(m_setting, m_link, m_outcome);
        pClient->Release();
        Describe();
        return m_outcome;
    }

private:
    void WaitForPackets(int nPackets, const char* pszWhen)
    {
        m_outcome.Forbid(!m_events.WaitUntil(Now() + seconds(60),
                                             [&] { return m_events.Count("packet") >= nPackets; }),
                         std::string("packets do not come ") + pszWhen);
    }

    // From the cut on, when the far end's kernel no longer has the connection.
    void WatchServer()
    {
        if (m_outcome.m_dServerKnew < 0 && !m_link.HasConnection())
        {
            m_outcome.m_dServerKnew = SecondsBetween(m_timeCut, Now());
        }
    }

    // What counts is a packet that was put when the link was whole again: a connection that the
    // server has given up may still deliver older ones.
    void CutAndJoin(const CPutter& putter)
    {
        m_link.Cut();
        m_timeCut = Now();
        m_events.WaitUntil(m_timeCut + seconds(m_setting.m_nCutSeconds),
                           [&]
                           {
                               WatchServer();
                               return false;
                           });
        m_link.Join();
        const CTime timeJoin = Now();
        const unsigned int dwFresh = putter.GetNext();
        const bool bBack = m_events.WaitUntil(timeJoin + seconds(WATCH_SECONDS),
                                              [&] { return m_reader.GetNext() > dwFresh; });
        if (bBack)
        {
            m_outcome.m_dBack = SecondsBetween(timeJoin, Now());
        }
        m_outcome.Forbid(!bBack, "no packet came any more");
        const double dMost =
            (m_setting.m_nLoss > 0 ? MUST_BE_BACK_LOSSY_SECONDS : MUST_BE_BACK_SECONDS) +
            0.004 * m_setting.m_nDelayMs + m_setting.m_nSlackSeconds;
        m_outcome.Forbid(m_outcome.m_dBack > dMost, "packets come again too long after the link");
        if (m_setting.m_nCutSeconds > MUST_KNOW_SECONDS)
        {
            ForbidServerUnaware();
        }
    }

    void WatchTheEnd()
    {
        m_link.Cut();
        m_timeCut = Now();
        m_events.WaitUntil(m_timeCut + seconds(WATCH_SECONDS),
                           [&]
                           {
                               WatchServer();
                               return m_outcome.m_dServerKnew >= 0 && m_events.Has("lost");
                           });
        ForbidServerUnaware();
        m_outcome.Forbid(
            !m_events.Has("lost") ||
                SecondsBetween(m_timeCut, m_events.GetTime("lost")) > MUST_KNOW_SECONDS,
            "the client does not notice in time that the server is gone");
    }

    void ForbidServerUnaware()
    {
        m_outcome.Forbid(m_outcome.m_dServerKnew < 0 || m_outcome.m_dServerKnew > MUST_KNOW_SECONDS,
                         "the server does not notice in time that the client is gone");
    }

    void Describe()
    {
        if (m_setting.IsCut() && m_events.Has("lost"))
        {
            m_outcome.m_dClientKnew = SecondsBetween(m_timeCut, m_events.GetTime("lost"));
        }
        m_outcome.m_strEnd = std::to_string(m_events.Count("connected")) + " connections";
        m_outcome.Forbid(m_events.Has("damaged"), "packets came damaged");
        m_outcome.Forbid(m_events.Has("out of order"), "packets came out of order");
        m_outcome.Forbid(m_events.Has("gap"), "packets are missing within a connection");
        m_outcome.Forbid(!m_setting.MayBreak() && m_events.Has("lost"),
                         "the connection must survive this link");
    }

    const CSetting& m_setting;
    CLink& m_link;
    CEvents m_events;
    CReader m_reader{m_events};
    COutcome m_outcome;
    CTime m_timeCut;
};

}  // namespace

COutcome RunChannel(const CSetting& setting, CLink& link)
{
    return CChannelRun(setting, link).Run();
}
