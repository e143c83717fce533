#ifndef OSPREY_TESTS_CHANNELHOST_H
#define OSPREY_TESTS_CHANNELHOST_H

#include <functional>
#include <string>
#include <vector>

#include "FileHost.h"
#include "OspreyChannelClient.h"

// The parameter that the runs below give to their clients.
const unsigned int CHANNEL_USER = 7;

// The line that a host writes down for a packet: "packet 7 1 61 62 63", parameter, channel, data.
std::string PacketLine(unsigned int dwChannel, const std::string& strData);

// A host that writes down what a channel client tells it, a line each: "connected 7", "connect
// failed 7", "disconnected 7", and the packets.
class CChannelHost final : public IWXSPChannelClientCallback
{
public:
    void OnConnected(unsigned int dwUserParam) override;
    void OnConnectFailed(unsigned int dwUserParam) override;
    void OnDisconnected(unsigned int dwUserParam) override;
    void OnChannelPacket(unsigned int dwUserParam, unsigned int dwChannel, void* pData,
                         unsigned int dwSize) override;

    // To be set before the start: called on the calling thread, before the line is written down.
    std::function<void(const std::string&)> m_fnOnEvent;

    CFileEvents m_events;

private:
    void Tell(const std::string& strEvent);
};

// A channel client with its host; released at the end of the block.
class CChannelRun
{
public:
    CChannelRun();
    ~CChannelRun();
    CChannelRun(const CChannelRun&) = delete;
    CChannelRun& operator=(const CChannelRun&) = delete;

    // What Connect returns, to a port of 127.0.0.1.
    bool Start(unsigned short wPort, std::vector<unsigned int> channels = {1},
               unsigned int dwTimeoutMs = 20000);
    // Release, in whatever state; the client is then no longer there. Also from inside a callback.
    void Release();

    CChannelHost m_host;
    IWXSPChannelClient* m_pClient;
};

#endif
