#ifndef OSPREY_TOOL_UDPSOCKET_H
#define OSPREY_TOOL_UDPSOCKET_H

#include <string>
#include <vector>

#include "ChannelSpec.h"

// Both operations return a non-blocking socket for the caller to close, or -1 with a plain reason.
// They block for as long as the resolver takes.

// A socket that receives at the address, and of the group when it is a multicast one. Stores the
// port that it got in udp. listFrom: the senders that count, host byte order; empty: all.
int OpenUdpReceiver(CUdpSpec& udp, std::vector<unsigned int>& listFrom, std::string& strReason);

// A socket that is connected to the address: it sends there and nowhere else.
int OpenUdpSender(const CUdpSpec& udp, std::string& strReason);

#endif
