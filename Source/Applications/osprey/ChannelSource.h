#ifndef OSPREY_TOOL_CHANNELSOURCE_H
#define OSPREY_TOOL_CHANNELSOURCE_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ChannelSpec.h"
#include "LibOsprey.h"
#include "Pacer.h"
#include "PacketCutter.h"

// What IOspreyServer::PutChannelPacket answers.
enum EPutResult : unsigned int
{
    PUT_STORED = 0,
    PUT_NOT_STORED = 4,  // too large, or out of memory
    PUT_NOBODY = 5,      // nobody has opened the channel
};

// Puts a packet into a channel; the result is an EPutResult.
using CPutPacket = std::function<unsigned int(Orb_U32, const char*, size_t)>;

struct CSourceCounts
{
    Orb_U64 m_ullPackets = 0;  // stored
    Orb_U64 m_ullBytes = 0;
    Orb_U64 m_ullUnread = 0;   // not stored: nobody had opened the channel, or out of memory
    Orb_U64 m_ullTooLong = 0;  // datagrams dropped for their size
    Orb_U64 m_ullForeign = 0;  // datagrams dropped for their sender
};

// One open source of packets, driven by a loop: poll its descriptor while it wants data, Read when
// there is some, Serve when DueAt has come. Neither blocks, nor takes long.
//
// Thread: one.
// Time:   nanoseconds of any steady clock, given by the caller.
class IChannelSource
{
public:
    virtual ~IChannelSource() = default;

    virtual int Descriptor() const = 0;
    virtual bool WantsData() const = 0;
    virtual bool IsEnded() const = 0;

    // The descriptor has something to read, or its end.
    virtual void Read(const CPutPacket& fnPut) = 0;

    // When Serve has something to do; NEVER_DUE: not before more was read.
    virtual long long DueAt(long long llNow) const = 0;
    virtual void Serve(long long llNow, const CPutPacket& fnPut) = 0;

    const CSourceSpec& Spec() const
    {
        return m_spec;
    }
    const CSourceCounts& Counts() const
    {
        return m_counts;
    }
    // Why it ended early; empty when it did not.
    const std::string& Failure() const
    {
        return m_strFailure;
    }

    static const long long NEVER_DUE = 0x7FFFFFFFFFFFFFFF;

protected:
    explicit IChannelSource(const CSourceSpec& spec) : m_spec(spec) {}

    // Counts a packet that was put with that result.
    void Count(unsigned int dwResult, size_t nSize);

    CSourceSpec m_spec;
    CSourceCounts m_counts;
    std::string m_strFailure;
};

// Opens a source. Null with a plain reason, and bBusy: the address cannot be listened on.
std::unique_ptr<IChannelSource> OpenSource(const CSourceSpec& spec, const CStreamOptions& options,
                                           std::string& strReason, bool& bBusy);

#endif
