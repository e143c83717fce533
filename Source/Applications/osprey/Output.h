#ifndef OSPREY_TOOL_OUTPUT_H
#define OSPREY_TOOL_OUTPUT_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "OutputQueue.h"
#include "Signals.h"

// What the tool says. The library prints trace lines to standard output, so the tool keeps the
// descriptor that it was started with for itself and gives the library another one.
//
//   descriptor 1 at the start --dup--> private descriptor     lines of the tool
//   /dev/null or the trace file ----> descriptor 1            lines of the library
//   descriptor 2                                              errors, "osprey: ..."
//
// Thread: any; nothing comes between the parts of a line, and up to 4 KiB are one write.
class COutput final
{
public:
    COutput() = default;
    ~COutput();
    COutput(const COutput&) = delete;
    COutput& operator=(const COutput&) = delete;

    // Takes over descriptor 1. Call before anything prints. Without a standard output there is
    // nowhere to print, which is no error.
    void TakeStandardOutput();

    // Sends what the library prints to the end of a file, created when missing. False with errno.
    static bool TraceTo(const std::string& strFile);

    // Text as it is; a line adds the line feed. A reader that went away ends the output quietly.
    void Write(const std::string& strText);
    void Line(const std::string& strText);

    // "osprey: TEXT" on standard error, with what could harm a terminal escaped.
    void Error(const std::string& strText);

    // Asks this process to end, with SIGTERM, when the reader of the output goes away. Call with
    // that signal blocked and read.
    void EndWithReader();

    // The reader of the output has gone away.
    bool IsBroken() const;

    // Some of the output could not be written, for another reason, which was told.
    bool HasFailed() const;

    // Gives the standard output that the tool was started with away, for raw data: the caller
    // closes it. Lines go to standard error from then on.
    int GiveAway();

    // From now on nothing that is said waits for whoever reads it, until EndQueue, which writes
    // what is left, for as long as it takes unless the end was asked for. See CQueuedOutput.
    void BeginQueue(COutputQueue::CGapLine fnGap);
    void EndQueue();

    // Rows that stand below the lines of a terminal: these replace the last ones. Lines and errors
    // take them off. None is drawn that the terminal has no row for, and none at all while the
    // terminal takes nothing.
    //
    // The cursor is left at the beginning of the first row: whatever a terminal that is resized
    // makes of the rows, wrapping them into more, all of it is behind the cursor.
    void Draw(const std::vector<std::string>& listRows);

    // The end was asked for. The rows are drawn once more, since a terminal has echoed a key into
    // them, and stay; the cursor moves on. From now on what the output does not take within half a
    // second, a stopped terminal or a full pipe, is left out.
    void LeaveRows();

    bool IsTerminal() const;

    // Columns of the terminal now; 80 when it does not say.
    int Columns() const;

private:
    void ReportFailure(int nError);
    void WriteLocked(const std::string& strText);
    void Pass(int nDescriptor, const std::string& strText);
    void WriteNow(int nDescriptor, const std::string& strText);
    int WriteAll(int nDescriptor, const std::string& strText);
    bool WaitUntilWritable(int nDescriptor);
    std::string TakeRows();
    std::string RowsText() const;
    int Rows() const;

    int m_nOutput = -1;
    std::mutex m_mutex;
    std::unique_ptr<COutputQueue> m_pQueue;   // of the output; under m_mutex
    std::unique_ptr<COutputQueue> m_pErrors;  // likewise; null: errors wait with the rest
    std::atomic<bool> m_bBroken{false};
    std::atomic<bool> m_bEndWithReader{false};
    std::atomic<bool> m_bFailureTold{false};
    std::atomic<bool> m_bEnding{false};
    std::atomic<bool> m_abStuck[2] = {};  // output, errors: took nothing for too long while ending
    std::vector<std::string> m_listRows;  // that stand on the terminal; under m_mutex
};

// Has an output queued while it lives. However it ends, a signal then ends the wait for a reader
// who stalls, and with it the process.
class CQueuedOutput final
{
public:
    CQueuedOutput(COutput& output, const CSignals& signals, COutputQueue::CGapLine fnGap)
        : m_output(output), m_signals(signals)
    {
        m_output.BeginQueue(std::move(fnGap));
    }
    ~CQueuedOutput();
    CQueuedOutput(const CQueuedOutput&) = delete;
    CQueuedOutput& operator=(const CQueuedOutput&) = delete;

private:
    COutput& m_output;
    const CSignals& m_signals;
};

#endif
