#ifndef OSPREY_TESTS_SERVERPROCESS_H
#define OSPREY_TESTS_SERVERPROCESS_H

#include <sys/types.h>

// A server in a process of its own, which can be killed. It puts numbered packets, from the number
// given on, into channels 1, 2 and 3, one into each every 5 ms; a packet that nobody reads is put
// again.
class CServerProcess
{
public:
    // Returns when the server listens; fails the test when it cannot. hNetwork: the network that it
    // lives in; -1: the test's.
    CServerProcess(unsigned short wPort, unsigned int dwFirstNumber, int hNetwork = -1);
    // Kills it when it is still there.
    ~CServerProcess();
    CServerProcess(const CServerProcess&) = delete;
    CServerProcess& operator=(const CServerProcess&) = delete;

    // At once: the server learns nothing of it.
    void Kill();

private:
    pid_t m_nProcess = -1;
};

#endif
