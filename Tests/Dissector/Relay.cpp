#include "Relay.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>

#include "WireRecords.h"

CRelay::CRelay(unsigned short wServerPort) : m_thread([this, wServerPort] { Run(wServerPort); }) {}

CRelay::~CRelay()
{
    m_bEnd = true;
    m_thread.join();
}

void CRelay::HoldFrom(const char* pszCode, int nTimes, const char* pszUntil)
{
    Change(
        [&]
        {
            m_strHoldFrom = pszCode;
            m_nHoldAfter = nTimes;
            m_strHoldUntil = pszUntil;
        });
}

bool CRelay::WaitForHeld() const
{
    return WaitFor("a packet that the relay holds", [this] { return !m_held.empty(); });
}

bool CRelay::WaitForPackets(const char* pszCode, int nTimes) const
{
    const auto fnIsOne = [pszCode](const CRelayed& relayed)
    { return Wire::GetCode(relayed.m_strBytes) == pszCode; };
    const auto fnCame = [this, nTimes, fnIsOne]
    { return std::count_if(m_conversation.begin(), m_conversation.end(), fnIsOne) >= nTimes; };
    return WaitFor(std::to_string(nTimes) + " packets " + pszCode, fnCame);
}

CConversation CRelay::Finish()
{
    WaitFor("both sides to close", [this] { return m_bOver; });
    CConversation result;
    Look([&] { result = m_conversation; });
    return result;
}

void CRelay::Run(unsigned short wServerPort)
{
    pollfd caller{m_listener.GetHandle(), POLLIN, 0};
    while (!m_bEnd && poll(&caller, 1, 20) <= 0)
    {
    }
    if (!m_bEnd)
    {
        m_client.m_socket = m_listener.Accept();
        m_server.m_bOpen = m_server.m_socket.Connect(wServerPort);
    }
    while (!m_bEnd && (m_client.m_bOpen || m_server.m_bOpen))
    {
        // A side that has closed is not asked again.
        pollfd pSides[2] = {{m_client.m_bOpen ? m_client.m_socket.GetHandle() : -1, POLLIN, 0},
                            {m_server.m_bOpen ? m_server.m_socket.GetHandle() : -1, POLLIN, 0}};
        poll(pSides, 2, 20);
        if (pSides[0].revents != 0)
        {
            PassOn(m_client, m_server, true);
        }
        if (pSides[1].revents != 0)
        {
            PassOn(m_server, m_client, false);
        }
    }
    Change([this] { m_bOver = true; });
}

bool CRelay::ReceiveSome(CSide& side)
{
    char szBytes[65536];
    const ssize_t nSize = read(side.m_socket.GetHandle(), szBytes, sizeof szBytes);
    if (nSize > 0)
    {
        side.m_strReceived.append(szBytes, static_cast<size_t>(nSize));
    }
    return nSize > 0;
}

void CRelay::PassOn(CSide& from, CSide& to, bool bFromClient)
{
    if (!ReceiveSome(from))
    {
        from.m_bOpen = false;
        to.m_socket.ShutdownSend();
        return;
    }
    std::string strPacket;
    while (CutPacket(from.m_strReceived, strPacket))
    {
        if (!bFromClient || !IsHeld(strPacket))
        {
            Release(to, bFromClient, strPacket);
        }
        else if (Wire::GetCode(strPacket) == m_strHoldUntil)
        {
            std::vector<std::string> held;
            Change([&] { held.swap(m_held); });
            m_strHoldFrom.clear();
            for (const std::string& strHeld : held)
            {
                Release(to, true, strHeld);
            }
        }
    }
}

// A side that no longer listens loses nothing that the other end would have answered. Written down
// before it is sent: what it causes is then behind it.
void CRelay::Release(CSide& to, bool bFromClient, const std::string& strPacket)
{
    Change([&] { m_conversation.push_back({bFromClient, strPacket}); });
    if (to.m_bOpen)
    {
        to.m_socket.Send(strPacket);
    }
}

bool CRelay::IsHeld(const std::string& strPacket)
{
    bool bHeld = false;
    Change(
        [&]
        {
            if (m_strHoldFrom.empty())
            {
                return;
            }
            m_nHoldAfter -= Wire::GetCode(strPacket) == m_strHoldFrom ? 1 : 0;
            bHeld = m_nHoldAfter <= 0;
            if (bHeld)
            {
                m_held.push_back(strPacket);
            }
        });
    return bHeld;
}

bool CRelay::CutPacket(std::string& strReceived, std::string& strPacket)
{
    const size_t nSize = size_t{12} + Wire::GetU32(strReceived, 8);
    if (strReceived.size() < 12 || strReceived.size() < nSize)
    {
        return false;
    }
    strPacket = strReceived.substr(0, nSize);
    strReceived.erase(0, nSize);
    return true;
}
