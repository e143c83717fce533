#ifndef OSPREY_TESTS_NUMBEREDPACKET_H
#define OSPREY_TESTS_NUMBEREDPACKET_H

#include <string>

// What a transport stream carries in a datagram.
const size_t STREAM_PACKET = 1316;

// The data of a packet that says what it is: its channel and number, the rest filled after them.
std::string NumberedPacket(unsigned int dwChannel, unsigned int dwNumber,
                           size_t nSize = STREAM_PACKET);

// The same in a size that goes with its number, 8 to 1,500 bytes.
std::string VariedPacket(unsigned int dwChannel, unsigned int dwNumber);

#endif
