#include "ChannelFixture.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "Hex.h"
#include "OspreyServerStream.h"

namespace
{

// Reads a peer's socket on the server's own loop, up to a number of bytes.
class CCollector final : public CIOHandler
{
public:
    CCollector(CIOEngine& engine, int hSocket, size_t nSize)
        : m_engine(engine), m_hSocket(hSocket), m_nSize(nSize)
    {
        engine.AddIOHandler(hSocket, EPOLLIN, this);
    }
    ~CCollector() override
    {
        m_engine.RemoveIOHandler(m_hSocket, EPOLLIN, this);
    }
    void ProcessInput() override
    {
        const size_t nWanted = std::min(m_strPart.size(), m_nSize - m_strAll.size());
        const ssize_t nReceived = recv(m_hSocket, m_strPart.data(), nWanted, MSG_DONTWAIT);
        m_strAll.append(m_strPart, 0, nReceived > 0 ? static_cast<size_t>(nReceived) : 0);
    }

    std::string m_strAll;

private:
    CIOEngine& m_engine;
    const int m_hSocket;
    const size_t m_nSize;
    std::string m_strPart = std::string(std::min(m_nSize, size_t{1} << 20), '\0');
};

// How many packets begin there, by the sizes that their headers tell.
int CountPackets(const std::string& strBytes)
{
    int nCount = 0;
    for (size_t n = 0; n < strBytes.size(); n += 12 + size_t{Wire::GetU32(strBytes, n + 8)})
    {
        ++nCount;
    }
    return nCount;
}

}  // namespace

CTestCore::CTestCore(CIOEngine* pEngine)
    : COspreyServer(pEngine, nullptr), m_pStore(new COpenPacketServer)
{
    m_pChannelPacketServer = m_pStore;
}

COspreyServerStream* CTestCore::GetNewestStream() const
{
    CDLinkedListNode* pLast = nullptr;
    for (CDLinkedListNode* pNode = m_listStreams.GetHead(); pNode != nullptr;
         pNode = pNode->m_pNext)
    {
        pLast = pNode;
    }
    return static_cast<COspreyServerStream*>(pLast);
}

CChannelTest::CChannelTest()
{
    EXPECT_TRUE(m_core.Create(CSocketAddress(INADDR_LOOPBACK, 0), 1));
}

CChannelTest::~CChannelTest()
{
    m_core.EndAllNow();
    m_core.CloseHostRequests();
    EXPECT_EQ(CountReferences(), 0) << "a packet was not given back";
}

CPeer CChannelTest::Connect(unsigned int dwFrom)
{
    CPeer peer;
    EXPECT_TRUE(peer.m_socket.ConnectFrom(dwFrom, m_acceptor.GetPort()));
    peer.m_hServer = m_acceptor.Accept().Release();
    m_core.ProcessClientConnect(peer.m_hServer, CSocketAddress(dwFrom, 0));
    peer.m_lTask = reinterpret_cast<long>(m_core.GetNewestStream());
    return peer;
}

void CChannelTest::Deliver(CPeer& peer, const std::string& strBytes)
{
    peer.m_socket.Send(strBytes);
    pollfd pfd = {peer.m_hServer, POLLIN, 0};
    EXPECT_EQ(poll(&pfd, 1, WAIT_MS), 1) << "waited in vain for the bytes to arrive";
    // On a slow machine a pass may be over after a single packet.
    RunPasses(3 + CountPackets(strBytes));
}

CPeer CChannelTest::Open(const std::vector<uint32_t>& channels, unsigned int dwFrom)
{
    CPeer peer = Connect(dwFrom);
    Deliver(peer, Wire::Ochs(channels));
    return peer;
}

void CChannelTest::End(CPeer& peer)
{
    const int nLeft = m_core.GetStreamCount() - 1;
    peer.m_socket.Reset();
    RunUntil("the connection's end", [&] { return m_core.GetStreamCount() == nLeft; });
}

void CChannelTest::Pass(long long llMilliseconds)
{
    m_clock.Advance(llMilliseconds);
    RunPasses(3);
}

unsigned int CChannelTest::Put(unsigned int dwChannel, const std::string& strData)
{
    std::string strCopy = strData;
    return GetStore().PutChannelPacket(dwChannel, strCopy.data(),
                                       static_cast<unsigned int>(strCopy.size()));
}

void CChannelTest::PutNumbers(std::initializer_list<unsigned int> channels, int nCount, int nFirst)
{
    for (int i = nFirst; i < nFirst + nCount; ++i)
    {
        for (const unsigned int dwChannel : channels)
        {
            EXPECT_EQ(Put(dwChannel, std::to_string(dwChannel) + "." + std::to_string(i)), 0U);
        }
    }
}

std::string CChannelTest::Receive(CPeer& peer, int nCount)
{
    std::string strAll;
    for (int i = 0; i < nCount; ++i)
    {
        const std::string strPacket = peer.m_socket.ReceivePacket();
        if (strPacket.size() < 16)
        {
            return strAll + " (nothing)";
        }
        const std::string strData = strPacket.substr(16);
        EXPECT_EQ(Hex(strPacket), Hex(Wire::Cpkt(Wire::GetU32(strPacket, 12), strData)));
        strAll += (i == 0 ? "" : " ") + strData;
    }
    return strAll;
}

std::string CChannelTest::ReceiveWhileRunning(CPeer& peer, size_t nSize)
{
    CCollector collector(m_engine, peer.m_socket.GetHandle(), nSize);
    RunUntil("the peer's bytes", [&] { return collector.m_strAll.size() == nSize; });
    return collector.m_strAll;
}

long long CChannelTest::GetUsers(unsigned int dwChannel) const
{
    const CChannelPacketBuffer* pBuffer = GetStore().FindBuffer(dwChannel);
    return pBuffer != nullptr ? COpenPacketBuffer::GetUsers(*pBuffer) : 0;
}

unsigned int CChannelTest::GetPosition(unsigned int dwChannel, const CPeer& peer) const
{
    const CChannelPacketBuffer* pBuffer = GetStore().FindBuffer(dwChannel);
    return pBuffer != nullptr ? COpenPacketBuffer::GetPosition(*pBuffer, peer.m_lTask)
                              : COpenPacketBuffer::UNKNOWN_TASK;
}

long long CChannelTest::CountReferences() const
{
    long long llCount = 0;
    for (const auto& channel : GetStore().m_mapChannels)
    {
        llCount += COpenPacketBuffer::CountReferences(*channel.second);
    }
    return llCount;
}

bool CChannelTest::IsEmpty(const CPeer& peer)
{
    pollfd pfd = {peer.m_hServer, POLLIN, 0};
    return poll(&pfd, 1, 0) == 0;
}

void CChannelTest::ExpectAlive(CPeer& peer)
{
    const unsigned int dwChannel = 0xA11FE;
    Deliver(peer, Wire::Ochs({dwChannel}));
    EXPECT_EQ(Put(dwChannel, "alive"), 0U);
    Pass(202);
    EXPECT_EQ(Receive(peer, 1), "alive");
}

void CChannelTest::ExpectRefused(CPeer& peer, const std::string& strBefore)
{
    EXPECT_EQ(Hex(peer.m_socket.ReceiveToEnd()), Hex(strBefore));
}

CSendGate::CSendGate(const CPeer& peer, int nAllowed)
    : m_nAllowed(nAllowed),
      m_hServer(peer.m_hServer),
      m_replaced(g_callSend, [this](int s, const void* pData, size_t nSize, int nFlags)
                 { return Send(s, pData, nSize, nFlags); })
{
}

ssize_t CSendGate::Send(int s, const void* pData, size_t nSize, int nFlags)
{
    if (s != m_hServer)
    {
        return g_callSend.Real(s, pData, nSize, nFlags);
    }
    if (m_nSent >= m_nAllowed)
    {
        errno = EAGAIN;
        return -1;
    }
    if (m_fnOnSend)
    {
        m_fnOnSend();
    }
    ++m_nSent;
    return g_callSend.Real(s, pData, nSize, nFlags);
}
