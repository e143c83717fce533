#ifndef OSPREY_TOOL_PACKETCUTTER_H
#define OSPREY_TOOL_PACKETCUTTER_H

#include <string>
#include <string_view>

// The most bytes that a channel packet holds.
const size_t MAX_PACKET_SIZE = 1500;

// Cuts a stream of bytes into packets: of one size, or a line each with its line feed, where lines
// that are longer than a packet can be are split. What is left at the end is the last packet.
class CPacketCutter final
{
public:
    // nPacketSize: 1 to MAX_PACKET_SIZE; lines: MAX_PACKET_SIZE.
    CPacketCutter(size_t nPacketSize, bool bLines) : m_nPacketSize(nPacketSize), m_bLines(bLines) {}

    void Add(const char* pData, size_t nSize);

    // Nothing more will be added.
    void End()
    {
        m_bEnded = true;
    }

    // The next packet, valid until the next Add; empty when none is whole yet.
    std::string_view Front() const;

    // Takes the next packet off.
    void Drop();

private:
    const size_t m_nPacketSize;
    const bool m_bLines;
    bool m_bEnded = false;
    std::string m_strBytes;
    size_t m_nTaken = 0;  // of m_strBytes
};

#endif
