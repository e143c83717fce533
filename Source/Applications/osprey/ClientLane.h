#ifndef OSPREY_TOOL_CLIENTLANE_H
#define OSPREY_TOOL_CLIENTLANE_H

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CommandLine.h"
#include "FileClient.h"
#include "LibOsprey.h"
#include "Progress.h"
#include "TransferWork.h"

// One connection of a run: a client of the library, and the item of the work that it moves now.
//
//   main thread                                  worker thread of the client
//   -----------                                  ---------------------------
//   Start
//   IsOver, IsStalled, HasBegunFile   <--wake--  callbacks --> the work's Take, the transfer
//   Stop        (on a thread of its own)
//   Close       (joins both)
//
// A stop is lost while the worker is inside GetNextFile, so the wish to end is also a flag:
// GetNextFile then returns false, and OnProgress, should the stop have been lost nevertheless,
// stops from inside. Only then: a second stop would cut short what the first one still tells the
// peer.
//
// Thread: main, but for the callbacks, and CleanUp, which any thread may call.
class CClientLane final : public IFileClientCallback
{
public:
    enum EStop
    {
        STOP_INTERRUPTED,
        STOP_STALLED,     // as a connection that is as good as lost
        STOP_NOT_NEEDED,  // nothing is left that it could take
    };

    // Both are called on the worker: fnWake when the main thread has something to look at,
    // fnAdvanced once connected, and once the first file is under way.
    CClientLane(const COptions& options, CTransferWork& work, CProgress& progress,
                std::function<void()> fnWake, std::function<void()> fnAdvanced);
    ~CClientLane();
    CClientLane(const CClientLane&) = delete;
    CClientLane& operator=(const CClientLane&) = delete;

    // Begins to connect. Once only.
    void Start(unsigned int dwAddress);

    // From Start to Close; a start that was refused opens nothing.
    bool IsOpen() const
    {
        return m_bOpen;
    }
    // The worker has ended, or is about to: Close waits for nobody else.
    bool IsOver() const;
    // Nothing has moved for too long, and nothing was done about it yet.
    bool IsStalled() const;
    bool IsConnected() const
    {
        return m_bConnected;
    }
    bool IsConnecting() const
    {
        return m_bOpen && !m_bConnected && !IsOver();
    }
    // A file, not only folders, has been under way.
    bool HasBegunFile() const
    {
        return m_bBegunFile;
    }

    // Asks an open lane to end, without waiting.
    void Stop(EStop eStop);
    // Ends it and waits for that.
    void Close();

    // What has become of a lane that is not open.
    bool IsDone() const  // the work was at its end
    {
        return m_nEnd == END_DONE || IsNotNeeded();
    }
    bool IsNotNeeded() const  // it was stopped as such
    {
        return m_eStop == STOP_NOT_NEEDED;
    }
    std::string WhyLost() const;
    std::string WhyNotConnected() const;

    // Fails what was under way when a lane that is not open any more was lost.
    void FailLost();
    // Removes what is left here of the file under way. None is begun any more.
    void CleanUp();

    // What the client tells; its worker.
    void OnConnected() override;
    void OnStartFailed(int nReason) override;
    void OnDisconnected(int nError) override;
    bool GetNextFile(std::string& strLocal, std::string& strRemote, long long& llNumber) override;
    void OnProgress(unsigned int dwPercent) override;
    void OnFileCompleted() override;
    void OnFileFailed(int nCode) override;

private:
    class CBusy;
    enum EEnd
    {
        END_NOT_YET,
        END_DONE,          // GetNextFile returned false: nothing was left
        END_START_FAILED,  // not connected
        END_LOST,          // connected, then no more
    };

    bool BeginNext(std::string& strLocal, std::string& strRemote, long long& llNumber);
    bool IsEnding() const;
    bool IsStopLost() const;
    void End(EEnd eEnd);
    bool IsCleanedUp();
    void Touch();
    bool SetTransfer(std::shared_ptr<ITransfer> pTransfer);
    void FailBegin(const char* pszReason) noexcept;

    const COptions& m_options;
    CTransferWork& m_work;
    CProgress& m_progress;
    const std::function<void()> m_fnWake;
    const std::function<void()> m_fnAdvanced;
    std::vector<unsigned short> m_listName;

    bool m_bOpen = false;
    bool m_bStartRefused = false;
    EStop m_eStop = STOP_INTERRUPTED;  // how it was stopped, if it was
    long long m_llStarted = 0;         // times are ms of the steady clock
    std::thread m_stopper;
    std::atomic<bool> m_bStopped{false};  // by m_stopper

    std::atomic<bool> m_bConnected{false};
    std::atomic<bool> m_bBegunFile{false};
    std::atomic<bool> m_bInside{false};     // the worker is inside a callback
    std::atomic<long long> m_llTouched{0};  // the last sign of life
    std::atomic<long long> m_llEnding{0};   // when the stop was called; 0 not
    std::atomic<long long> m_llEnded{0};
    std::atomic<int> m_nLostError{0};
    std::atomic<int> m_nEnd{END_NOT_YET};

    std::mutex m_mutex;  // of the next two
    bool m_bCleanedUp = false;
    // Under way; null between two. CleanUp may hold it a moment longer.
    std::shared_ptr<ITransfer> m_pTransfer;

    std::unique_ptr<IFileClient> m_pClient;  // calls back until it is gone: it goes first
};

#endif
