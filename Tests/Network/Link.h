#ifndef OSPREY_TESTS_LINK_H
#define OSPREY_TESTS_LINK_H

#include <sys/types.h>

#include <functional>
#include <string>

#include "Setting.h"

const unsigned int FAR_ADDRESS = 0x0A4D0002;  // 10.77.0.2, which exists at the far end only
const unsigned short PORT = 7070;             // nobody else is in these networks

// Two new networks and a cable between them, the program wire; the thread that makes them is at the
// near end afterwards.
//
// Errors: throws CNetworkRefused, with what the machine does not allow.
class CLink
{
public:
    explicit CLink(const CSetting& setting);
    ~CLink();
    CLink(const CLink&) = delete;
    CLink& operator=(const CLink&) = delete;

    // The threads that the call starts stay at the far end.
    void AtFarEnd(const std::function<void()>& fnCall) const;
    // When either returns, it counts.
    void Cut();
    void Join();
    // True while the far end's kernel has an established connection.
    bool HasConnection() const;
    // How many packets wire has so treated, both directions together: "lost", "corrupted".
    unsigned long long Count(const std::string& strWhat);

private:
    void Start(const CSetting& setting);
    void Say(const std::string& strCommand);
    std::string ReadLine();

    int m_hNear = -1;
    int m_hFar = -1;
    pid_t m_nWire = -1;
    int m_hCommands = -1;
    int m_hAnswers = -1;
};

#endif
