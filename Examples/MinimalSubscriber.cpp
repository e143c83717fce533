// Prints what arrives on channel 1 until Enter is pressed: MinimalSubscriber IPv4 PORT

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>

#include "LibOsprey.h"

namespace
{

class CHost : public IWXSPChannelClientCallback
{
public:
    void OnConnected(unsigned int /*dwUserParam*/) override
    {
        puts("Connected.");
    }
    void OnConnectFailed(unsigned int /*dwUserParam*/) override
    {
        puts("Not connected; trying again.");
    }
    void OnDisconnected(unsigned int /*dwUserParam*/) override
    {
        puts("Connection lost; connecting again.");
    }
    void OnChannelPacket(unsigned int /*dwUserParam*/, unsigned int dwChannel, void* /*pData*/,
                         unsigned int dwSize) override
    {
        printf("channel %u: %u bytes\n", dwChannel, dwSize);
    }
};

}  // namespace

int main(int argc, char** argv)
{
    in_addr address;
    if (argc != 3 || inet_pton(AF_INET, argv[1], &address) != 1)
    {
        return 2;
    }
    CHost host;
    IWXSPChannelClient* pClient = CreateWXSPChannelClient(&host, 0);
    unsigned int dwChannel = 1;
    if (!pClient->Connect(0, ntohl(address.s_addr), static_cast<unsigned short>(atoi(argv[2])),
                          5000, 1, &dwChannel))
    {
        puts("The first attempt failed at once.");
    }
    getchar();
    pClient->Release();
    return 0;
}
