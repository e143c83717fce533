#ifndef OSPREY_TESTS_CHANNELFIXTURE_H
#define OSPREY_TESTS_CHANNELFIXTURE_H

// A server's core on the test's own loop, with a clock that the test sets and a packet store that
// it sees into. Nothing runs but inside RunPasses and RunUntil, so that every step can be told.

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "LoopFixture.h"
#include "OpenPacketStore.h"
#include "OspreyServerCore.h"
#include "RawSocket.h"
#include "SystemCalls.h"
#include "TestClock.h"
#include "WireRecords.h"

class CTestCore final : public COspreyServer
{
public:
    explicit CTestCore(CIOEngine* pEngine);

    COpenPacketServer& GetStore() const
    {
        return *m_pStore;
    }
    // That of the connection that was made last.
    COspreyServerStream* GetNewestStream() const;

private:
    COpenPacketServer* m_pStore;  // owned by the base
};

// One connection: the peer's end, and what the server's is known by.
struct CPeer
{
    CRawSocket m_socket;
    int m_hServer = -1;
    long m_lTask = 0;
};

class CChannelTest : public CLoopTest
{
protected:
    CChannelTest();
    ~CChannelTest() override;

    // Another address than 127.0.0.1 has to be of the loopback network too.
    CPeer Connect(unsigned int dwFrom = INADDR_LOOPBACK);
    // Sends, waits until the bytes have arrived and has the server process them.
    void Deliver(CPeer& peer, const std::string& strBytes);
    CPeer Open(const std::vector<uint32_t>& channels, unsigned int dwFrom = INADDR_LOOPBACK);
    // Ends the connection from outside and waits until the server is done with it.
    void End(CPeer& peer);
    // Time passes, and the server looks what is due.
    void Pass(long long llMilliseconds);

    unsigned int Put(unsigned int dwChannel, const std::string& strData);
    // Puts as many packets on each channel in turn: "1.0", "2.0", "1.1", "2.1" ...
    void PutNumbers(std::initializer_list<unsigned int> channels, int nCount, int nFirst = 0);
    // The next packets of a peer as text, a space between: what PutNumbers has put.
    static std::string Receive(CPeer& peer, int nCount);

    // The next bytes of a peer, however many passes of the server they take.
    std::string ReceiveWhileRunning(CPeer& peer, size_t nSize);

    long long GetUsers(unsigned int dwChannel) const;
    // Number of the packet that the connection gets next there; 0xFFFFFFFF when it is unknown.
    unsigned int GetPosition(unsigned int dwChannel, const CPeer& peer) const;
    // References that connections have to packets of any channel.
    long long CountReferences() const;
    // True when the server has read everything that has arrived.
    static bool IsEmpty(const CPeer& peer);
    // Opens another channel on the connection and expects to be served.
    void ExpectAlive(CPeer& peer);
    // The server has half-closed after this many bytes.
    void ExpectRefused(CPeer& peer, const std::string& strBefore = "");

    COpenPacketServer& GetStore() const
    {
        return m_core.GetStore();
    }

    CTestClock m_clock;
    CTestCore m_core{&m_engine};
    CRawServer m_acceptor;
};

// Lets so many sends of the server through; the socket counts as full from then on, until it is
// opened again and an event comes.
class CSendGate
{
public:
    explicit CSendGate(const CPeer& peer, int nAllowed = 0);

    // Called before each send that is let through.
    std::function<void()> m_fnOnSend;
    int m_nAllowed;
    int m_nSent = 0;

private:
    ssize_t Send(int s, const void* pData, size_t nSize, int nFlags);

    const int m_hServer;
    CReplacedCall<ssize_t(int, const void*, size_t, int)> m_replaced;
};

#endif
