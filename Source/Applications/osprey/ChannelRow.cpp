#include "ChannelRow.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "Text.h"
#include "Units.h"

namespace
{

const double LARGEST_RATE = 1e15;
const double DECIMALS_BELOW = 100.0;

std::string Pad(const std::string& strText, int nColumns)
{
    const int nMissing = std::max(nColumns - TextColumns(strText), 0);
    return std::string(static_cast<size_t>(nMissing), ' ') + strText;
}

}  // namespace

std::string RenderChannelRow(const CChannelRow& row, int nColumns)
{
    std::string strResult =
        ShortenText("channel " + std::to_string(row.m_dwChannel), std::max(nColumns, 0));
    const std::vector<std::string> listFigures = {
        Pad(FormatPacketRate(row.m_dPacketRate), 16), Pad(FormatByteRate(row.m_dByteRate), 12),
        Pad(FormatCount(row.m_ullPackets, "packet"), 16), row.m_strNote};
    for (const std::string& strFigure : listFigures)
    {
        if (strFigure.empty())
        {
            continue;
        }
        std::string strMore = "  " + strFigure;
        if (TextColumns(strResult + strMore) > nColumns)
        {
            // Without its padding it may still fit.
            strMore.erase(1, strMore.find_first_not_of(' ') - 1);
        }
        if (TextColumns(strResult + strMore) > nColumns)
        {
            break;
        }
        strResult += strMore;
    }
    return strResult;
}

std::string FormatPacketRate(double dRate)
{
    if (!(dRate >= 0.0))
    {
        return "- packets/s";
    }
    char szText[48];
    const bool bDecimals = dRate > 0.0 && dRate < DECIMALS_BELOW;
    snprintf(szText, sizeof szText, bDecimals ? "%.1f packets/s" : "%.0f packets/s",
             std::min(dRate, LARGEST_RATE));
    return szText;
}

std::string FormatByteRate(double dRate)
{
    return dRate >= 0.0
               ? FormatBytes(static_cast<Orb_U64>(std::min(dRate, LARGEST_RATE * 1000))) + "/s"
               : "- B/s";
}
