#ifndef OSPREY_TESTS_PEERSCRIPT_H
#define OSPREY_TESTS_PEERSCRIPT_H

#include <string>

#include "RawSocket.h"

// A connection of the tool at a server whose every answer the test gives by hand.
class CPeerConnection
{
public:
    CPeerConnection() = default;
    explicit CPeerConnection(CRawSocket&& socket) : m_socket(std::move(socket)) {}

    // Takes the connection's name.
    void TakeName();

    // The next request but keep-alives, whose letters must be these. Returns it.
    std::string Expect(const char* pszCode);

    // An upload request is granted, and its blocks acknowledged.
    void TakeFile(unsigned int dwID);
    // A download request is granted, with these bytes.
    void GiveFile(const std::string& strBytes, unsigned int dwID);

    CRawSocket& Socket()
    {
        return m_socket;
    }

private:
    CRawSocket m_socket;
};

// Such a server.
class CPeerScript
{
public:
    // "127.0.0.1:PORT".
    std::string GetPeer() const;

    // The tool's next connection, its name taken.
    CPeerConnection AcceptOne();
    // The tool's next connection, which has no answer yet.
    CRawSocket AcceptUnnamed()
    {
        return m_server.Accept();
    }
    // Ends the tool's next connection before it has a name.
    void RefuseOne();
    // True when there is a connection that was not accepted.
    bool HasCaller() const
    {
        return HasCallerWithin(0);
    }
    // The same, or one comes in that time.
    bool HasCallerWithin(int nMilliseconds) const;

    CPeerConnection& Connection()
    {
        return m_connection;
    }

    // For a tool with one connection.
    void Accept()
    {
        m_connection = AcceptOne();
    }
    std::string Expect(const char* pszCode)
    {
        return m_connection.Expect(pszCode);
    }
    CRawSocket& Socket()
    {
        return m_connection.Socket();
    }

private:
    CRawServer m_server;
    CPeerConnection m_connection;
};

#endif
