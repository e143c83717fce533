#ifndef OSPREY_TOOL_CHANNELSINK_H
#define OSPREY_TOOL_CHANNELSINK_H

#include <functional>
#include <memory>
#include <string>

#include "ChannelSpec.h"
#include "EventLog.h"
#include "Output.h"

// Where the packets of a channel go.
//
// Thread: Put on the worker of the client, and never blocks; the rest on the main thread.
class IChannelSink
{
public:
    virtual ~IChannelSink() = default;

    // Before the first packet.
    virtual void Start() {}

    virtual void Put(const char* pData, size_t nSize) = 0;

    // No more packets will come: completes what is under way, which may take its time.
    virtual void Finish() {}

    // Packets that were not written: the sink was too slow, or the socket refused them.
    virtual Orb_U64 Dropped() const = 0;

    // Why nothing can be written any more; empty while it can.
    virtual std::string Failure() const
    {
        return std::string();
    }

    const CSinkSpec& Spec() const
    {
        return m_spec;
    }

protected:
    explicit IChannelSink(const CSinkSpec& spec) : m_spec(spec) {}

private:
    const CSinkSpec m_spec;
};

// What sinks need of their run.
struct CSinkContext
{
    COutput& m_output;
    CEventLog::EStyle m_eStyle;      // of hex
    std::function<void()> m_fnWake;  // a sink has failed: look at Failure; any thread
};

// Opens a sink that is not SINK_STATS. Null with a plain reason, and nCode: what to end with.
std::unique_ptr<IChannelSink> OpenSink(const CSinkSpec& spec, const CSinkContext& context,
                                       std::string& strReason, int& nCode);

#endif
