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
    // fnWake is called on the worker when the main thread has something to look at.
    CClientLane(const COptions& options, CTransferWork& work, CProgress& progress,
                std::function<void()> fnWake);
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
    // A file, not only folders, has been under way.
    bool HasBegunFile() const
    {
        return m_bBegunFile;
    }

    // Asks an open lane to end, without waiting. bStalled: as a connection that is as good as lost.
    void Stop(bool bStalled);
    // Ends it and waits for that.
    void Close();

    // What has become of a lane that is not open.
    bool IsDone() const  // the work was at its end
    {
        return m_nEnd == END_DONE;
    }
    std::string WhyLost() const;
    std::string WhyNotConnected() const;

    // Fails what was under way when a lane that is not open any more was lost.
    void FailLost();
    // Removes what is left here of the file under way.
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
    void Touch();
    void SetTransfer(std::shared_ptr<ITransfer> pTransfer);

    const COptions& m_options;
    CTransferWork& m_work;
    CProgress& m_progress;
    const std::function<void()> m_fnWake;
    std::vector<unsigned short> m_listName;

    bool m_bOpen = false;
    bool m_bStartRefused = false;
    bool m_bStalled = false;
    long long m_llStarted = 0;  // times are ms of the steady clock
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

    std::mutex m_mutex;  // of the next one
    // Under way; null between two. CleanUp may hold it a moment longer.
    std::shared_ptr<ITransfer> m_pTransfer;

    std::unique_ptr<IFileClient> m_pClient;  // calls back until it is gone: it goes first
};

#endif
