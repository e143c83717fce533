#include "SubscribeLog.h"

#include <algorithm>
#include <chrono>

#include "Text.h"
#include "Units.h"

namespace
{

const double ROWS_INTERVAL = 0.125;  // seconds
const double LINES_INTERVAL = 1.0;
const int SPARE_COLUMNS = 3;  // the cursor stays on the row, also behind an echoed ^C

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Empty when nobody knows.
std::string GapsText(const CChannelFigures& figures)
{
    if (figures.m_eFormat == CGapCounter::FORMAT_UNKNOWN)
    {
        return std::string();
    }
    return figures.m_ullGaps == 0 ? "no gaps" : FormatCount(figures.m_ullGaps, "gap");
}

std::string Join(const std::string& strText, const std::string& strMore)
{
    return strText + (strText.empty() || strMore.empty() ? "" : ", ") + strMore;
}

CJsonLine& AddGaps(CJsonLine& json, const CChannelFigures& figures)
{
    json.Text("format", FormatName(figures.m_eFormat));
    if (figures.m_eFormat != CGapCounter::FORMAT_UNKNOWN)
    {
        json.Number("gaps", figures.m_ullGaps);
    }
    return json;
}

}  // namespace

CSubscribeLog::CSubscribeLog(CEventLog& log, COutput& output, const std::string& strPeer)
    : m_log(log),
      m_output(output),
      m_strPeer(strPeer),
      m_bRows(log.Style() == CEventLog::STYLE_TEXT && output.IsTerminal()),
      m_dBegan(Now()),
      m_dTicked(m_dBegan)
{
}

void CSubscribeLog::Connected(const std::vector<Orb_U32>& listChannels)
{
    m_bConnected = true;
    m_bFailureTold = false;
    CJsonLine json("connected");
    json.Text("peer", m_strPeer).Numbers("channels", listChannels);
    m_log.Write(json, "connected",
                "to " + PlainText(m_strPeer) + ", " + FormatChannels(listChannels));
}

void CSubscribeLog::ConnectFailed()
{
    if (m_log.Style() == CEventLog::STYLE_JSON || !m_bFailureTold)
    {
        m_log.Write(CJsonLine("connect_failed").Text("peer", m_strPeer), "refused",
                    PlainText(m_strPeer) + " is not to be reached; retrying");
    }
    m_bFailureTold = true;
}

void CSubscribeLog::Lost()
{
    m_bConnected = false;
    ++m_ullLosses;
    m_log.Write(CJsonLine("disconnected").Text("peer", m_strPeer), "lost",
                "the connection to " + PlainText(m_strPeer) + "; retrying");
}

void CSubscribeLog::Drops(const IChannelSink& sink)
{
    if (m_setDropsTold.insert(&sink).second)
    {
        m_output.Error("channel " + std::to_string(sink.Spec().m_dwChannel) + " to " +
                       sink.Spec().Shown() + ": packets are dropped");
    }
}

double CSubscribeLog::Interval() const
{
    return m_bRows ? ROWS_INTERVAL : LINES_INTERVAL;
}

int CSubscribeLog::WaitMs() const
{
    if (m_log.Style() == CEventLog::STYLE_QUIET)
    {
        return -1;
    }
    const double dLeft = std::max(m_dTicked + Interval() - Now(), 0.0);
    return static_cast<int>(dLeft * 1000.0) + 1;
}

void CSubscribeLog::Tick(const CSubscribeStats& stats, const std::set<Orb_U32>& setLines)
{
    const double dNow = Now();
    const double dSeconds = dNow - m_dTicked;
    if (m_log.Style() == CEventLog::STYLE_QUIET || dSeconds < Interval())
    {
        return;
    }
    // From the planned time on, so that a line a second stays one; from now on after a long stop.
    m_dTicked = dSeconds < 2.0 * Interval() ? m_dTicked + Interval() : dNow;
    const std::vector<CChannelFigures> listFigures = stats.Figures();
    if (m_bRows)
    {
        Draw(listFigures);
        return;
    }
    m_listBefore.resize(listFigures.size());
    for (size_t i = 0; i < listFigures.size(); ++i)
    {
        if (setLines.count(listFigures[i].m_dwChannel) > 0)
        {
            Line(listFigures[i], m_listBefore[i], dSeconds);
        }
    }
    m_listBefore = listFigures;
}

void CSubscribeLog::Draw(const std::vector<CChannelFigures>& listFigures)
{
    const double dNow = Now();
    m_listMeters.resize(listFigures.size());
    std::vector<std::string> listRows;
    listRows.reserve(listFigures.size());
    for (size_t i = 0; i < listFigures.size(); ++i)
    {
        const CChannelFigures& figures = listFigures[i];
        CChannelMeter& meter = m_listMeters[i];
        meter.Add(dNow, figures.m_ullPackets, figures.m_ullBytes);
        const CChannelRow row{figures.m_dwChannel, meter.PacketRate(), meter.ByteRate(),
                              figures.m_ullPackets,
                              Join(GapsText(figures), m_bConnected ? "" : "not connected")};
        listRows.push_back(RenderChannelRow(row, m_output.Columns() - SPARE_COLUMNS));
    }
    m_output.Draw(listRows);
}

void CSubscribeLog::Line(const CChannelFigures& figures, const CChannelFigures& before,
                         double dSeconds)
{
    const double dPackets =
        static_cast<double>(figures.m_ullPackets - before.m_ullPackets) / dSeconds;
    const double dBytes = static_cast<double>(figures.m_ullBytes - before.m_ullBytes) / dSeconds;
    CJsonLine json("stats");
    json.Number("channel", figures.m_dwChannel).Flag("connected", m_bConnected);
    json.Real("packets_per_second", dPackets).Real("bytes_per_second", dBytes);
    json.Number("packets", figures.m_ullPackets).Number("bytes", figures.m_ullBytes);
    const std::string strNote = Join(GapsText(figures), m_bConnected ? "" : "not connected");
    const std::string strText = FormatPacketRate(dPackets) + ", " + FormatByteRate(dBytes) + ", " +
                                FormatCount(figures.m_ullPackets, "packet");
    m_log.Write(AddGaps(json, figures), "stats",
                "channel " + std::to_string(figures.m_dwChannel) + ": " + Join(strText, strNote));
}

void CSubscribeLog::Summary(const CChannelFigures& figures,
                            const std::vector<const IChannelSink*>& listSinks)
{
    const double dSeconds = Now() - m_dBegan;
    Orb_U64 ullDropped = 0;
    std::string strText = FormatCount(figures.m_ullPackets, "packet") + ", " +
                          FormatBytes(figures.m_ullBytes) + " in " + FormatTaken(dSeconds);
    strText = Join(strText, GapsText(figures));
    for (const IChannelSink* pSink : listSinks)
    {
        const Orb_U64 ullSink = pSink->Dropped();
        ullDropped += ullSink;
        strText += ullSink == 0
                       ? ""
                       : ", " + std::to_string(ullSink) + " dropped by " + pSink->Spec().Shown();
    }
    strText += m_ullLosses == 0 ? "" : ", connection lost " + FormatCount(m_ullLosses, "time");
    CJsonLine json("summary");
    json.Number("channel", figures.m_dwChannel).Number("packets", figures.m_ullPackets);
    AddGaps(json.Moved(figures.m_ullBytes, dSeconds), figures);
    json.Number("dropped", ullDropped).Number("connection_losses", m_ullLosses);
    m_log.Write(json, "summary", "channel " + std::to_string(figures.m_dwChannel) + ": " + strText);
}

void CSubscribeLog::LeaveRows()
{
    m_output.LeaveRows();
}
