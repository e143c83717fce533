#ifndef OSPREY_TOOL_PROGRESS_H
#define OSPREY_TOOL_PROGRESS_H

#include <mutex>
#include <string>
#include <vector>

#include "LibOsprey.h"
#include "Output.h"
#include "ProgressBar.h"
#include "RateMeter.h"

// Shows how a run of submit or download comes along.
//
//   terminal   a line for each finished file; below them a bar for all files, and, where they go
//              one after another, one above it for the current file
//   pipe       a line for each finished file, and a summary; one more at each quarter of a file
//   that
//              takes long
//   JSON       the same as events, and at most one "progress" a second for each file under way,
//              with the rate of now, or, side by side, the file's own since it began
//   quiet      nothing
//
// A file under way, and the total, are stalled when no byte has moved for five seconds.
//
// Failures and warnings go to standard error in every style.
//
// Thread: any. Draw is for the main thread, whenever it wakes.
class CProgress final
{
public:
    enum EStyle
    {
        STYLE_BAR,
        STYLE_LINES,
        STYLE_JSON,
        STYLE_QUIET,
    };

    class CFile;

    // bSubmit: files are sent; otherwise received.
    CProgress(COutput& output, EStyle eStyle, bool bSubmit);
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    // What the run is to move. bBytesKnown: ullBytes is the size of all files. bSideBySide: several
    // files at a time.
    void Plan(size_t nFiles, Orb_U64 ullBytes, bool bBytesKnown, bool bSideBySide);

    // The first connection counts.
    void Connected(const std::string& strPeer);

    // A file or folder has failed that is not under way. bPlanned: it is one of Plan's files.
    void Fails(const std::string& strShown, const std::string& strReason, bool bPlanned);

    // A message on standard error.
    void Message(const std::string& strText);

    // A signal ends the run: the bars stay.
    void Interrupted();

    // Shows the state when it is time to: bars eight times a second.
    void Draw();

    // The run is over: the bars go, the summary comes.
    void Finish();

    // Milliseconds after which Draw has something to do; -1: never.
    int DrawInterval() const;

    size_t Failures() const;

    // So many files need not be moved: an earlier run has.
    void FinishedBefore(size_t nFiles);

    // One of the failures is a file that was not verified.
    void CountNotVerified();
    size_t NotVerified() const;

private:
    void DrawBars(double dNow);
    void WriteQuarters(double dNow);
    void WriteEvents(double dNow);
    CBar FileBar(const CFile& file, double dNow) const;
    CBar CheckBar(double dNow) const;
    CBar TotalBar(int nColumns, double dNow) const;
    std::string RateNow() const;
    std::string TimeLeft() const;
    Orb_U64 Moved() const;
    void Show(const std::string& strLine);
    void ShowEnd(const CFile& file);
    void ShowFailure(const std::string& strShown, const std::string& strReason, bool bPlanned);
    void Remove(const CFile& file);
    static double Now();

    COutput& m_output;
    const EStyle m_eStyle;
    const bool m_bSubmit;
    mutable std::mutex m_mutex;  // everything below, and every file

    size_t m_nFiles = 0;
    Orb_U64 m_ullBytes = 0;
    bool m_bBytesKnown = false;
    bool m_bSideBySide = false;
    bool m_bConnected = false;

    std::vector<CFile*> m_listFiles;  // under way, in the order in which they began

    size_t m_nEnded = 0;    // files whole
    size_t m_nChecked = 0;  // files that came back
    size_t m_nFolders = 0;
    size_t m_nFailed = 0;  // files and folders
    size_t m_nFailedFiles = 0;
    size_t m_nNotVerified = 0;
    size_t m_nFinishedBefore = 0;
    Orb_U64 m_ullEnded = 0;  // bytes of the files that are whole
    Orb_U64 m_ullMoved = 0;  // bytes moved before the files under way, failed files included
    double m_dBegan = 0.0;

    CRateMeter m_meter;
    double m_dDrawn = -1.0;
};

// A file or folder under way, shown from the beginning of its life until it ends, fails or is
// deleted.
//
// Lifetime: the progress outlives it.
// Thread:   one at a time.
class CProgress::CFile final
{
public:
    // bCheck: it is whole at the server, and comes back to be compared; it is told of by bars and
    // lines, and counts nowhere.
    CFile(CProgress& progress, const std::string& strShown, bool bCheck = false);
    ~CFile();
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    // ullSize: of the whole file; a guess when it is not known, 0 without one.
    void Moves(unsigned int dwPercent, Orb_U64 ullDone, Orb_U64 ullSize);

    // One of these at most.
    void Ends(Orb_U64 ullBytes);
    void FolderEnds();
    void Fails(const std::string& strShown, const std::string& strReason, bool bPlanned);

private:
    friend class CProgress;

    bool IsStalled(double dNow) const;

    CProgress& m_progress;
    const std::string m_strShown;
    const bool m_bCheck;
    const double m_dBegan;
    double m_dMoved;  // when bytes were last seen to move
    unsigned int m_dwPercent = 0;
    unsigned int m_dwQuarter = 0;  // told of last
    Orb_U64 m_ullDone = 0;
    Orb_U64 m_ullSize = 0;
};

#endif
