#ifndef OSPREY_TOOL_SUBSCRIBELOG_H
#define OSPREY_TOOL_SUBSCRIBELOG_H

#include <set>
#include <string>
#include <vector>

#include "ChannelRow.h"
#include "ChannelSink.h"
#include "EventLog.h"
#include "Output.h"
#include "SubscribeStats.h"

// What is told of subscribed channels: a line for each change of the connection, figures, and a
// summary. The figures of channels with a stats sink are a line a second; on a terminal, those of
// every channel are a row that changes in place.
//
// Thread: one.
class CSubscribeLog final
{
public:
    // log and output must outlive this object.
    CSubscribeLog(CEventLog& log, COutput& output, const std::string& strPeer);

    void Connected(const std::vector<Orb_U32>& listChannels);
    // As text, only the first one after a connection or the start.
    void ConnectFailed();
    void Lost();

    // A sink drops packets; told once a sink.
    void Drops(const IChannelSink& sink);

    // Milliseconds until Tick has something to do; -1: never.
    int WaitMs() const;

    // Tells the figures when it is time to. setLines: the channels that get a line.
    void Tick(const CSubscribeStats& stats, const std::set<Orb_U32>& setLines);

    void Summary(const CChannelFigures& figures, const std::vector<const IChannelSink*>& listSinks);
    void LeaveRows();

private:
    void Draw(const std::vector<CChannelFigures>& listFigures);
    void Line(const CChannelFigures& figures, const CChannelFigures& before, double dSeconds);
    double Interval() const;

    CEventLog& m_log;
    COutput& m_output;
    const std::string m_strPeer;
    const bool m_bRows;
    const double m_dBegan;
    double m_dTicked;
    bool m_bConnected = false;
    bool m_bFailureTold = false;
    Orb_U64 m_ullLosses = 0;
    std::vector<CChannelFigures> m_listBefore;  // at the last tick
    std::vector<CChannelMeter> m_listMeters;
    std::set<const IChannelSink*> m_setDropsTold;
};

#endif
