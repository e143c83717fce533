// What the real server tells a service manager.

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstring>

#include "Descriptor.h"
#include "ServedFolder.h"

namespace
{

// The manager's end. A name that begins with "@" is an abstract one.
class CManager
{
public:
    explicit CManager(const std::string& strName)
        : m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        EXPECT_LT(strName.size(), sizeof address.sun_path);
        strName.copy(address.sun_path, sizeof address.sun_path - 1);
        const bool bAbstract = strName[0] == '@';
        address.sun_path[0] = bAbstract ? '\0' : strName[0];
        const size_t nSize =
            offsetof(sockaddr_un, sun_path) + strName.size() + (bAbstract ? 0U : 1U);
        EXPECT_EQ(bind(m_socket.Get(), reinterpret_cast<sockaddr*>(&address),
                       static_cast<socklen_t>(nSize)),
                  0)
            << strerror(errno);
        setenv("NOTIFY_SOCKET", strName.c_str(), 1);
    }
    ~CManager()
    {
        unsetenv("NOTIFY_SOCKET");
    }
    CManager(const CManager&) = delete;
    CManager& operator=(const CManager&) = delete;

    std::string Receive() const
    {
        pollfd polled{m_socket.Get(), POLLIN, 0};
        EXPECT_EQ(poll(&polled, 1, WAIT_MS), 1) << "waited for a datagram";
        char pBuffer[4096];
        const ssize_t n = recv(m_socket.Get(), pBuffer, sizeof pBuffer, MSG_DONTWAIT);
        return n > 0 ? std::string(pBuffer, static_cast<size_t>(n)) : std::string();
    }

private:
    CDescriptor m_socket;
};

void ExpectStartAndEndToldTo(const std::string& strName)
{
    const CManager manager(strName);
    CServedFolder served;
    EXPECT_EQ(manager.Receive(), "READY=1\nSTATUS=Serving \"" + served.GetRoot() + "\" on port " +
                                     std::to_string(served.GetPort()));
    EXPECT_EQ(served.Stop(), 0);
    EXPECT_EQ(manager.Receive().substr(0, 18), "STOPPING=1\nSTATUS=");
}

}  // namespace

TEST(ServiceNotice, StartAndEndAreToldToASocketInAFolder)
{
    const CTempFolder folder;
    ExpectStartAndEndToldTo(folder.GetPath("notify"));
}

TEST(ServiceNotice, StartAndEndAreToldToAnAbstractSocket)
{
    ExpectStartAndEndToldTo("@osprey-test-" + std::to_string(getpid()));
}

TEST(ServiceNotice, ManagerThatIsGoneOrNoneChangesNothing)
{
    const CTempFolder folder;
    for (const std::string& strName : {std::string("relative"), folder.GetPath("nobody"),
                                       std::string("@"), std::string(200, '@'), std::string()})
    {
        setenv("NOTIFY_SOCKET", strName.c_str(), 1);
        CServedFolder served;
        EXPECT_EQ(served.Stop(), 0) << strName;
    }
    unsetenv("NOTIFY_SOCKET");
}
