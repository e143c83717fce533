#include "Progress.h"

#include <algorithm>
#include <chrono>

#include "JsonLine.h"
#include "ProgressBar.h"
#include "Text.h"
#include "Units.h"

namespace
{

const int BAR_INTERVAL_MS = 100;
const int JSON_INTERVAL_MS = 1000;
const int COLUMNS_FOR_BYTES = 60;
const int SPARE_COLUMNS = 3;  // the cursor stays on the row, also behind an echoed ^C

}  // namespace

CProgress::CProgress(COutput& output, EStyle eStyle, bool bSubmit)
    : m_output(output), m_eStyle(eStyle), m_bSubmit(bSubmit), m_dBegan(Now())
{
}

double CProgress::Now() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void CProgress::Plan(size_t nFiles, Orb_U64 ullBytes, bool bBytesKnown)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_nFiles = nFiles;
    m_ullBytes = ullBytes;
    m_bBytesKnown = bBytesKnown;
}

void CProgress::Connected(const std::string& strPeer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_dBegan = Now();
    if (m_eStyle == STYLE_JSON)
    {
        m_output.Line(CJsonLine("connected").Text("peer", strPeer).ToString());
    }
}

void CProgress::FileBegins(const std::string& strShown)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bCurrent = true;
    m_strCurrent = strShown;
    m_dwPercent = 0;
    m_ullDone = 0;
    m_ullSize = 0;
    m_dFileBegan = Now();
}

void CProgress::FileMoves(unsigned int dwPercent, Orb_U64 ullDone, Orb_U64 ullSize)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_dwPercent = dwPercent;
    m_ullDone = ullDone;
    m_ullSize = ullSize;
}

void CProgress::Drop()
{
    m_bCurrent = false;
    m_ullDone = 0;
    m_ullSize = 0;
}

void CProgress::FileEnds(Orb_U64 ullBytes)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const double dSeconds = Now() - m_dFileBegan;
    ++m_nEnded;
    m_ullEnded += ullBytes;
    m_ullMoved += ullBytes;
    Drop();
    if (m_eStyle == STYLE_JSON)
    {
        Show(CJsonLine(m_bSubmit ? "sent" : "received")
                 .Text("path", m_strCurrent)
                 .Moved(ullBytes, dSeconds)
                 .ToString());
        return;
    }
    const std::string strRate = FormatRate(ullBytes, dSeconds);
    Show(std::string(m_bSubmit ? "sent " : "received ") + PlainText(m_strCurrent) + ": " +
         FormatBytes(ullBytes) + " in " + FormatTaken(dSeconds) +
         (strRate.empty() ? "" : ", " + strRate));
}

void CProgress::FolderEnds(const std::string& strShown)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_nFolders;
    Drop();
    if (m_eStyle == STYLE_JSON)
    {
        Show(CJsonLine("folder").Text("path", strShown).ToString());
    }
}

void CProgress::Fails(const std::string& strShown, const std::string& strReason, bool bPlanned)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_nFailed;
    m_nFailedFiles += bPlanned ? 1 : 0;
    m_ullMoved += m_ullDone;
    Drop();
    if (m_eStyle == STYLE_JSON)
    {
        Show(CJsonLine("failed").Text("path", strShown).Text("reason", strReason).ToString());
    }
    m_output.Write(Clear());
    m_output.Error(PlainText(strShown) + ": " + strReason);
}

void CProgress::Message(const std::string& strText)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_output.Write(Clear());
    m_output.Error(strText);
}

void CProgress::Interrupted()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_output.Write(m_nLines > 0 ? "\n" : "");
    m_nLines = 0;
}

void CProgress::Show(const std::string& strLine)
{
    if (m_eStyle == STYLE_QUIET)
    {
        return;
    }
    m_output.Write(Clear() + strLine + "\n");
}

// Takes the bars off the terminal: the text that does it.
std::string CProgress::Clear()
{
    if (m_nLines == 0)
    {
        return std::string();
    }
    const std::string strUp = m_nLines > 1 ? "\x1B[" + std::to_string(m_nLines - 1) + "A" : "";
    m_nLines = 0;
    return "\r" + strUp + "\x1B[J";
}

void CProgress::Draw()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const double dNow = Now();
    m_meter.Add(dNow, m_ullMoved + m_ullDone);
    const double dInterval = DrawInterval() / 1000.0;
    // A little early is in time: the next chance comes a whole interval later.
    if (dInterval < 0 || !m_bCurrent || dNow - m_dDrawn < dInterval * 0.95)
    {
        return;
    }
    if (m_eStyle == STYLE_BAR)
    {
        const std::string strBars = Bars(dNow);
        const int nLines = m_nFiles > 1 ? 2 : 1;
        m_output.Write(Clear() + strBars);
        m_nLines = nLines;
    }
    else
    {
        m_output.Line(CJsonLine("progress")
                          .Text("path", m_strCurrent)
                          .Number("percent", m_dwPercent)
                          .Number("bytes", m_ullDone)
                          .Number("files_done", m_nEnded)
                          .Number("files", m_nFiles)
                          .Real("bytes_per_second", std::max(m_meter.Rate(), 0.0))
                          .ToString());
    }
    m_dDrawn = dNow;
}

std::string CProgress::Bars(double dNow)
{
    const int nColumns = m_output.Columns() - SPARE_COLUMNS;
    const double dRate = m_meter.Rate();
    const std::string strRate =
        dRate < 0.0 ? std::string() : FormatRate(static_cast<Orb_U64>(dRate), 1.0);
    const Orb_U64 ullFileLeft = m_ullSize > m_ullDone ? m_ullSize - m_ullDone : 0;
    CBar file{PlainText(m_strCurrent), m_dwPercent, FormatRate(m_ullDone, dNow - m_dFileBegan),
              FormatDuration(m_ullSize == 0 ? -1.0 : m_meter.SecondsFor(ullFileLeft))};
    if (m_nFiles <= 1)
    {
        file.m_strRate = strRate;
        return RenderBar(file, nColumns);
    }
    const size_t nOver = m_nEnded + m_nFailedFiles;
    const Orb_U64 ullAll = m_ullMoved + m_ullDone;
    CBar total;
    total.m_strLabel =
        "total " + std::to_string(std::min(nOver + 1, m_nFiles)) + "/" + std::to_string(m_nFiles);
    total.m_strLabel += nColumns < COLUMNS_FOR_BYTES ? "" : ", " + FormatBytes(ullAll);
    total.m_strRate = strRate;
    if (m_bBytesKnown && m_ullBytes > 0)
    {
        total.m_dwPercent = Percent(ullAll, m_ullBytes);
        total.m_strLeft =
            FormatDuration(m_meter.SecondsFor(m_ullBytes > ullAll ? m_ullBytes - ullAll : 0));
    }
    else
    {
        // Sizes to come are not known: files count alike.
        total.m_dwPercent = Percent(nOver * 100 + m_dwPercent, m_nFiles * 100ULL);
        total.m_strLeft = nOver + 1 >= m_nFiles ? file.m_strLeft : FormatDuration(-1.0);
    }
    return RenderBar(file, nColumns) + "\n" + RenderBar(total, nColumns);
}

void CProgress::Finish()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const double dSeconds = Now() - m_dBegan;
    if (m_eStyle == STYLE_JSON)
    {
        Show(CJsonLine("summary")
                 .Number("files", m_nEnded)
                 .Number("folders", m_nFolders)
                 .Number("failed", m_nFailed)
                 .Moved(m_ullEnded, dSeconds)
                 .ToString());
        return;
    }
    std::string strLine = FormatCount(m_nEnded, "file");
    if (m_nFolders > 0)
    {
        strLine += " and " + FormatCount(m_nFolders, "folder");
    }
    strLine += std::string(m_bSubmit ? " sent, " : " received, ") + FormatBytes(m_ullEnded) +
               " in " + FormatTaken(dSeconds);
    const std::string strRate = FormatRate(m_ullEnded, dSeconds);
    strLine += (strRate.empty() ? "" : ", " + strRate);
    strLine += m_nFailed > 0 ? "; " + std::to_string(m_nFailed) + " failed" : "";
    Show(strLine);
}

int CProgress::DrawInterval() const
{
    switch (m_eStyle)
    {
        case STYLE_BAR:
            return BAR_INTERVAL_MS;
        case STYLE_JSON:
            return JSON_INTERVAL_MS;
        default:
            return -1;
    }
}

size_t CProgress::Failures() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_nFailed;
}
