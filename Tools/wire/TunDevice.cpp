#include "TunDevice.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace
{

const size_t MAX_PACKET = 65536;

[[noreturn]] void Refuse(const std::string& strWhat)
{
    throw std::runtime_error(strWhat + ": " + strerror(errno));
}

// A descriptor that is closed at the end of the block.
class CHandle
{
public:
    CHandle(int hHandle, const std::string& strWhat) : m_hHandle(hHandle)
    {
        if (m_hHandle < 0)
        {
            Refuse(strWhat);
        }
    }
    ~CHandle()
    {
        close(m_hHandle);
    }
    CHandle(const CHandle&) = delete;
    CHandle& operator=(const CHandle&) = delete;

    int Get() const
    {
        return m_hHandle;
    }

private:
    int m_hHandle;
};

// The thread is in another network until the end of the block.
class CVisit
{
public:
    explicit CVisit(const std::string& strNetwork)
        : m_home(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC), "/proc/thread-self/ns/net")
    {
        const CHandle network(open(strNetwork.c_str(), O_RDONLY | O_CLOEXEC), strNetwork);
        if (setns(network.Get(), CLONE_NEWNET) != 0)
        {
            Refuse("entering " + strNetwork);
        }
    }
    ~CVisit()
    {
        // Nothing works in the wrong network.
        if (setns(m_home.Get(), CLONE_NEWNET) != 0)
        {
            abort();
        }
    }
    CVisit(const CVisit&) = delete;
    CVisit& operator=(const CVisit&) = delete;

private:
    CHandle m_home;
};

ifreq Request(const std::string& strName)
{
    ifreq request = {};
    if (strName.empty() || strName.size() >= sizeof request.ifr_name)
    {
        throw std::runtime_error("a device cannot have the name '" + strName + "'");
    }
    strName.copy(request.ifr_name, strName.size());
    return request;
}

void SetAddress(int hSocket, const std::string& strName, unsigned long nCommand, in_addr address)
{
    ifreq request = Request(strName);
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_addr = address;
    memcpy(&request.ifr_addr, &own, sizeof own);
    if (ioctl(hSocket, nCommand, &request) != 0)
    {
        Refuse("giving " + strName + " its address");
    }
}

// The address and its mask.
std::pair<in_addr, in_addr> ParseAddress(const std::string& strAddress)
{
    const size_t nSlash = strAddress.find('/');
    const unsigned long nLength =
        nSlash == std::string::npos ? 0 : strtoul(strAddress.c_str() + nSlash + 1, nullptr, 10);
    in_addr address = {};
    in_addr mask = {};
    if (nLength < 1 || nLength > 30 ||
        inet_pton(AF_INET, strAddress.substr(0, nSlash).c_str(), &address) != 1)
    {
        throw std::runtime_error("no IPv4 address with a length from 1 to 30: " + strAddress);
    }
    mask.s_addr = htonl(0xFFFFFFFFU << (32 - nLength));
    return {address, mask};
}

void BringUp(const std::string& strName, const std::string& strAddress)
{
    const auto [address, mask] = ParseAddress(strAddress);
    const CHandle socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
    SetAddress(socket.Get(), strName, SIOCSIFADDR, address);
    SetAddress(socket.Get(), strName, SIOCSIFNETMASK, mask);
    ifreq request = Request(strName);
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    if (ioctl(socket.Get(), SIOCSIFFLAGS, &request) != 0)
    {
        Refuse("bringing " + strName + " up");
    }
}

}  // namespace

CTunDevice::CTunDevice(const std::string& strNetwork, const std::string& strName,
                       const std::string& strAddress)
{
    const CVisit visit(strNetwork);
    try
    {
        Open(strName);
        BringUp(strName, strAddress);
    }
    catch (...)
    {
        close(m_hDevice);
        throw;
    }
}

CTunDevice::~CTunDevice()
{
    close(m_hDevice);
}

void CTunDevice::Open(const std::string& strName)
{
    m_hDevice = open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (m_hDevice < 0)
    {
        Refuse("/dev/net/tun");
    }
    ifreq request = Request(strName);
    request.ifr_flags = IFF_TUN | IFF_NO_PI;
    if (ioctl(m_hDevice, TUNSETIFF, &request) != 0)
    {
        Refuse("making the device " + strName);
    }
}

bool CTunDevice::Read(std::string& strPacket) const
{
    strPacket.resize(MAX_PACKET);
    const ssize_t nRead = read(m_hDevice, strPacket.data(), strPacket.size());
    strPacket.resize(nRead > 0 ? static_cast<size_t>(nRead) : 0);
    return nRead > 0;
}

void CTunDevice::Write(const std::string& strPacket) const
{
    if (write(m_hDevice, strPacket.data(), strPacket.size()) < 0 && errno == EBADF)
    {
        Refuse("writing to a device");
    }
}
