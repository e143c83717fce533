#ifndef OSPREY_TESTS_SERVERPROCESS_H
#define OSPREY_TESTS_SERVERPROCESS_H

#include <sys/types.h>

#include <string>

// A server in a process of its own, which can be killed. From Start on it puts numbered packets,
// from the number given on, into channels 1, 2 and 3, one of each every 5 ms, whether or not
// anybody reads; a packet that nobody reads is put again.
class CServerProcess
{
public:
    // Makes the process, which then waits. hNamespace: the network that it lives in; -1: the
    // test's. REQUIRES: the test has no other thread yet.
    CServerProcess(unsigned short wPort, unsigned int dwFirstNumber, int hNamespace = -1);
    // Kills it when it is still there.
    ~CServerProcess();
    CServerProcess(const CServerProcess&) = delete;
    CServerProcess& operator=(const CServerProcess&) = delete;

    // Returns when the server listens; fails the test when it cannot.
    void Start() const;
    // At once: the server learns nothing of it.
    void Kill();

private:
    pid_t m_nProcess = -1;
    int m_hLink = -1;  // one byte there starts it, one byte back says that it listens
};

#endif
