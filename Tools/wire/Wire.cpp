#include "Wire.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "Commands.h"

namespace
{

// How many packets one turn takes from a device before the others have theirs.
const int TURN = 64;

volatile sig_atomic_t g_bSignal = 0;

void OnSignal(int /*nSignal*/)
{
    g_bSignal = 1;
}

// Signals come during the wait only, so that none is missed between looking and waiting.
sigset_t CatchSignals()
{
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    struct sigaction action = {};
    action.sa_handler = &OnSignal;
    for (const int nSignal : {SIGINT, SIGTERM})
    {
        sigaddset(&blocked, nSignal);
        sigaction(nSignal, &action, nullptr);
    }
    sigprocmask(SIG_BLOCK, &blocked, &before);
    return before;
}

bool IsIPv4(const std::string& strPacket)
{
    return strPacket.size() >= 20 && (static_cast<unsigned char>(strPacket[0]) >> 4) == 4;
}

void Answer(const std::string& strLine)
{
    puts(strLine.c_str());
    fflush(stdout);
}

}  // namespace

CWire::CWire(const CWireOptions& options)
    : m_settings(options.m_settings),
      m_deviceNear(options.m_strNear, "near", options.m_strNearAddress),
      m_deviceFar(options.m_strFar, "far", options.m_strFarAddress),
      m_there(m_settings, options.m_ullSeed),
      m_back(m_settings, ~options.m_ullSeed),
      m_bEndWithInput(options.m_bEndWithInput)
{
    const CTime timeStart = std::chrono::steady_clock::now();
    for (const std::string& strCut : options.m_cuts)
    {
        if (!AddCut(strCut, timeStart, m_cuts))
        {
            throw std::runtime_error("no cut: " + strCut);
        }
    }
}

void CWire::Run()
{
    const sigset_t signals = CatchSignals();
    Answer("ready");
    while (!m_bEnd && g_bSignal == 0)
    {
        CheckCuts();
        Move(m_deviceNear, m_deviceFar, m_there);
        Move(m_deviceFar, m_deviceNear, m_back);
        Wait(signals);
    }
}

void CWire::Wait(const sigset_t& signals)
{
    pollfd fds[] = {{m_deviceNear.GetHandle(), POLLIN, 0},
                    {m_deviceFar.GetHandle(), POLLIN, 0},
                    {m_bInput ? STDIN_FILENO : -1, POLLIN, 0}};
    const CTime now = std::chrono::steady_clock::now();
    const CTime next = std::min({m_there.GetNext(), m_back.GetNext(), m_cuts.GetNext(now)});
    timespec time = {};
    if (next > now && next != CTime::max())
    {
        const auto nanoseconds = std::chrono::nanoseconds(next - now).count();
        time = {nanoseconds / 1000000000, nanoseconds % 1000000000};
    }
    const int nReady = ppoll(fds, 3, next == CTime::max() ? nullptr : &time, &signals);
    if (nReady < 0 && errno != EINTR)
    {
        throw std::runtime_error(std::string("ppoll: ") + strerror(errno));
    }
    if (nReady > 0 && fds[2].revents != 0)
    {
        ReadInput();
    }
}

void CWire::Move(const CTunDevice& from, const CTunDevice& to, CDirection& direction)
{
    for (int i = 0; i < TURN && from.Read(m_strPacket); ++i)
    {
        if (IsIPv4(m_strPacket))
        {
            direction.Take(std::chrono::steady_clock::now(), m_strPacket);
        }
    }
    while (direction.Give(std::chrono::steady_clock::now(), m_strPacket))
    {
        to.Write(m_strPacket);
    }
}

void CWire::CheckCuts()
{
    const bool bCut = m_cuts.IsCut(std::chrono::steady_clock::now());
    if (bCut != m_bCut)
    {
        m_bCut = bCut;
        m_there.SetCut(bCut);
        m_back.SetCut(bCut);
    }
}

void CWire::ReadInput()
{
    char szPart[512];
    const ssize_t nRead = read(STDIN_FILENO, szPart, sizeof szPart);
    if (nRead <= 0)
    {
        m_bInput = false;
        m_bEnd = m_bEndWithInput;
        return;
    }
    m_strInput.append(szPart, static_cast<size_t>(nRead));
    for (size_t nEnd = 0; (nEnd = m_strInput.find('\n')) != std::string::npos;)
    {
        ObeyLine(m_strInput.substr(0, nEnd));
        m_strInput.erase(0, nEnd + 1);
    }
}

void CWire::ObeyLine(const std::string& strLine)
{
    if (strLine == "quit")
    {
        m_bEnd = true;
    }
    else if (strLine == "counters")
    {
        PrintCounters();
    }
    else
    {
        const bool bObeyed = Obey(strLine, std::chrono::steady_clock::now(), m_settings, m_cuts);
        // The answer says that it counts from now on.
        CheckCuts();
        Answer((bObeyed ? "done: " : "not understood: ") + strLine);
    }
}

void CWire::PrintCounters() const
{
    Answer(CountersLine("near to far", m_there.GetCounters()));
    Answer(CountersLine("far to near", m_back.GetCounters()));
}
