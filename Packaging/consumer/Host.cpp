#include <LibOsprey.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>

// Serves channel 1 on the port that is given, and takes one packet of it over the network.
namespace
{

class CReader : public IWXSPChannelClientCallback
{
public:
    void OnConnected(unsigned int /*dwUserParam*/) override {}
    void OnConnectFailed(unsigned int /*dwUserParam*/) override {}
    void OnDisconnected(unsigned int /*dwUserParam*/) override {}
    void OnChannelPacket(unsigned int /*dwUserParam*/, unsigned int /*dwChannel*/, void* /*pData*/,
                         unsigned int /*dwSize*/) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bArrived = true;
        m_changed.notify_all();
    }
    bool Wait(int nMs)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(nMs),
                                  [this] { return m_bArrived; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bArrived = false;
};

}  // namespace

int main(int argc, char** argv)
{
    const auto wPort = static_cast<unsigned short>(argc > 1 ? atoi(argv[1]) : 0);
    IOspreyServer* pServer = CreateOspreyServer(nullptr);
    if (!pServer->Startup(0, wPort))
    {
        return 1;
    }
    CReader reader;
    IWXSPChannelClient* pClient = CreateWXSPChannelClient(&reader, 0);
    unsigned int dwChannel = 1;
    pClient->Connect(0, 0x7F000001, wPort, 1000, 1, &dwChannel);
    char szPacket[] = "packet";
    bool bArrived = false;
    for (int i = 0; i < 300 && !bArrived; ++i)
    {
        pServer->PutChannelPacket(dwChannel, szPacket, sizeof szPacket);
        bArrived = reader.Wait(100);
    }
    pClient->Release();
    pServer->EndAllConnections(5000);
    pServer->Shutdown();
    pServer->Release();
    fprintf(stderr, "%s, packet %s\n", OrbComponent::GetVerisonString().c_str(),
            bArrived ? "arrived" : "lost");
    return bArrived ? 0 : 1;
}
