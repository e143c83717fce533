// Subscribe ADDRESS PORT: prints what arrives on channel 1 until Enter is pressed.
#include <LibOsprey.h>
#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>

class CHost final : public IWXSPChannelClientCallback
{
public:
    void OnConnected(unsigned int) override
    {
        fputs("Connected.\n", stderr);
    }
    void OnConnectFailed(unsigned int) override
    {
        fputs("Not connected; trying again.\n", stderr);
    }
    void OnDisconnected(unsigned int) override
    {
        fputs("Connection lost; connecting again.\n", stderr);
    }
    void OnChannelPacket(unsigned int, unsigned int, void* pData, unsigned int dwSize) override
    {
        fwrite(pData, 1, dwSize, stderr);
    }
};

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
        fputs("The first attempt failed at once.\n", stderr);
    }
    getchar();
    pClient->Release();
    return 0;
}
