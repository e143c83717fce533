#ifndef OSPREY_TESTS_HEX_H
#define OSPREY_TESTS_HEX_H

#include <string>

// Bytes as text, so that a failed comparison shows them: "4e 41 4d 43", shortened past 512 bytes.
std::string Hex(const std::string& strBytes);

// nSize bytes of a fixed pattern in which every position can be told from its neighbours.
std::string Pattern(size_t nSize, unsigned int dwSeed = 1);

#endif
