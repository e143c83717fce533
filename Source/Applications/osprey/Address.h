#ifndef OSPREY_TOOL_ADDRESS_H
#define OSPREY_TOOL_ADDRESS_H

#include <string>
#include <vector>

// The port of a server when none is named: chosen for this tool, on both ends.
const unsigned short OSPREY_DEFAULT_PORT = 7580;

// A peer as the command line names it.
struct CPeer
{
    std::string m_strHost;
    unsigned short m_wPort = OSPREY_DEFAULT_PORT;

    // "HOST:PORT", for messages.
    std::string ToString() const;
};

// A decimal port from nLowest to 65535, digits only.
bool ParsePort(const std::string& strText, unsigned short nLowest, unsigned short& wPort);

// "HOST" or "HOST:PORT", where HOST is a name or an IPv4 address. False with a plain reason
// otherwise; peer is then unchanged.
bool ParsePeer(const std::string& strText, CPeer& peer, std::string& strReason);

// The IPv4 addresses that share their first bits; in host byte order.
struct CAddressRange
{
    unsigned int m_dwAddress = 0;
    unsigned int m_dwMask = 0;

    bool Holds(unsigned int dwAddress) const
    {
        return ((dwAddress ^ m_dwAddress) & m_dwMask) == 0;
    }
};

// "ADDR" or "ADDR/BITS", BITS from 0 to 32.
bool ParseRange(const std::string& strText, CAddressRange& range);

// "192.168.0.7", of an address in host byte order.
std::string FormatAddress(unsigned int dwAddress);

// The IPv4 addresses of a host in the resolver's order, host byte order, each once. Empty with a
// plain reason when there is none. Blocks for as long as the resolver takes.
std::vector<unsigned int> ResolvePeer(const CPeer& peer, std::string& strReason);

#endif
