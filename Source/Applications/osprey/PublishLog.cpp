#include "PublishLog.h"

#include <chrono>

#include "Text.h"
#include "Units.h"

namespace
{

const int DRAW_INTERVAL_MS = 125;
const int SPARE_COLUMNS = 3;  // the cursor stays on the row, also behind an echoed ^C

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

CJsonLine JsonOf(const char* pszEvent, const CSourceSpec& spec)
{
    CJsonLine json(pszEvent);
    json.Number("channel", spec.m_dwChannel);
    json.Text("source", spec.m_eKind == SOURCE_FILE ? spec.m_strPath : spec.Shown());
    return json;
}

std::string NameOf(const CSourceSpec& spec)
{
    return "channel " + std::to_string(spec.m_dwChannel) + " from " + spec.Shown();
}

// "12 packets, 15.4 KiB, 3 that nobody read".
std::string TextOf(const CSourceCounts& counts)
{
    std::string strText =
        FormatCount(counts.m_ullPackets, "packet") + ", " + FormatBytes(counts.m_ullBytes);
    const std::pair<Orb_U64, const char*> listMore[] = {
        {counts.m_ullUnread, " that nobody read"},
        {counts.m_ullTooLong, " too long"},
        {counts.m_ullForeign, " from other senders"},
    };
    for (const auto& [ullCount, pszWhat] : listMore)
    {
        strText += ullCount == 0 ? "" : ", " + std::to_string(ullCount) + pszWhat;
    }
    return strText;
}

}  // namespace

CPublishLog::CPublishLog(CEventLog& log, COutput& output, bool bRows)
    : m_log(log),
      m_output(output),
      m_bRows(bRows && log.Style() == CEventLog::STYLE_TEXT && output.IsTerminal())
{
}

void CPublishLog::Opened(const CSourceSpec& spec)
{
    m_log.Write(JsonOf("source", spec), "source", NameOf(spec));
}

void CPublishLog::Ended(const IChannelSource& source)
{
    CJsonLine json = JsonOf("ended", source.Spec());
    if (!source.Failure().empty())
    {
        json.Text("reason", source.Failure());
        m_output.Error(NameOf(source.Spec()) + ": " + source.Failure());
    }
    m_log.Write(json, "ended", NameOf(source.Spec()));
}

void CPublishLog::TooLong(const IChannelSource& source)
{
    m_output.Error(NameOf(source.Spec()) + ": datagrams over " + std::to_string(MAX_PACKET_SIZE) +
                   " bytes are dropped");
}

void CPublishLog::Summary(const IChannelSource& source)
{
    const CSourceCounts& counts = source.Counts();
    CJsonLine json = JsonOf("summary", source.Spec());
    json.Number("packets", counts.m_ullPackets).Number("bytes", counts.m_ullBytes);
    json.Number("unread", counts.m_ullUnread).Number("too_long", counts.m_ullTooLong);
    json.Number("foreign", counts.m_ullForeign);
    m_log.Write(json, "summary", NameOf(source.Spec()) + ": " + TextOf(counts));
}

int CPublishLog::DrawInterval() const
{
    return m_bRows ? DRAW_INTERVAL_MS : -1;
}

void CPublishLog::Draw(const std::vector<const IChannelSource*>& listSources)
{
    const double dNow = Now();
    if (!m_bRows || dNow - m_dDrawn < DRAW_INTERVAL_MS * 0.95 / 1000.0)
    {
        return;
    }
    m_dDrawn = dNow;
    m_listMeters.resize(listSources.size());
    std::vector<std::string> listRows;
    listRows.reserve(listSources.size());
    for (size_t i = 0; i < listSources.size(); ++i)
    {
        const CSourceCounts& counts = listSources[i]->Counts();
        CChannelMeter& meter = m_listMeters[i];
        meter.Add(dNow, counts.m_ullPackets, counts.m_ullBytes);
        const CChannelRow row{
            listSources[i]->Spec().m_dwChannel, meter.PacketRate(), meter.ByteRate(),
            counts.m_ullPackets,
            counts.m_ullUnread == 0 ? "" : std::to_string(counts.m_ullUnread) + " unread"};
        listRows.push_back(RenderChannelRow(row, m_output.Columns() - SPARE_COLUMNS));
    }
    m_output.Draw(listRows);
}

void CPublishLog::LeaveRows()
{
    m_output.LeaveRows();
}
