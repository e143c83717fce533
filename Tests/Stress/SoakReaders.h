#ifndef OSPREY_TESTS_SOAKREADERS_H
#define OSPREY_TESTS_SOAKREADERS_H

#include <string>
#include <vector>

#include "OspreyChannelClient.h"
#include "Soak.h"
#include "StreamCheck.h"

// A real client that checks, through the server's restarts.
class CSoakSubscriber final : public IWXSPChannelClientCallback, public CWatched
{
public:
    CSoakSubscriber(CSoak& soak, const std::vector<unsigned int>& channels);
    ~CSoakSubscriber();
    CSoakSubscriber(const CSoakSubscriber&) = delete;
    CSoakSubscriber& operator=(const CSoakSubscriber&) = delete;

    // Reads until as many packets of every channel have come.
    void Read(std::vector<unsigned int> channels, unsigned int dwPackets);

    void OnConnected(unsigned int dwUserParam) override;
    void OnConnectFailed(unsigned int dwUserParam) override;
    void OnDisconnected(unsigned int dwUserParam) override;
    void OnChannelPacket(unsigned int dwUserParam, unsigned int dwChannel, void* pData,
                         unsigned int dwSize) override;

private:
    void TakeLoss(const char* pszWhat);

    CSoak& m_soak;
    CStreamCheck m_check;
    unsigned int m_dwMark = 0;  // when the attempt at hand was yet to come
    IWXSPChannelClient* m_pClient;
};

// One participant who subscribes, reads for a while and leaves, again and again until the stop.
class CSoakReader
{
public:
    CSoakReader(CSoak& soak, bool bRaw, unsigned int dwSeed);

    void Run();

private:
    // With the real client, or byte by byte.
    void ReadAsClient(const std::vector<unsigned int>& channels, unsigned int dwPackets);
    void ReadRaw(const std::vector<unsigned int>& channels, unsigned int dwPackets);
    bool TryReadRaw(const std::vector<unsigned int>& channels, unsigned int dwPackets,
                    CStreamCheck& check);

    CSoak& m_soak;
    bool m_bRaw;
    CDice m_dice;
};

#endif
