#include <netinet/in.h>

#include <vector>

#include "FreePort.h"
#include "LibOsprey.h"
#include "Peer.h"

namespace
{

const unsigned int CHANNEL = 1;

class COspreyPublisher final : public IPublisher
{
public:
    COspreyPublisher()
    {
        while (!m_pServer->Startup(0, m_wPort))
        {
            m_wPort = FreePort();
        }
    }
    int GetPort() const override
    {
        return m_wPort;
    }
    bool Publish(void* pData, unsigned int dwSize) override
    {
        return m_pServer->PutChannelPacket(CHANNEL, pData, dwSize) == 0;
    }
    void Flush() override
    {
        m_pServer->FlushChannelPackets();
    }

private:
    IOspreyServer* const m_pServer = CreateOspreyServer(nullptr);
    unsigned short m_wPort = FreePort();
};

class COspreySubscriber final : public IWXSPChannelClientCallback
{
public:
    COspreySubscriber(CShared& shared, int nIndex)
        : m_shared(shared), m_pClient(CreateWXSPChannelClient(this, static_cast<unsigned>(nIndex)))
    {
        unsigned int dwChannel = CHANNEL;
        const int nPort = shared.m_nPort;
        m_pClient->Connect(0, INADDR_LOOPBACK, static_cast<unsigned short>(nPort), 5000, 1,
                           &dwChannel);
    }
    void OnConnected(unsigned int /*dwUserParam*/) override {}
    void OnConnectFailed(unsigned int /*dwUserParam*/) override {}
    void OnDisconnected(unsigned int /*dwUserParam*/) override {}
    void OnChannelPacket(unsigned int dwUserParam, unsigned int /*dwChannel*/, void* pData,
                         unsigned int dwSize) override
    {
        TakePacket(m_shared, static_cast<int>(dwUserParam), pData, dwSize);
    }

private:
    CShared& m_shared;
    IWXSPChannelClient* const m_pClient;
};

class COspreySubscribers final : public ISubscribers
{
public:
    COspreySubscribers(CShared& shared, int nCount)
    {
        for (int i = 0; i < nCount; ++i)
        {
            m_list.push_back(std::make_unique<COspreySubscriber>(shared, i));
        }
    }

private:
    std::vector<std::unique_ptr<COspreySubscriber>> m_list;
};

class COsprey final : public ISystem
{
public:
    const char* GetName() const override
    {
        return "Osprey";
    }
    std::unique_ptr<IPublisher> MakePublisher() const override
    {
        return std::make_unique<COspreyPublisher>();
    }
    std::unique_ptr<ISubscribers> MakeSubscribers(CShared& shared, int nCount) const override
    {
        return std::make_unique<COspreySubscribers>(shared, nCount);
    }
};

}  // namespace

const ISystem& Osprey()
{
    static const COsprey system;
    return system;
}
