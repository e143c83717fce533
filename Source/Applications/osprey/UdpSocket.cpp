#include "UdpSocket.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Address.h"
#include "Text.h"

namespace
{

const int BUFFER_BYTES = 4 * 1024 * 1024;  // asked for; the system may give less

std::string Because(const std::string& strWhat)
{
    return strWhat + ": " + strerror(errno);
}

bool Resolve(const std::string& strHost, std::vector<unsigned int>& listAddresses,
             std::string& strReason)
{
    CPeer peer;
    peer.m_strHost = strHost;
    listAddresses = ResolvePeer(peer, strReason);
    if (listAddresses.empty())
    {
        strReason = "cannot find " + PlainText(strHost) + ": " + strReason;
    }
    return !listAddresses.empty();
}

sockaddr_in AddressOf(unsigned int dwAddress, unsigned short wPort)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(dwAddress);
    address.sin_port = htons(wPort);
    return address;
}

// 0: the system chooses. False with a reason when there is no such interface, or no use for one.
bool InterfaceIndex(const CUdpSpec& udp, unsigned int dwAddress, int& nIndex,
                    std::string& strReason)
{
    nIndex = 0;
    if (udp.m_strInterface.empty())
    {
        return true;
    }
    if (!IN_MULTICAST(dwAddress))
    {
        strReason = "an interface goes with a multicast group only";
        return false;
    }
    nIndex = static_cast<int>(if_nametoindex(udp.m_strInterface.c_str()));
    if (nIndex == 0)
    {
        strReason = "there is no interface " + QuoteText(udp.m_strInterface);
    }
    return nIndex != 0;
}

bool JoinGroup(int nSocket, unsigned int dwGroup, int nInterface, std::string& strReason)
{
    const int nOff = 0;
    setsockopt(nSocket, IPPROTO_IP, IP_MULTICAST_ALL, &nOff, sizeof nOff);
    ip_mreqn request{};
    request.imr_multiaddr.s_addr = htonl(dwGroup);
    request.imr_ifindex = nInterface;
    if (setsockopt(nSocket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0)
    {
        return true;
    }
    strReason = Because("cannot join the group");
    return false;
}

bool Bind(int nSocket, CUdpSpec& udp, unsigned int dwAddress, std::string& strReason)
{
    const bool bGroup = IN_MULTICAST(dwAddress);
    int nInterface = 0;
    if (!InterfaceIndex(udp, dwAddress, nInterface, strReason))
    {
        return false;
    }
    const int nOn = 1;
    if (bGroup)
    {
        // A group is there for several receivers.
        setsockopt(nSocket, SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof nOn);
    }
    sockaddr_in address = AddressOf(dwAddress, udp.m_wPort);
    socklen_t nLength = sizeof address;
    sockaddr* pAddress = reinterpret_cast<sockaddr*>(&address);
    if (bind(nSocket, pAddress, nLength) != 0 || getsockname(nSocket, pAddress, &nLength) != 0)
    {
        strReason = strerror(errno);
        return false;
    }
    udp.m_wPort = ntohs(address.sin_port);
    return !bGroup || JoinGroup(nSocket, dwAddress, nInterface, strReason);
}

bool ConnectTo(int nSocket, const CUdpSpec& udp, unsigned int dwAddress, std::string& strReason)
{
    ip_mreqn request{};
    if (!InterfaceIndex(udp, dwAddress, request.imr_ifindex, strReason))
    {
        return false;
    }
    if (request.imr_ifindex != 0)
    {
        setsockopt(nSocket, IPPROTO_IP, IP_MULTICAST_IF, &request, sizeof request);
    }
    const sockaddr_in address = AddressOf(dwAddress, udp.m_wPort);
    if (connect(nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    {
        strReason = strerror(errno);
        return false;
    }
    return true;
}

int NewSocket(int nBuffer, std::string& strReason)
{
    const int nSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (nSocket < 0)
    {
        strReason = strerror(errno);
        return -1;
    }
    setsockopt(nSocket, SOL_SOCKET, nBuffer, &BUFFER_BYTES, sizeof BUFFER_BYTES);
    return nSocket;
}

}  // namespace

int OpenUdpReceiver(CUdpSpec& udp, std::vector<unsigned int>& listFrom, std::string& strReason)
{
    std::vector<unsigned int> listAddresses;
    if (!Resolve(udp.m_strHost, listAddresses, strReason) ||
        (!udp.m_strFrom.empty() && !Resolve(udp.m_strFrom, listFrom, strReason)))
    {
        return -1;
    }
    const int nSocket = NewSocket(SO_RCVBUF, strReason);
    if (nSocket >= 0 && !Bind(nSocket, udp, listAddresses.front(), strReason))
    {
        close(nSocket);
        return -1;
    }
    return nSocket;
}

int OpenUdpSender(const CUdpSpec& udp, std::string& strReason)
{
    std::vector<unsigned int> listAddresses;
    if (!Resolve(udp.m_strHost, listAddresses, strReason))
    {
        return -1;
    }
    const int nSocket = NewSocket(SO_SNDBUF, strReason);
    if (nSocket >= 0 && !ConnectTo(nSocket, udp, listAddresses.front(), strReason))
    {
        close(nSocket);
        return -1;
    }
    return nSocket;
}
