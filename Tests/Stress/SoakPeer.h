#ifndef OSPREY_TESTS_SOAKPEER_H
#define OSPREY_TESTS_SOAKPEER_H

#include <string>

#include "RawSocket.h"

// A raw connection of a soak, whose end by the server is an answer and no failure.
class CSoakPeer
{
public:
    // Connects and sends the bytes, which must fit into the socket; false when the server is not
    // there.
    bool Begin(unsigned short wPort, const std::string& strBytes);
    // As many bytes; fewer when the server has ended the connection. Fails the test at the
    // deadline.
    std::string Receive(size_t nSize);
    // A whole packet; empty when the server has ended the connection.
    std::string ReceivePacket();

    CRawSocket m_socket;
};

#endif
