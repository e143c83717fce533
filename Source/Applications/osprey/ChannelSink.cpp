#include "ChannelSink.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "FileWriter.h"
#include "HexWriter.h"
#include "QueuedSink.h"
#include "UdpSocket.h"

namespace
{

class CUdpSink final : public IChannelSink
{
public:
    CUdpSink(const CSinkSpec& spec, int nSocket) : IChannelSink(spec), m_nSocket(nSocket) {}
    ~CUdpSink() override
    {
        close(m_nSocket);
    }
    CUdpSink(const CUdpSink&) = delete;
    CUdpSink& operator=(const CUdpSink&) = delete;

    void Put(const char* pData, size_t nSize) override
    {
        if (Send(pData, nSize))
        {
            return;
        }
        // A refusal tells of an earlier datagram; this one has not been tried yet.
        if (errno == ECONNREFUSED)
        {
            Send(pData, nSize);
        }
        ++m_ullDropped;
    }
    Orb_U64 Dropped() const override
    {
        return m_ullDropped;
    }

private:
    bool Send(const char* pData, size_t nSize) const
    {
        return send(m_nSocket, pData, nSize, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
    }

    const int m_nSocket;
    std::atomic<Orb_U64> m_ullDropped{0};
};

std::unique_ptr<IChannelSink> OpenFile(const CSinkSpec& spec, const CSinkContext& context,
                                       std::string& strReason, int& nCode)
{
    const bool bOutput = spec.m_eKind == SINK_OUTPUT;
    const int nFile = bOutput ? context.m_output.GiveAway()
                              : open(spec.m_strPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0666);
    if (nFile < 0)
    {
        strReason = strerror(errno);
        return nullptr;
    }
    auto pWriter = std::make_unique<CFileWriter>(nFile);
    if (isatty(nFile) == 1)
    {
        nCode = EXIT_USAGE;
        strReason = "it is a terminal, which is no place for raw data; hex is";
        return nullptr;
    }
    return std::make_unique<CQueuedSink>(spec, std::move(pWriter), context.m_fnWake);
}

}  // namespace

std::unique_ptr<IChannelSink> OpenSink(const CSinkSpec& spec, const CSinkContext& context,
                                       std::string& strReason, int& nCode)
{
    nCode = EXIT_FILE_FAILED;
    if (spec.m_eKind == SINK_HEX)
    {
        return std::make_unique<CQueuedSink>(
            spec, std::make_unique<CHexWriter>(context.m_output, context.m_eStyle),
            context.m_fnWake);
    }
    if (spec.m_eKind != SINK_UDP)
    {
        return OpenFile(spec, context, strReason, nCode);
    }
    nCode = EXIT_USAGE;
    const int nSocket = OpenUdpSender(spec.m_udp, strReason);
    return nSocket < 0 ? nullptr : std::make_unique<CUdpSink>(spec, nSocket);
}
