#ifndef OSPREY_TESTS_OWNNETWORK_H
#define OSPREY_TESTS_OWNNETWORK_H

#include <functional>

#include "Namespaces.h"

// Runs a part of a test, all of it, in a process that has a network of its own, and the test fails
// with it. Where the machine does not allow that, skips the test and says what was refused.
// Everything is gone when the process has ended.
void RunInOwnNetwork(const std::function<void()>& fnTest);

// Brings loopback up in the network that the process is in, and leaves the system only these ports
// to choose from. REQUIRES: inside RunInOwnNetwork. Throws CNetworkRefused.
void UseLoopbackWithPorts(unsigned short wFirst, unsigned short wLast);

// Two networks that nothing else is in, and a cable between them; the thread that makes them is at
// the near end afterwards. REQUIRES: inside RunInOwnNetwork. Throws CNetworkRefused.
class COwnNetwork
{
public:
    COwnNetwork();
    ~COwnNetwork();
    COwnNetwork(const COwnNetwork&) = delete;
    COwnNetwork& operator=(const COwnNetwork&) = delete;

    // The network at the far end, for setns.
    int GetFarEnd() const
    {
        return m_hFar;
    }
    // IPv4 address there, host byte order.
    unsigned int GetFarAddress() const;

    // Both ends are up at first. With one end down, nothing passes. The near end, at the
    // subscriber's own device, takes the route with it; with the far end only the way behind it is
    // gone.
    void SetNearUp(bool bUp) const;
    void SetFarUp(bool bUp) const;

private:
    void AtFarEnd(const std::function<void()>& fnCall) const;

    int m_hNear = -1;
    int m_hFar = -1;
};

#endif
