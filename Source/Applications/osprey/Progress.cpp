#include "Progress.h"

#include <algorithm>
#include <chrono>

#include "JsonLine.h"
#include "ProgressBar.h"
#include "Text.h"
#include "Units.h"

namespace
{

const int BAR_INTERVAL_MS = 125;
const int LINES_INTERVAL_MS = 500;
const int JSON_INTERVAL_MS = 1000;
const double LONG_SECONDS = 2.0;  // a file that takes longer is told of on its way
const double STALLED_SECONDS = 5.0;
const unsigned int QUARTER = 25;  // percent
const int COLUMNS_FOR_BYTES = 60;
const int SPARE_COLUMNS = 3;  // the cursor stays on the row, also behind an echoed ^C

}  // namespace

CProgress::CProgress(COutput& output, EStyle eStyle, bool bSubmit)
    : m_output(output), m_eStyle(eStyle), m_bSubmit(bSubmit), m_dBegan(Now())
{
}

double CProgress::Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void CProgress::Plan(size_t nFiles, Orb_U64 ullBytes, bool bBytesKnown, bool bSideBySide)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_nFiles = nFiles;
    m_ullBytes = ullBytes;
    m_bBytesKnown = bBytesKnown;
    m_bSideBySide = bSideBySide;
}

void CProgress::Connected(const std::string& strPeer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_bConnected)
    {
        return;
    }
    m_bConnected = true;
    m_dBegan = Now();
    if (m_eStyle == STYLE_JSON)
    {
        m_output.Line(CJsonLine("connected").Text("peer", strPeer).ToString());
    }
}

CProgress::CFile::CFile(CProgress& progress, const std::string& strShown, bool bCheck)
    : m_progress(progress),
      m_strShown(strShown),
      m_bCheck(bCheck),
      m_dBegan(Now()),
      m_dMoved(m_dBegan)
{
    const std::lock_guard<std::mutex> lock(m_progress.m_mutex);
    m_progress.m_listFiles.push_back(this);
}

CProgress::CFile::~CFile()
{
    const std::lock_guard<std::mutex> lock(m_progress.m_mutex);
    m_progress.Remove(*this);
}

void CProgress::CFile::Moves(unsigned int dwPercent, Orb_U64 ullDone, Orb_U64 ullSize)
{
    const std::lock_guard<std::mutex> lock(m_progress.m_mutex);
    m_dMoved = ullDone == m_ullDone ? m_dMoved : Now();
    m_dwPercent = dwPercent;
    m_ullDone = ullDone;
    m_ullSize = ullSize;
}

// One whose bytes have all moved is only waited for.
bool CProgress::CFile::IsStalled(double dNow) const
{
    return m_dwPercent < 100 && dNow - m_dMoved >= STALLED_SECONDS;
}

void CProgress::CFile::Ends(Orb_U64 ullBytes)
{
    const std::lock_guard<std::mutex> lock(m_progress.m_mutex);
    ++m_progress.m_nEnded;
    m_progress.m_ullEnded += ullBytes;
    m_progress.m_ullMoved += ullBytes;
    m_progress.Remove(*this);
    m_ullDone = ullBytes;
    m_progress.ShowEnd(*this);
}

void CProgress::CFile::FolderEnds()
{
    const std::lock_guard<std::mutex> lock(m_progress.m_mutex);
    ++m_progress.m_nFolders;
    m_progress.Remove(*this);
    if (m_progress.m_eStyle == STYLE_JSON)
    {
        m_progress.Show(CJsonLine("folder").Text("path", m_strShown).ToString());
    }
}

void CProgress::CFile::Fails(const std::string& strShown, const std::string& strReason,
                             bool bPlanned)
{
    const std::lock_guard<std::mutex> lock(m_progress.m_mutex);
    m_progress.m_ullMoved += m_ullDone;
    m_progress.Remove(*this);
    m_progress.ShowFailure(strShown, strReason, bPlanned);
}

// Once, or never: it may have ended before it is deleted.
void CProgress::Remove(const CFile& file)
{
    const auto it = std::find(m_listFiles.begin(), m_listFiles.end(), &file);
    if (it != m_listFiles.end())
    {
        m_listFiles.erase(it);
        m_nChecked += file.m_bCheck ? 1 : 0;
    }
}

void CProgress::ShowEnd(const CFile& file)
{
    const double dSeconds = Now() - file.m_dBegan;
    if (m_eStyle == STYLE_JSON)
    {
        Show(CJsonLine(m_bSubmit ? "sent" : "received")
                 .Text("path", file.m_strShown)
                 .Moved(file.m_ullDone, dSeconds)
                 .ToString());
        return;
    }
    const std::string strRate = FormatRate(file.m_ullDone, dSeconds);
    Show(std::string(m_bSubmit ? "sent " : "received ") + PlainText(file.m_strShown) + ": " +
         FormatBytes(file.m_ullDone) + " in " + FormatTaken(dSeconds) +
         (strRate.empty() ? "" : ", " + strRate));
}

void CProgress::Fails(const std::string& strShown, const std::string& strReason, bool bPlanned)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ShowFailure(strShown, strReason, bPlanned);
}

void CProgress::ShowFailure(const std::string& strShown, const std::string& strReason,
                            bool bPlanned)
{
    ++m_nFailed;
    m_nFailedFiles += bPlanned ? 1 : 0;
    if (m_eStyle == STYLE_JSON)
    {
        Show(CJsonLine("failed").Text("path", strShown).Text("reason", strReason).ToString());
    }
    m_output.Error(PlainText(strShown) + ": " + strReason);
}

void CProgress::Message(const std::string& strText)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_output.Error(strText);
}

void CProgress::Interrupted()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_output.LeaveRows();
}

void CProgress::Show(const std::string& strLine)
{
    if (m_eStyle != STYLE_QUIET)
    {
        m_output.Line(strLine);
    }
}

void CProgress::Draw()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const double dNow = Now();
    m_meter.Add(dNow, Moved());
    const double dInterval = DrawInterval() / 1000.0;
    // A little early is in time: the next chance comes a whole interval later.
    if (dInterval < 0 || m_listFiles.empty() || dNow - m_dDrawn < dInterval * 0.95)
    {
        return;
    }
    switch (m_eStyle)
    {
        case STYLE_BAR:
            DrawBars(dNow);
            break;
        case STYLE_JSON:
            WriteEvents(dNow);
            break;
        default:
            WriteQuarters(dNow);
            break;
    }
    m_dDrawn = dNow;
}

void CProgress::DrawBars(double dNow)
{
    const int nColumns = m_output.Columns() - SPARE_COLUMNS;
    std::vector<std::string> listRows;
    if (m_listFiles.front()->m_bCheck)
    {
        m_output.Draw({RenderBar(CheckBar(dNow), nColumns)});
        return;
    }
    if (!m_bSideBySide)
    {
        listRows.push_back(RenderBar(FileBar(*m_listFiles.front(), dNow), nColumns));
    }
    if (m_bSideBySide || m_nFiles > 1)
    {
        listRows.push_back(RenderBar(TotalBar(nColumns, dNow), nColumns));
    }
    m_output.Draw(listRows);
}

// Each quarter of a long file once, the last one when it ends.
void CProgress::WriteQuarters(double dNow)
{
    for (CFile* pFile : m_listFiles)
    {
        const unsigned int dwQuarter = std::min(pFile->m_dwPercent / QUARTER, 3U);
        const double dTaken = dNow - pFile->m_dBegan;
        if (dTaken < LONG_SECONDS || dwQuarter <= pFile->m_dwQuarter)
        {
            continue;
        }
        pFile->m_dwQuarter = dwQuarter;
        const char* pszDoes = pFile->m_bCheck ? "verifying "
                              : m_bSubmit     ? "sending "
                                              : "receiving ";
        m_output.Line(pszDoes + PlainText(pFile->m_strShown) + ": " +
                      std::to_string(pFile->m_dwPercent) + "%, " + FormatBytes(pFile->m_ullDone) +
                      ", " + FormatRate(pFile->m_ullDone, dTaken));
    }
}

void CProgress::WriteEvents(double dNow)
{
    for (const CFile* pFile : m_listFiles)
    {
        if (pFile->m_bCheck)
        {
            continue;
        }
        const double dTaken = std::max(dNow - pFile->m_dBegan, 1e-3);
        const double dRate = m_bSideBySide ? static_cast<double>(pFile->m_ullDone) / dTaken
                                           : std::max(m_meter.Rate(), 0.0);
        m_output.Line(CJsonLine("progress")
                          .Text("path", pFile->m_strShown)
                          .Number("percent", pFile->m_dwPercent)
                          .Number("bytes", pFile->m_ullDone)
                          .Number("files_done", m_nEnded)
                          .Number("files", m_nFiles)
                          .Real("bytes_per_second", dRate)
                          .Flag("stalled", pFile->IsStalled(dNow))
                          .ToString());
    }
}

// Bytes, those of files that failed included.
Orb_U64 CProgress::Moved() const
{
    Orb_U64 ullMoved = m_ullMoved;
    for (const CFile* pFile : m_listFiles)
    {
        ullMoved += pFile->m_bCheck ? 0 : pFile->m_ullDone;
    }
    return ullMoved;
}

std::string CProgress::RateNow() const
{
    const double dRate = m_meter.Rate();
    return dRate < 0.0 ? std::string() : FormatRate(static_cast<Orb_U64>(dRate), 1.0);
}

// Of the files under way; unknown when one's size is.
std::string CProgress::TimeLeft() const
{
    Orb_U64 ullLeft = 0;
    for (const CFile* pFile : m_listFiles)
    {
        if (pFile->m_ullSize == 0)
        {
            return FormatDuration(-1.0);
        }
        ullLeft += pFile->m_ullSize > pFile->m_ullDone ? pFile->m_ullSize - pFile->m_ullDone : 0;
    }
    return FormatDuration(m_meter.SecondsFor(ullLeft));
}

CBar CProgress::FileBar(const CFile& file, double dNow) const
{
    return {PlainText(file.m_strShown), file.m_dwPercent,
            m_nFiles > 1 ? FormatRate(file.m_ullDone, dNow - file.m_dBegan) : RateNow(), TimeLeft(),
            file.IsStalled(dNow)};
}

// Of all files that come back; they count alike.
CBar CProgress::CheckBar(double dNow) const
{
    CBar bar;
    Orb_U64 ullPercents = m_nChecked * 100ULL;
    Orb_U64 ullDone = 0;
    bar.m_bStalled = true;
    for (const CFile* pFile : m_listFiles)
    {
        ullPercents += pFile->m_dwPercent;
        ullDone += pFile->m_ullDone;
        bar.m_bStalled = bar.m_bStalled && pFile->IsStalled(dNow);
    }
    const size_t nBegun = std::min(m_nChecked + m_listFiles.size(), m_nEnded);
    bar.m_strLabel = "verifying " + std::to_string(nBegun) + "/" + std::to_string(m_nEnded) + " " +
                     PlainText(m_listFiles.front()->m_strShown);
    bar.m_dwPercent = Percent(ullPercents, m_nEnded * 100ULL);
    bar.m_strRate = FormatRate(ullDone, dNow - m_listFiles.front()->m_dBegan);
    bar.m_strLeft = m_nChecked + m_listFiles.size() >= m_nEnded ? TimeLeft() : FormatDuration(-1.0);
    return bar;
}

CBar CProgress::TotalBar(int nColumns, double dNow) const
{
    const size_t nOver = m_nEnded + m_nFailedFiles;
    const size_t nBegun = std::min(nOver + m_listFiles.size(), m_nFiles);
    const Orb_U64 ullAll = Moved();
    CBar total;
    total.m_strLabel = "total " + std::to_string(nBegun) + "/" + std::to_string(m_nFiles);
    total.m_strLabel += nColumns < COLUMNS_FOR_BYTES ? "" : ", " + FormatBytes(ullAll);
    total.m_strRate = RateNow();
    total.m_bStalled = std::all_of(m_listFiles.begin(), m_listFiles.end(),
                                   [dNow](const CFile* pFile) { return pFile->IsStalled(dNow); });
    if (m_bBytesKnown && m_ullBytes > 0)
    {
        total.m_dwPercent = Percent(ullAll, m_ullBytes);
        total.m_strLeft =
            FormatDuration(m_meter.SecondsFor(m_ullBytes > ullAll ? m_ullBytes - ullAll : 0));
        return total;
    }
    // Sizes to come are not known: files count alike.
    Orb_U64 ullPercents = nOver * 100ULL;
    for (const CFile* pFile : m_listFiles)
    {
        ullPercents += pFile->m_dwPercent;
    }
    total.m_dwPercent = Percent(ullPercents, m_nFiles * 100ULL);
    total.m_strLeft = nBegun >= m_nFiles ? TimeLeft() : FormatDuration(-1.0);
    return total;
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
                 .Number("not_verified", m_nNotVerified)
                 .Number("finished_before", m_nFinishedBefore)
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
    strLine += m_nNotVerified > 0 ? ", " + std::to_string(m_nNotVerified) + " not verified" : "";
    strLine += m_nFinishedBefore == 0 ? ""
               : m_nFinishedBefore == 1
                   ? "; 1 file was finished before"
                   : "; " + FormatCount(m_nFinishedBefore, "file") + " were finished before";
    Show(strLine);
}

int CProgress::DrawInterval() const
{
    switch (m_eStyle)
    {
        case STYLE_BAR:
            return BAR_INTERVAL_MS;
        case STYLE_LINES:
            return LINES_INTERVAL_MS;
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

void CProgress::FinishedBefore(size_t nFiles)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_nFinishedBefore = nFiles;
}

void CProgress::CountNotVerified()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_nNotVerified;
}

size_t CProgress::NotVerified() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_nNotVerified;
}
