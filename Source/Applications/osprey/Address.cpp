#include "Address.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

std::string CPeer::ToString() const
{
    return m_strHost + ":" + std::to_string(m_wPort);
}

bool ParsePort(const std::string& strText, unsigned short nLowest, unsigned short& wPort)
{
    if (strText.empty() || strText.size() > 5 ||
        strText.find_first_not_of("0123456789") != std::string::npos)
    {
        return false;
    }
    const unsigned long nValue = std::stoul(strText);
    if (nValue < nLowest || nValue > 65535)
    {
        return false;
    }
    wPort = static_cast<unsigned short>(nValue);
    return true;
}

bool ParsePeer(const std::string& strText, CPeer& peer, std::string& strReason)
{
    const size_t nColon = strText.find(':');
    if (nColon != std::string::npos && strText.find(':', nColon + 1) != std::string::npos)
    {
        strReason = "IPv6 addresses are not supported";
        return false;
    }
    CPeer result;
    result.m_strHost = strText.substr(0, nColon);
    if (result.m_strHost.empty())
    {
        strReason = "the host name is empty";
        return false;
    }
    if (nColon != std::string::npos && !ParsePort(strText.substr(nColon + 1), 1, result.m_wPort))
    {
        strReason = "the port is not a number from 1 to 65535";
        return false;
    }
    peer = result;
    return true;
}

bool ParseRange(const std::string& strText, CAddressRange& range)
{
    const size_t nSlash = strText.find('/');
    const std::string strBits = nSlash == std::string::npos ? "32" : strText.substr(nSlash + 1);
    in_addr address{};
    if (inet_pton(AF_INET, strText.substr(0, nSlash).c_str(), &address) != 1 || strBits.empty() ||
        strBits.size() > 2 || strBits.find_first_not_of("0123456789") != std::string::npos ||
        std::stoul(strBits) > 32)
    {
        return false;
    }
    const unsigned long nBits = std::stoul(strBits);
    range.m_dwAddress = ntohl(address.s_addr);
    range.m_dwMask = nBits == 0 ? 0 : ~0U << (32 - nBits);
    return true;
}

std::string FormatAddress(unsigned int dwAddress)
{
    char szText[INET_ADDRSTRLEN] = "";
    const in_addr address{htonl(dwAddress)};
    inet_ntop(AF_INET, &address, szText, sizeof szText);
    return szText;
}

std::vector<unsigned int> ResolvePeer(const CPeer& peer, std::string& strReason)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* pFirst = nullptr;
    const int nError = getaddrinfo(peer.m_strHost.c_str(), nullptr, &hints, &pFirst);
    std::vector<unsigned int> listAddresses;
    if (nError != 0)
    {
        strReason = nError == EAI_SYSTEM ? strerror(errno) : gai_strerror(nError);
        return listAddresses;
    }
    for (const addrinfo* p = pFirst; p != nullptr; p = p->ai_next)
    {
        sockaddr_in address{};
        memcpy(&address, p->ai_addr, sizeof address);
        const unsigned int dwAddress = ntohl(address.sin_addr.s_addr);
        if (std::find(listAddresses.begin(), listAddresses.end(), dwAddress) == listAddresses.end())
        {
            listAddresses.push_back(dwAddress);
        }
    }
    freeaddrinfo(pFirst);
    return listAddresses;
}
