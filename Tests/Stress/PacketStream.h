#ifndef OSPREY_TESTS_PACKETSTREAM_H
#define OSPREY_TESTS_PACKETSTREAM_H

#include <atomic>
#include <thread>

#include "LibOsprey.h"

// A thread that puts packets of VariedPacket, from 0, into the channels 1 and on, also while the
// server starts and ends. One that is not stored, since nobody reads its channel, is put again.
class CPacketStream
{
public:
    CPacketStream() = default;
    ~CPacketStream();
    CPacketStream(const CPacketStream&) = delete;
    CPacketStream& operator=(const CPacketStream&) = delete;

    // Once. The server must outlive this.
    void Begin(IOspreyServer* pServer, unsigned int dwChannels);

private:
    void Run(IOspreyServer* pServer, unsigned int dwChannels);

    std::atomic<bool> m_bOver{false};
    std::thread m_thread;
};

#endif
