#ifndef OSPREY_TESTS_RELAY_H
#define OSPREY_TESTS_RELAY_H

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "RawSocket.h"
#include "Watched.h"

// A packet of a conversation, as it was passed on.
struct CRelayed
{
    bool m_bFromClient;
    std::string m_strBytes;
};
typedef std::vector<CRelayed> CConversation;

// Stands between one client and a server: passes whole packets on, and writes them down in the
// order in which they left.
//
//   client --> listening port of the relay --> thread --> port of the server
//
// Thread: one of its own passes on; the test asks and waits. It ends when both sides have closed.
class CRelay final : public CWatched
{
public:
    explicit CRelay(unsigned short wServerPort);
    // Closes both sides, whatever they still send.
    ~CRelay();
    CRelay(const CRelay&) = delete;
    CRelay& operator=(const CRelay&) = delete;

    unsigned short GetPort() const
    {
        return m_listener.GetPort();
    }
    // To be called before the client: its packets wait from the nth of the first code on, until one
    // of the second code stands behind them.
    void HoldFrom(const char* pszCode, int nTimes, const char* pszUntil);
    bool WaitForHeld() const;
    // Waits until so many packets of that code were passed on.
    bool WaitForPackets(const char* pszCode, int nTimes = 1) const;

    // Waits for both sides to close; what passed.
    CConversation Finish();

private:
    struct CSide
    {
        CRawSocket m_socket;
        std::string m_strReceived;  // less than a packet
        bool m_bOpen = true;
    };
    void Run(unsigned short wServerPort);
    bool ReceiveSome(CSide& side);
    void PassOn(CSide& from, CSide& to, bool bFromClient);
    void Release(CSide& to, bool bFromClient, const std::string& strPacket);
    bool IsHeld(const std::string& strPacket);
    static bool CutPacket(std::string& strReceived, std::string& strPacket);

    CRawServer m_listener;
    CSide m_client;
    CSide m_server;
    CConversation m_conversation;
    std::string m_strHoldFrom;
    std::string m_strHoldUntil;
    int m_nHoldAfter = 0;
    std::vector<std::string> m_held;
    std::atomic<bool> m_bEnd{false};
    bool m_bOver = false;
    std::thread m_thread;
};

#endif
