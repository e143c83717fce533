#include "ProgressBar.h"

#include <algorithm>
#include <cstdio>

#include "Text.h"

namespace
{

const char STALLED[] = "stalled";
const int COLUMNS_FOR_RATE = 44;
const int COLUMNS_FOR_LEFT = 56;
const int RATE_COLUMNS = 12;
const int LEFT_COLUMNS = 8;
const int SHORTEST_LABEL = 8;
const int LONGEST_LABEL = 48;
const int SHORTEST_CELLS = 8;
const int CELLS_FRAME = 3;  // a blank and two brackets

std::string PadLeft(const std::string& strText, int nColumns)
{
    const int nMissing = nColumns - static_cast<int>(strText.size());
    return std::string(static_cast<size_t>(std::max(nMissing, 0)), ' ') + strText;
}

std::string Cells(unsigned int dwPercent, int nCells)
{
    const size_t nAll = static_cast<size_t>(nCells);
    const size_t nFull = nAll * dwPercent / 100;
    return " [" + std::string(nFull, '#') + std::string(nAll - nFull, '.') + "]";
}

std::string Figures(const CBar& bar, int nColumns)
{
    char szPercent[16];
    snprintf(szPercent, sizeof szPercent, " %3u%%", std::min(bar.m_dwPercent, 100U));
    std::string strResult = szPercent;
    if (bar.m_bStalled && nColumns < COLUMNS_FOR_RATE)
    {
        return std::string(" ") + STALLED;
    }
    if (nColumns >= COLUMNS_FOR_RATE)
    {
        strResult += "  " + PadLeft(bar.m_bStalled ? STALLED : bar.m_strRate, RATE_COLUMNS);
    }
    if (nColumns >= COLUMNS_FOR_LEFT)
    {
        strResult += "  " + PadLeft(bar.m_bStalled ? "" : bar.m_strLeft, LEFT_COLUMNS);
    }
    return strResult;
}

}  // namespace

std::string RenderBar(const CBar& bar, int nColumns)
{
    const std::string strFigures = Figures(bar, nColumns);
    const int nRest = nColumns - static_cast<int>(strFigures.size());
    if (nRest < 0)
    {
        return std::string();
    }
    int nLabel = std::min(std::max(nRest / 2, SHORTEST_LABEL), LONGEST_LABEL);
    const int nCells = nRest - nLabel - CELLS_FRAME;
    const bool bCells = nCells >= SHORTEST_CELLS;
    nLabel = bCells ? nLabel : nRest;
    std::string strResult = ShortenText(bar.m_strLabel, nLabel);
    const int nPadding = std::max(nLabel - TextColumns(strResult), 0);
    strResult.append(static_cast<size_t>(nPadding), ' ');
    if (bCells)
    {
        strResult += Cells(std::min(bar.m_dwPercent, 100U), nCells);
    }
    return strResult + strFigures;
}

unsigned int Percent(unsigned long long ullDone, unsigned long long ullTotal)
{
    if (ullDone >= ullTotal)
    {
        return 100;
    }
    const double dPercent = static_cast<double>(ullDone) * 100.0 / static_cast<double>(ullTotal);
    return std::min(static_cast<unsigned int>(dPercent), 99U);
}
