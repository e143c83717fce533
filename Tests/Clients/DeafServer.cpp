#include "DeafServer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "RawSocket.h"

CDeafServer::CDeafServer()
{
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    m_hListener = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(bind(m_hListener, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    EXPECT_EQ(listen(m_hListener, 0), 0);
    addr.sin_port = htons(GetPort());
    for (int& hFiller : m_hFillers)
    {
        hFiller = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        // Under way for ever: that is what it is for.
        static_cast<void>(connect(hFiller, reinterpret_cast<sockaddr*>(&addr), sizeof addr));
    }
}

CDeafServer::~CDeafServer()
{
    for (const int hFiller : m_hFillers)
    {
        close(hFiller);
    }
    close(m_hListener);
}

unsigned short CDeafServer::GetPort() const
{
    return GetLocalPort(m_hListener);
}
