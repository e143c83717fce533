#ifndef OSPREY_TESTS_TRANSPORTCELLS_H
#define OSPREY_TESTS_TRANSPORTCELLS_H

#include <string>

// One 188-byte cell of MPEG-TS with payload, which dwSeed makes.
std::string TransportCell(unsigned int dwPid, unsigned int dwCounter, unsigned int dwSeed = 0);

// One with an adaptation field of one byte of flags, with or without payload.
std::string TransportCell(unsigned int dwPid, unsigned int dwCounter, unsigned char cFlags,
                          bool bPayload);

// nCells cells of one PID whose counters follow each other.
std::string TransportStream(unsigned int dwPid, size_t nCells);

#endif
