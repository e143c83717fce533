#ifndef OSPREY_TOOL_HEXWRITER_H
#define OSPREY_TOOL_HEXWRITER_H

#include "EventLog.h"
#include "Output.h"
#include "QueuedSink.h"

// Prints packets as hex: a dump for people, or JSON lines.
class CHexWriter final : public IBatchWriter
{
public:
    CHexWriter(COutput& output, CEventLog::EStyle eStyle) : m_output(output), m_eStyle(eStyle) {}

    bool Write(const CPacketBatch& batch, std::string& strReason) override;
    bool Close(std::string& strReason) override;

private:
    COutput& m_output;
    const CEventLog::EStyle m_eStyle;
};

#endif
