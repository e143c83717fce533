#ifndef OSPREY_TOOL_PROGRESS_H
#define OSPREY_TOOL_PROGRESS_H

#include <mutex>
#include <string>

#include "LibOsprey.h"
#include "Output.h"
#include "RateMeter.h"

// Shows how a run of submit or download comes along.
//
//   terminal   a line for each finished file; below them a bar for the current file and, when there
//              are several, one for all of them
//   pipe       a line for each finished file, and a summary
//   JSON       the same as events, and at most one "progress" a second
//   quiet      nothing
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

    // bSubmit: files are sent; otherwise received.
    CProgress(COutput& output, EStyle eStyle, bool bSubmit);
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    // What the run is to move. bBytesKnown: ullBytes is the size of all files.
    void Plan(size_t nFiles, Orb_U64 ullBytes, bool bBytesKnown);

    void Connected(const std::string& strPeer);
    void FileBegins(const std::string& strShown);

    // ullSize: of the whole file; a guess when it is not known.
    void FileMoves(unsigned int dwPercent, Orb_U64 ullDone, Orb_U64 ullSize);
    void FileEnds(Orb_U64 ullBytes);
    void FolderEnds(const std::string& strShown);

    // A file or folder has failed, whether it began or not. bPlanned: it is one of Plan's files.
    void Fails(const std::string& strShown, const std::string& strReason, bool bPlanned);

    // A message on standard error.
    void Message(const std::string& strText);

    // A signal ends the run. The terminal has echoed the key that sent it into the bars, so they
    // stay as they are and the cursor moves on.
    void Interrupted();

    // Shows the state when it is time to, at most ten times a second.
    void Draw();

    // The run is over: the bars go, the summary comes.
    void Finish();

    // Milliseconds after which Draw has something to do; -1: never.
    int DrawInterval() const;

    size_t Failures() const;

private:
    std::string Clear();
    std::string Bars(double dNow);
    void Show(const std::string& strLine);
    void Drop();
    double Now() const;

    COutput& m_output;
    const EStyle m_eStyle;
    const bool m_bSubmit;
    mutable std::mutex m_mutex;  // everything below

    size_t m_nFiles = 0;
    Orb_U64 m_ullBytes = 0;
    bool m_bBytesKnown = false;

    bool m_bCurrent = false;  // a file is under way
    std::string m_strCurrent;
    unsigned int m_dwPercent = 0;
    Orb_U64 m_ullDone = 0;  // of the current file
    Orb_U64 m_ullSize = 0;
    double m_dFileBegan = 0.0;

    size_t m_nEnded = 0;  // files whole
    size_t m_nFolders = 0;
    size_t m_nFailed = 0;  // files and folders
    size_t m_nFailedFiles = 0;
    Orb_U64 m_ullEnded = 0;  // bytes of the files that are whole
    Orb_U64 m_ullMoved = 0;  // bytes moved before the current file, failed files included
    double m_dBegan = 0.0;

    CRateMeter m_meter;
    double m_dDrawn = -1.0;
    int m_nLines = 0;  // of bars that stand on the terminal now
};

#endif
