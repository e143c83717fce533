#include "ChannelSource.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "UdpSocket.h"

namespace
{

const int DATAGRAMS_A_TURN = 256;
const int PACKETS_A_TURN = 64;
const long long RETRY_NS = 10000000;

class CUdpSource final : public IChannelSource
{
public:
    CUdpSource(const CSourceSpec& spec, int nSocket, const std::vector<unsigned int>& listFrom)
        : IChannelSource(spec), m_nSocket(nSocket), m_listFrom(listFrom)
    {
    }
    ~CUdpSource() override
    {
        close(m_nSocket);
    }
    CUdpSource(const CUdpSource&) = delete;
    CUdpSource& operator=(const CUdpSource&) = delete;

    int Descriptor() const override
    {
        return m_nSocket;
    }
    bool WantsData() const override
    {
        return true;
    }
    bool IsEnded() const override
    {
        return false;
    }
    long long DueAt(long long) const override
    {
        return NEVER_DUE;
    }
    void Serve(long long, const CPutPacket&) override {}
    void Read(const CPutPacket& fnPut) override;

private:
    bool IsForeign(const sockaddr_in& sender) const
    {
        return !m_listFrom.empty() && std::find(m_listFrom.begin(), m_listFrom.end(),
                                                ntohl(sender.sin_addr.s_addr)) == m_listFrom.end();
    }

    const int m_nSocket;
    const std::vector<unsigned int> m_listFrom;
};

void CUdpSource::Read(const CPutPacket& fnPut)
{
    for (int i = 0; i < DATAGRAMS_A_TURN; ++i)
    {
        char pPacket[MAX_PACKET_SIZE];
        sockaddr_in sender{};
        socklen_t nLength = sizeof sender;
        // The result is the datagram's whole size, also past the buffer's.
        const ssize_t n = recvfrom(m_nSocket, pPacket, sizeof pPacket, MSG_TRUNC | MSG_DONTWAIT,
                                   reinterpret_cast<sockaddr*>(&sender), &nLength);
        if (n < 0)
        {
            return;
        }
        const size_t nSize = static_cast<size_t>(n);
        if (IsForeign(sender))
        {
            ++m_counts.m_ullForeign;
        }
        else if (nSize > sizeof pPacket)
        {
            ++m_counts.m_ullTooLong;
        }
        else
        {
            Count(fnPut(m_spec.m_dwChannel, pPacket, nSize), nSize);
        }
    }
}

size_t PacketSize(const CStreamOptions& options)
{
    if (options.m_bLines)
    {
        return MAX_PACKET_SIZE;
    }
    return options.m_nPacketSize == 0 ? DEFAULT_PACKET_SIZE : options.m_nPacketSize;
}

class CStreamSource final : public IChannelSource
{
public:
    CStreamSource(const CSourceSpec& spec, int nDescriptor, const CStreamOptions& options)
        : IChannelSource(spec),
          m_nDescriptor(nDescriptor),
          m_bWait(options.m_bWait),
          m_cutter(PacketSize(options), options.m_bLines),
          m_pacer(options.m_dwRate)
    {
    }
    ~CStreamSource() override
    {
        if (m_nDescriptor != STDIN_FILENO)
        {
            close(m_nDescriptor);
        }
    }
    CStreamSource(const CStreamSource&) = delete;
    CStreamSource& operator=(const CStreamSource&) = delete;

    int Descriptor() const override
    {
        return m_nDescriptor;
    }
    bool WantsData() const override
    {
        return !m_bRead && m_cutter.Front().empty();
    }
    bool IsEnded() const override
    {
        return m_bRead && m_cutter.Front().empty();
    }
    long long DueAt(long long llNow) const override
    {
        return m_cutter.Front().empty() ? NEVER_DUE : std::max(m_llRetry, m_pacer.Due(llNow));
    }
    void Read(const CPutPacket& fnPut) override;
    void Serve(long long llNow, const CPutPacket& fnPut) override;

private:
    void End()
    {
        m_bRead = true;
        m_cutter.End();
    }

    const int m_nDescriptor;
    const bool m_bWait;
    CPacketCutter m_cutter;
    CPacer m_pacer;
    bool m_bRead = false;     // to its end
    long long m_llRetry = 0;  // nobody had opened the channel: not before then
};

void CStreamSource::Read(const CPutPacket&)
{
    char pBuffer[65536];
    const ssize_t n = read(m_nDescriptor, pBuffer, sizeof pBuffer);
    if (n > 0)
    {
        m_cutter.Add(pBuffer, static_cast<size_t>(n));
    }
    else if (n == 0)
    {
        End();
    }
    else if (errno != EINTR && errno != EAGAIN)
    {
        m_strFailure = strerror(errno);
        End();
    }
}

void CStreamSource::Serve(long long llNow, const CPutPacket& fnPut)
{
    for (int i = 0; i < PACKETS_A_TURN && DueAt(llNow) <= llNow; ++i)
    {
        const std::string_view packet = m_cutter.Front();
        const unsigned int dwResult = fnPut(m_spec.m_dwChannel, packet.data(), packet.size());
        if (dwResult == PUT_NOBODY && m_bWait)
        {
            m_llRetry = llNow + RETRY_NS;
            return;
        }
        m_pacer.Take(llNow);
        Count(dwResult, packet.size());
        m_cutter.Drop();
    }
}

std::unique_ptr<IChannelSource> OpenStream(const CSourceSpec& spec, const CStreamOptions& options,
                                           std::string& strReason)
{
    int nDescriptor = STDIN_FILENO;
    if (spec.m_eKind == SOURCE_FILE)
    {
        // Without a wait for the writer of a FIFO.
        nDescriptor = open(spec.m_strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    }
    struct stat info
    {
    };
    if (nDescriptor < 0 || fstat(nDescriptor, &info) != 0)
    {
        strReason = strerror(errno);
        return nullptr;
    }
    auto pSource = std::make_unique<CStreamSource>(spec, nDescriptor, options);
    if (S_ISDIR(info.st_mode))
    {
        strReason = strerror(EISDIR);
        return nullptr;
    }
    return pSource;
}

}  // namespace

void IChannelSource::Count(unsigned int dwResult, size_t nSize)
{
    if (dwResult != PUT_STORED)
    {
        ++m_counts.m_ullUnread;
        return;
    }
    ++m_counts.m_ullPackets;
    m_counts.m_ullBytes += nSize;
}

std::unique_ptr<IChannelSource> OpenSource(const CSourceSpec& spec, const CStreamOptions& options,
                                           std::string& strReason, bool& bBusy)
{
    bBusy = spec.m_eKind == SOURCE_UDP;
    if (!bBusy)
    {
        return OpenStream(spec, options, strReason);
    }
    CSourceSpec opened = spec;
    std::vector<unsigned int> listFrom;
    const int nSocket = OpenUdpReceiver(opened.m_udp, listFrom, strReason);
    return nSocket < 0 ? nullptr : std::make_unique<CUdpSource>(opened, nSocket, listFrom);
}
