#ifndef OSPREY_TOOL_HEXDUMP_H
#define OSPREY_TOOL_HEXDUMP_H

#include <string>

#include "LibOsprey.h"

// A packet for people: a line with channel and size, then a line for each 16 bytes, each with its
// line feed. Whatever the packet holds, only printable ASCII comes out.
//
//   channel 1, 20 bytes
//     0000  47 40 11 10 00 42 f0 25  00 01 c1 00 00 ff 01 ff  |G@...B.%........|
//     0010  00 01 fc 80                                       |....|
std::string HexDump(Orb_U32 dwChannel, const char* pData, size_t nSize);

// The bytes as pairs of digits, "4740ff".
std::string HexDigits(const char* pData, size_t nSize);

#endif
