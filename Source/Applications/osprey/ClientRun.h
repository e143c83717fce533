#ifndef OSPREY_TOOL_CLIENTRUN_H
#define OSPREY_TOOL_CLIENTRUN_H

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "LibOsprey.h"
#include "Output.h"
#include "Progress.h"
#include "Signals.h"

// One run of a file client, as submit and download share it: connect, file after file, end.
//
//   main thread                                    worker thread of the client
//   -----------                                    ---------------------------
//   Execute: resolve, start                        callbacks --> NextFile, FileMoves, FileEnds, ...
//   wait: a signal, the end, time to draw  <-wake- Connected, GetNext false, StartFailed, Lost
//   stop (joins), exit code
//
// A stop is lost while the worker is inside GetNextFile, so the wish to end is also a flag:
// GetNextFile then returns false, and OnProgress, should the stop have been lost nevertheless,
// stops from inside. Only then: a second stop would cut short what the first one still tells the
// peer.
//
// Thread: Execute in the main thread; the callbacks and the protected operations on the worker.
class CClientRun
{
public:
    CClientRun(const COptions& options, COutput& output, CProgress& progress);
    virtual ~CClientRun();
    CClientRun(const CClientRun&) = delete;
    CClientRun& operator=(const CClientRun&) = delete;

    // Does it all. Returns the exit code.
    int Execute();

    // What the client tells, see OspreyClient.h.
    void Connected();
    void StartFailed();
    void Disconnected(int nError);
    bool GetNext(std::string& strLocal, std::string& strRemote, long long& llNumber);
    void Progress(unsigned int dwPercent);
    void Completed();
    void Failed(int nCode);

protected:
    virtual bool StartClient(unsigned short* pName, unsigned int dwAddress, unsigned short wPort,
                             unsigned int dwTimeoutMs) = 0;
    virtual bool StopClient() = 0;

    // The next file, failing on the way what cannot even be tried; false when there is none.
    virtual bool NextFile(std::string& strLocal, std::string& strRemote, long long& llNumber) = 0;
    virtual void FileMoves(unsigned int dwPercent) = 0;
    virtual void FileEnds() = 0;
    virtual void FileFails(const std::string& strReason) = 0;
    virtual std::string ReasonOf(int nCode) const = 0;

    // The file under way came to nothing: remove what is left of it. Any thread; quick.
    virtual void CleanUp() = 0;

    // Files that have not been tried yet.
    virtual size_t FilesLeft() const = 0;

    CProgress& m_progress;

private:
    class CBusy;
    enum EEnd
    {
        END_NOT_YET,
        END_DONE,          // GetNextFile returned false
        END_START_FAILED,  // not connected
        END_LOST,          // connected, then no more
    };

    bool IsEnding() const;
    bool IsStopLost() const;
    void BeginEnd();
    void RunOnce(unsigned int dwAddress, const CSignals& signals);
    void WaitForEnd(const CSignals& signals);
    void Interrupt(const CSignals& signals);
    bool IsStalled() const;
    int WaitMs() const;
    void End(EEnd eEnd);
    void Touch();
    int Report();
    int ReportLost();
    std::string WhyNotConnected() const;

    const COptions& m_options;
    COutput& m_output;
    int m_nWake = -1;  // event descriptor
    std::vector<unsigned short> m_listName;

    std::atomic<bool> m_bInterrupted{false};
    std::atomic<bool> m_bStalled{false};
    std::atomic<bool> m_bConnected{false};
    std::atomic<bool> m_bInside{false};     // the worker is inside a callback
    std::atomic<long long> m_llTouched{0};  // ms of the steady clock: the last sign of life
    std::atomic<long long> m_llEnding{
        0};  // ms of the steady clock: when the stop was called; 0 not
    std::atomic<int> m_nEnd{END_NOT_YET};
    std::atomic<int> m_nLostError{0};
    std::atomic<bool> m_bUnderWay{false};  // a file was handed out and has not ended
    long long m_llStarted = 0;
    bool m_bStartRefused = false;
};

// Hands what a client tells to a run. TInterface is one of the two callback interfaces.
template <class TInterface>
class CClientCallback final : public TInterface
{
public:
    explicit CClientCallback(CClientRun& run) : m_run(run) {}

    void OnConnected() override
    {
        m_run.Connected();
    }
    void OnStartFailed(int) override
    {
        m_run.StartFailed();
    }
    void OnDisconnected(int nError) override
    {
        m_run.Disconnected(nError);
    }
    bool GetNextFile(std::string& strLocal, std::string& strRemote, long long& llNumber) override
    {
        return m_run.GetNext(strLocal, strRemote, llNumber);
    }
    void OnProgress(unsigned int dwPercent) override
    {
        m_run.Progress(dwPercent);
    }
    void OnFileCompleted() override
    {
        m_run.Completed();
    }
    void OnFileFailed(int nCode) override
    {
        m_run.Failed(nCode);
    }

private:
    CClientRun& m_run;
};

// How progress is to be shown.
CProgress::EStyle ProgressStyle(const COptions& options, const COutput& output);

#endif
