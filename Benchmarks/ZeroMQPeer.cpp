#include <zmq.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Peer.h"

namespace
{

const int HIGH_WATER = 2048;  // packets queued for a subscriber, as many as a channel holds

void Check(bool bGood)
{
    if (!bGood)
    {
        perror("zmq");
        abort();
    }
}

class CZeroMQPublisher final : public IPublisher
{
public:
    CZeroMQPublisher()
    {
        zmq_setsockopt(m_pSocket, ZMQ_SNDHWM, &HIGH_WATER, sizeof HIGH_WATER);
        Check(zmq_bind(m_pSocket, "tcp://127.0.0.1:*") == 0);
        char szEndpoint[100];
        size_t nLength = sizeof szEndpoint;
        Check(zmq_getsockopt(m_pSocket, ZMQ_LAST_ENDPOINT, szEndpoint, &nLength) == 0);
        m_nPort = std::stoi(std::string(szEndpoint).substr(std::string(szEndpoint).rfind(':') + 1));
    }
    int GetPort() const override
    {
        return m_nPort;
    }
    bool Publish(void* pData, unsigned int dwSize) override
    {
        return zmq_send(m_pSocket, pData, dwSize, ZMQ_DONTWAIT) >= 0;
    }

private:
    void* const m_pContext = zmq_ctx_new();
    void* const m_pSocket = zmq_socket(m_pContext, ZMQ_PUB);
    int m_nPort = 0;
};

class CZeroMQSubscribers final : public ISubscribers
{
public:
    CZeroMQSubscribers(CShared& shared, int nCount)
    {
        zmq_ctx_set(m_pContext, ZMQ_MAX_SOCKETS, nCount + 1);
        for (int i = 0; i < nCount; ++i)
        {
            m_listThreads.emplace_back([this, &shared, i] { Receive(shared, i); });
        }
    }

private:
    void Receive(CShared& shared, int nIndex)
    {
        void* pSocket = zmq_socket(m_pContext, ZMQ_SUB);
        zmq_setsockopt(pSocket, ZMQ_RCVHWM, &HIGH_WATER, sizeof HIGH_WATER);
        zmq_setsockopt(pSocket, ZMQ_SUBSCRIBE, "", 0);
        const std::string strEndpoint = "tcp://127.0.0.1:" + std::to_string(shared.m_nPort);
        Check(zmq_connect(pSocket, strEndpoint.c_str()) == 0);
        char pBuffer[1500];
        for (;;)
        {
            const int nSize = zmq_recv(pSocket, pBuffer, sizeof pBuffer, 0);
            Check(nSize >= 0);
            TakePacket(shared, nIndex, pBuffer, static_cast<size_t>(nSize));
        }
    }

    void* const m_pContext = zmq_ctx_new();
    std::vector<std::thread> m_listThreads;
};

class CZeroMQ final : public ISystem
{
public:
    const char* GetName() const override
    {
        return "ZeroMQ";
    }
    std::unique_ptr<IPublisher> MakePublisher() const override
    {
        return std::make_unique<CZeroMQPublisher>();
    }
    std::unique_ptr<ISubscribers> MakeSubscribers(CShared& shared, int nCount) const override
    {
        return std::make_unique<CZeroMQSubscribers>(shared, nCount);
    }
};

}  // namespace

const ISystem& ZeroMQ()
{
    static const CZeroMQ system;
    return system;
}
