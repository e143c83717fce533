#include "Crowd.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>

namespace
{

const int MAX_EVENTS = 256;
const size_t CONNECTIONS_AN_ADDRESS = 10000;

typedef std::chrono::steady_clock CClock;

int GetMsUntil(CClock::time_point deadline)
{
    return static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - CClock::now()).count());
}

// Drains until the condition holds.
bool DrainUntil(CCrowd& crowd, int nMilliseconds, const std::function<bool()>& fnCondition)
{
    const CClock::time_point deadline = CClock::now() + std::chrono::milliseconds(nMilliseconds);
    while (!fnCondition())
    {
        const int nLeft = GetMsUntil(deadline);
        if (nLeft <= 0)
        {
            return false;
        }
        crowd.Drain(0);
    }
    return true;
}

}  // namespace

size_t AllowManyDescriptors()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
}

CCrowd::CCrowd() : m_hEpoll(epoll_create1(EPOLL_CLOEXEC)) {}

CCrowd::~CCrowd()
{
    close(m_hEpoll);
}

void CCrowd::Connect(size_t nCount, unsigned short wPort, const std::string& strBytes)
{
    for (size_t i = 0; i < nCount; ++i)
    {
        const auto dwTurn = static_cast<unsigned int>(m_nEver++ / CONNECTIONS_AN_ADDRESS);
        CRawSocket peer;
        ASSERT_TRUE(peer.ConnectFrom(INADDR_LOOPBACK + dwTurn, wPort)) << m_sockets.size();
        if (!strBytes.empty())
        {
            ASSERT_TRUE(peer.Send(strBytes));
        }
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = m_sockets.size();
        ASSERT_EQ(epoll_ctl(m_hEpoll, EPOLL_CTL_ADD, peer.GetHandle(), &event), 0);
        m_sockets.push_back(std::move(peer));
    }
}

bool CCrowd::Send(const std::string& strBytes)
{
    bool bAll = true;
    for (CRawSocket& peer : m_sockets)
    {
        bAll = peer.IsOpen() && peer.SendWithoutWaiting(strBytes) == strBytes.size() && bAll;
    }
    return bAll;
}

void CCrowd::Drain(int nMilliseconds)
{
    epoll_event events[MAX_EVENTS];
    const CClock::time_point deadline = CClock::now() + std::chrono::milliseconds(nMilliseconds);
    int nLeft = nMilliseconds;
    do
    {
        const int nEvents = epoll_wait(m_hEpoll, events, MAX_EVENTS, nLeft);
        for (int i = 0; i < nEvents; ++i)
        {
            Read(events[i].data.u64);
        }
        nLeft = GetMsUntil(deadline);
    } while (nLeft > 0);
}

void CCrowd::Read(size_t nIndex)
{
    static char pBytes[65536];
    const int s = m_sockets[nIndex].GetHandle();
    const ssize_t n = recv(s, pBytes, sizeof pBytes, MSG_DONTWAIT);
    if (n > 0)
    {
        m_ullBytes += static_cast<unsigned long long>(n);
    }
    else if (n == 0 || (errno != EAGAIN && errno != EINTR))
    {
        m_sockets[nIndex].Close();
        ++m_nClosed;
    }
}

bool CCrowd::WaitForBytes(unsigned long long ullBytes, int nMilliseconds)
{
    const bool bCame = DrainUntil(*this, nMilliseconds, [&] { return m_ullBytes >= ullBytes; });
    EXPECT_TRUE(bCame) << "waited in vain for " << ullBytes << " bytes; there are " << m_ullBytes;
    return bCame;
}

bool CCrowd::WaitForClosed(size_t nClosed, int nMilliseconds)
{
    const bool bCame = DrainUntil(*this, nMilliseconds, [&] { return m_nClosed >= nClosed; });
    EXPECT_TRUE(bCame) << "waited in vain for " << nClosed << " connections to be closed; "
                       << m_nClosed << " are";
    return bCame;
}

void CCrowd::Close()
{
    for (CRawSocket& peer : m_sockets)
    {
        peer.Close();
    }
    m_sockets.clear();
    m_nClosed = 0;
    m_ullBytes = 0;
}
