#ifndef OSPREY_TESTS_SOAK_H
#define OSPREY_TESTS_SOAK_H

// What those who take part in a soak share.

#include <atomic>
#include <functional>
#include <random>
#include <string>

#include "TempFolder.h"
#include "Watched.h"

// The channels that the server's host puts packets into, from 1 on.
const unsigned int SOAK_CHANNELS = 4;

// The restarts of the server: whoever loses a connection can tell whether that was one of them.
class CRestarts final : public CWatched
{
public:
    // Runs fnRestart, which ends the server and starts it again.
    void Restart(const std::function<void()>& fnRestart);
    // Where the count stands: odd during a restart.
    unsigned int GetMark() const;
    // Waits until no restart is under way; returns the mark.
    unsigned int WaitForServer() const;
    // A restart was under way at the mark, or has begun since.
    bool HasComeSince(unsigned int dwMark) const;

private:
    unsigned int m_dwMark = 0;
};

struct CSoakCounts
{
    typedef std::atomic<unsigned long long> CCount;

    CCount m_uploads{0};
    CCount m_downloads{0};
    CCount m_bytes{0};  // of whole files, each compared
    CCount m_directories{0};
    CCount m_deletes{0};
    CCount m_interrupted{0};  // transfers and requests that a restart broke, all repeated
    CCount m_subscriptions{0};
    CCount m_packets{0};
    CCount m_reconnections{0};
    CCount m_enemies{0};

    std::string GetText() const;
};

struct CSoak
{
    // Runs fnTry until it returns true, each time when the server is there. False, which is an
    // interruption, is allowed only when a restart came meanwhile; fails the test otherwise.
    bool Repeat(const std::string& strWhat, const std::function<bool()>& fnTry);

    unsigned short m_wPort = 0;
    CTempFolder m_served;
    CTempFolder m_local;
    CRestarts m_restarts;
    CSoakCounts m_counts;
    std::atomic<bool> m_bStop{false};
};

// Random numbers of one participant.
class CDice
{
public:
    explicit CDice(unsigned int dwSeed) : m_engine(dwSeed) {}

    // From nLow to nHigh, both included.
    unsigned int Roll(unsigned int dwLow, unsigned int dwHigh)
    {
        return std::uniform_int_distribution<unsigned int>(dwLow, dwHigh)(m_engine);
    }
    // For the dice of somebody else.
    unsigned int Seed()
    {
        return Roll(1, 1U << 30);
    }
    std::string Bytes(size_t nSize);
    // 0, 1, about a block's, or anything up to 4 MiB, small ones more often.
    size_t FileSize();

private:
    std::mt19937 m_engine;
};

#endif
