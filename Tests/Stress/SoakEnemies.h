#ifndef OSPREY_TESTS_SOAKENEMIES_H
#define OSPREY_TESTS_SOAKENEMIES_H

#include <deque>
#include <string>

#include "RawSocket.h"
#include "Soak.h"

// One participant who sends what no client sends, on one connection after another, until the stop:
// random bytes, conversations with changed bytes or cut short, huge sizes, unknown codes, requests
// whose answers it does not read. Some connections it closes, some it resets, some it leaves open,
// whole or half, for a while. It touches no file but its own.
class CSoakEnemy
{
public:
    CSoakEnemy(CSoak& soak, unsigned int dwSeed);

    void Run();

private:
    std::string MakeBytes();
    std::string MakeConversation();
    std::string MakeHugePacket();
    std::string MakeSubscription();
    void Leave(CRawSocket peer);

    CSoak& m_soak;
    CDice m_dice;
    std::deque<CRawSocket> m_open;  // the oldest first
};

#endif
