#ifndef OSPREY_TOOL_CLIENTRUN_H
#define OSPREY_TOOL_CLIENTRUN_H

#include <memory>
#include <vector>

#include "ClientLane.h"
#include "CommandLine.h"
#include "Deadline.h"
#include "Output.h"
#include "Progress.h"
#include "Signals.h"
#include "TransferWork.h"

// One run of submit or download: connect, move the work over one lane or several, end.
//
// The first lane is alone until it begins with a file. By then it has found the address that
// answers, and made every folder; the others follow, no more than there are files, and few at a
// time: a server refuses those that it cannot accept at once. A lane that is lost takes the file
// under way with it, no other: the rest goes on while a lane is left. One that still connects when
// nothing is left is not waited for.
//
//   exit code   130 interrupted before the end; 30 the time was over before the end; 3 the first
//               lane did not connect; 24 a file was not verified; 4 a lane was lost; 1 a file
//               failed; 0. The first that fits. A further lane that does not connect is told, and
//               missed by nobody.
//
// A command may need several runs, one after another, each with work of its own.
//
// Thread: main.
class CClientRun final
{
public:
    // nLanes: how many connections there may be side by side, 1 or more.
    // Everything must outlive it.
    CClientRun(const COptions& options, const CDeadline& deadline, COutput& output,
               CProgress& progress, CTransferWork& work, size_t nLanes);
    ~CClientRun();
    CClientRun(const CClientRun&) = delete;
    CClientRun& operator=(const CClientRun&) = delete;

    // The command is not over with this run: an interruption counts even when the work was done.
    void MoreFollows()
    {
        m_bMoreFollows = true;
    }

    // Moves the work.
    void Run();

    // How that came out; nothing is told.
    int ExitCode() const;
    // Why the server could not be reached, if it could not.
    std::string WhyNotConnected() const;
    // Tells why the run did not come to its end, if it did not. Returns the exit code.
    int Report();
    // Run, Report, and the summary.
    int Execute();

private:
    using CLanes = std::vector<const CClientLane*>;

    void RunAt(unsigned int dwAddress, const CSignals& signals);
    void AddLane(unsigned int dwAddress);
    void AddOtherLanes(unsigned int dwAddress);
    void WaitForEnd(unsigned int dwAddress, const CSignals& signals);
    void TendLanes();
    void TendLane(CClientLane& lane);
    void EndLane(CClientLane& lane);
    void StopNeedless();
    void Interrupt(const CSignals& signals);
    void StopAll(const CSignals& signals);
    bool FindPeer();
    void CleanUp();
    void Wake() const;
    void TakeWakes() const;
    int WaitMs() const;

    bool IsOpen() const;
    bool IsConnected() const;
    bool IsDone() const;
    void ReportMissing();
    void ReportLost();
    CLanes Find(bool (*fnIs)(const CClientLane&)) const;
    std::string Connections(size_t nThese, size_t nAll) const;

    const COptions& m_options;
    const CDeadline& m_deadline;
    COutput& m_output;
    CProgress& m_progress;
    CTransferWork& m_work;
    const size_t m_nLanes;
    int m_nWake = -1;  // event descriptor
    bool m_bInterrupted = false;
    bool m_bTimedOut = false;
    bool m_bMoreFollows = false;
    std::vector<unsigned int> m_listAddresses;
    std::string m_strNotFound;                              // why there are none
    std::vector<std::unique_ptr<CClientLane>> m_listLanes;  // stays once interrupted: see CleanUp
};

// How many lanes a run of nFiles files has: as many as were asked for, were there a file and the
// descriptors for each. 1 or more. Raises this process's limit of descriptors for several.
size_t CountLanes(const COptions& options, size_t nFiles);

// How progress is to be shown.
CProgress::EStyle ProgressStyle(const COptions& options, const COutput& output);

#endif
