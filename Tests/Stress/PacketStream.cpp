#include "PacketStream.h"

#include <chrono>
#include <string>
#include <vector>

#include "NumberedPacket.h"

CPacketStream::~CPacketStream()
{
    m_bOver = true;
    if (m_thread.joinable())
    {
        m_thread.join();
    }
}

void CPacketStream::Begin(IOspreyServer* pServer, unsigned int dwChannels)
{
    m_thread = std::thread([this, pServer, dwChannels] { Run(pServer, dwChannels); });
}

void CPacketStream::Run(IOspreyServer* pServer, unsigned int dwChannels)
{
    std::vector<unsigned int> numbers(dwChannels);
    while (!m_bOver)
    {
        for (unsigned int i = 0; i < dwChannels; ++i)
        {
            std::string strPacket = VariedPacket(i + 1, numbers[i]);
            numbers[i] +=
                pServer->PutChannelPacket(i + 1, strPacket.data(),
                                          static_cast<unsigned int>(strPacket.size())) == 0
                    ? 1
                    : 0;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(4));  // the pace of the stream
    }
}
