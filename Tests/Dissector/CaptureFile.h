#ifndef OSPREY_TESTS_CAPTUREFILE_H
#define OSPREY_TESTS_CAPTUREFILE_H

#include <cstdint>
#include <string>

#include "Relay.h"

// A capture in memory, in the format that every packet analyser reads: conversations as TCP
// segments of up to 1,448 bytes between 10.0.0.1 (clients) and 10.0.0.2 (server). What one side
// says before the other answers is one run of bytes, cut where segments end and not where packets
// end. Times are a millisecond a segment, so that the same conversations always make the same
// capture.
class CCaptureFile
{
public:
    // nLongest: how much of a packet is captured.
    explicit CCaptureFile(unsigned short wServerPort = 7580, size_t nLongest = 65535);

    // Each conversation is a connection of its own, with its handshake and its end.
    void Add(const CConversation& conversation);

    const std::string& GetBytes() const
    {
        return m_strBytes;
    }

private:
    struct CSide
    {
        uint32_t m_dwAddress;
        unsigned short m_wPort;
        uint32_t m_dwNext;  // sequence number of its next byte
    };
    void AddRun(CSide& from, CSide& to, const std::string& strBytes);
    void AddSegment(CSide& from, const CSide& to, unsigned char cFlags,
                    const std::string& strBytes);

    std::string m_strBytes;
    const unsigned short m_wServerPort;
    const size_t m_nLongest;
    unsigned short m_wClientPort = 40000;
    unsigned int m_dwSegments = 0;
};

#endif
