// The channel client against a server whose every packet is the input's, through lost connections
// and new ones.
//
// Input: inside which call of the client its host releases it, 0 for none; how many channels; then
// what CHostileServer reads.

#include <netinet/in.h>

#include <utility>

#include "FuzzEngine.h"
#include "HostileServer.h"
#include "LibOsprey.h"

namespace
{

const unsigned int USER = 7;

// Sees to it that the calls come in their order.
class CChannelFuzzHost final : public IWXSPChannelClientCallback
{
public:
    explicit CChannelFuzzHost(int nReleaseIn) : m_nReleaseIn(nReleaseIn) {}

    void OnConnected(unsigned int dwUserParam) override
    {
        Require(dwUserParam == USER && !m_bConnected, "a lost connection is made again, no other");
        m_bConnected = true;
        CountCall();
    }
    void OnConnectFailed(unsigned int dwUserParam) override
    {
        Require((dwUserParam == USER || dwUserParam == 0) && !m_bConnected,
                "no connection fails that was made");
        CountCall();
    }
    void OnDisconnected(unsigned int dwUserParam) override
    {
        Require(dwUserParam == USER && m_bConnected, "only a connection is lost");
        m_bConnected = false;
        CountCall();
    }
    void OnChannelPacket(unsigned int dwUserParam, unsigned int /*dwChannel*/, void* pData,
                         unsigned int dwSize) override
    {
        Require(dwUserParam == USER && m_bConnected, "packets come over a connection");
        const unsigned char* pBytes = static_cast<const unsigned char*>(pData);
        for (unsigned int i = 0; i < dwSize; ++i)
        {
            m_dwSum += pBytes[i];  // every byte can be read
        }
        CountCall();
    }

    // To be set before the start: releases the client.
    std::function<void()> m_fnRelease;

private:
    void CountCall()
    {
        Require(!m_bReleased, "nobody is called after the release");
        if (++m_nCalls == m_nReleaseIn)
        {
            m_bReleased = true;
            m_fnRelease();
        }
    }

    const int m_nReleaseIn;
    int m_nCalls = 0;
    bool m_bConnected = false;
    bool m_bReleased = false;
    volatile unsigned int m_dwSum = 0;
};

void Run(CFuzzInput& input)
{
    unsigned int channels[OSPREY_MAX_CHANNELS] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    CChannelFuzzHost host(input.TakeByte());
    const unsigned int dwChannels = input.TakeBelow(OSPREY_MAX_CHANNELS + 1);
    CHostileServer server(input);
    IWXSPChannelClient* pClient = CreateWXSPChannelClient(&host, USER);
    const auto fnRelease = [&]
    {
        if (IWXSPChannelClient* pReleased = std::exchange(pClient, nullptr))
        {
            pReleased->Release();
        }
    };
    host.m_fnRelease = fnRelease;
    pClient->Connect(0, INADDR_LOOPBACK, 1, 1000, dwChannels, channels);
    server.WaitForEnd(fnRelease);
    fnRelease();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    DropOutput();
    const int nDescriptors = CountOpenDescriptors();
    CFuzzInput input(pData, nSize);
    Run(input);
    Require(CountOpenDescriptors() == nDescriptors, "no descriptor is left open");
    return 0;
}
