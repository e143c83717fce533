#ifndef OSPREY_TOOL_PUBLISHLOG_H
#define OSPREY_TOOL_PUBLISHLOG_H

#include <vector>

#include "ChannelRow.h"
#include "ChannelSource.h"
#include "EventLog.h"
#include "Output.h"

// What is told of published channels: a line each when a source opens and ends, a summary, and on a
// terminal a row for every channel. Warnings and failures go to standard error in every style.
//
// Thread: one.
class CPublishLog final
{
public:
    // bRows: rows may be drawn. log and output must outlive this object.
    CPublishLog(CEventLog& log, COutput& output, bool bRows);

    void Opened(const CSourceSpec& spec);
    void Ended(const IChannelSource& source);
    void TooLong(const IChannelSource& source);
    void Summary(const IChannelSource& source);

    // Milliseconds after which Draw has something to do; -1: never.
    int DrawInterval() const;
    void Draw(const std::vector<const IChannelSource*>& listSources);
    void LeaveRows();

    COutput& Output()
    {
        return m_output;
    }

private:
    CEventLog& m_log;
    COutput& m_output;
    const bool m_bRows;
    double m_dDrawn = 0.0;
    std::vector<CChannelMeter> m_listMeters;  // one a source
};

#endif
