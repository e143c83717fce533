#ifndef OSPREY_TESTS_PEERSCRIPT_H
#define OSPREY_TESTS_PEERSCRIPT_H

#include <string>

#include "RawSocket.h"

// A server whose every answer the test gives by hand, for the tool as a client.
class CPeerScript
{
public:
    // "127.0.0.1:PORT".
    std::string GetPeer() const;

    // Takes the tool's connection and its name.
    void Accept();

    // The next request but keep-alives, whose letters must be these. Returns it.
    std::string Expect(const char* pszCode);

    CRawSocket& Socket()
    {
        return m_socket;
    }

private:
    CRawServer m_server;
    CRawSocket m_socket;
};

#endif
