#ifndef OSPREY_TESTS_SOAKROUND_H
#define OSPREY_TESTS_SOAKROUND_H

#include <memory>
#include <thread>
#include <vector>

#include "SoakEnemies.h"
#include "SoakReaders.h"
#include "SoakTransfers.h"

// Everybody who takes part in a soak, a thread each, for as long as this exists.
class CSoakRound
{
public:
    // The dice give everybody his own.
    CSoakRound(CSoak& soak, CDice& dice);
    // Returns when everybody has finished what he is about.
    ~CSoakRound();
    CSoakRound(const CSoakRound&) = delete;
    CSoakRound& operator=(const CSoakRound&) = delete;

private:
    template <class CParticipant>
    void Begin(std::shared_ptr<CParticipant> pParticipant)
    {
        m_threads.emplace_back([pParticipant] { pParticipant->Run(); });
    }

    CSoak& m_soak;
    std::vector<std::thread> m_threads;
};

#endif
