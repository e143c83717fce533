#include "ServiceNotice.h"

#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstring>

CServiceNotice::CServiceNotice()
{
    const char* pszName = getenv("NOTIFY_SOCKET");
    const size_t nLength = pszName == nullptr ? 0 : strlen(pszName);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (nLength < 2 || nLength >= sizeof address.sun_path || strchr("/@", *pszName) == nullptr)
    {
        return;
    }
    memcpy(address.sun_path, pszName, nLength);
    // An abstract socket: its name begins with a zero byte, and has no end but its length.
    address.sun_path[0] = *pszName == '@' ? '\0' : *pszName;
    const bool bAbstract = *pszName == '@';
    const size_t nSize = offsetof(sockaddr_un, sun_path) + nLength + (bAbstract ? 0 : 1);
    m_socket = CDescriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (connect(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address),
                static_cast<socklen_t>(nSize)) != 0)
    {
        m_socket.Close();
    }
}

void CServiceNotice::Ready(const std::string& strStatus) const
{
    Send("READY=1\nSTATUS=" + strStatus);
}

void CServiceNotice::Stopping() const
{
    Send("STOPPING=1\nSTATUS=Ending the connections");
}

void CServiceNotice::Send(const std::string& strText) const
{
    if (m_socket.IsValid())
    {
        // A manager that does not listen must not hold the tool up.
        static_cast<void>(
            send(m_socket.Get(), strText.data(), strText.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
    }
}
