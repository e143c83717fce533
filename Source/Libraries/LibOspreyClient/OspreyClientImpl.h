#ifndef OSPREY_OSPREYCLIENTIMPL_H
#define OSPREY_OSPREYCLIENTIMPL_H

// Internal header. What both file clients are made of.

#include "ClientTCPStream.h"
#include "FileTimerHandler.h"
#include "OspreyClient.h"
#include "SendBufferOwner.h"
#include "WXSPFraming.h"
#include "WorkerThread.h"

// Codes with which a step of a run ends: loop results, and what OnFileFailed tells.
enum CLIENT_CODE : unsigned int
{
    CODE_SUCCESS = 0,
    CODE_STOPPED = 1,
    CODE_CONNECTION_LOST = 2,
    CODE_NOT_CONNECTED = 3,
    CODE_NO_MEMORY = 4,
    CODE_NOT_FOUND = 5,
    CODE_OPEN_FAILED = 6,
    CODE_READ_FAILED = 7,
    CODE_DIR_REFUSED = 8,
    CODE_DELETE_REFUSED = 9,
    CODE_UPLOAD_REFUSED = 10,
    CODE_WRITE_FAILED = 11,
};

// The numbers of a client's timers.
enum CLIENT_TIMER : unsigned int
{
    TIMER_CONNECT = 0,
    TIMER_KEEP_ALIVE = 3,
    TIMER_CANCEL = 4,
};

// What a run waits for. A reply counts only in its own phase, whatever request it names.
enum CLIENT_PHASE
{
    PHASE_NONE,
    PHASE_NAMING,
    PHASE_FILE,
    PHASE_CLEAN_UP,
};

// The run of a file client: connect, name the connection, one file after another, clean up.
//
// The worker thread is a plain sequential program. Each of its steps runs the engine's loop until a
// network callback, a reply or a timer stops it with a code, and the next step follows from the
// code:
//
//   worker:  connect --0--> NAMC --0--> OnConnected, GetNextFile, request --code--> GetNextFile ...
//               |             |                                     |
//   loop:    (events)      (events)                              (events)
//
// A stop from a host thread ends the loop run that it meets with code 1. One that comes before the
// first run, between connecting and naming, or between GetNextFile and the file's run is
// remembered; one that comes while the host itself is called back between two runs is lost, as
// hosts are told.
//
// Ownership: owns engine, thread, stream, buffers and timers; borrows the host's callback.
// Thread:    Start, Stop and ReleaseClient on a host thread; everything else on the worker.
class COspreyClientImpl : public IFileTimerCallback,
                          public CClientTCPStream::ICallback,
                          public IWXSPPacketSink
{
public:
    explicit COspreyClientImpl(IFileClientCallback* pCallback);
    virtual ~COspreyClientImpl() = default;
    COspreyClientImpl(const COspreyClientImpl&) = delete;
    COspreyClientImpl& operator=(const COspreyClientImpl&) = delete;

    void OnTimeout(unsigned int dwID) override;
    void OnConnectSuccessful() override;
    void OnConnectFailed(int nError) override;
    void OnDataReceived(CTCPStreamBuffer* pBuffer) override;
    void OnDataSent(CTCPStreamBuffer* pBuffer) override;
    void OnNetworkError(int nError) override;
    virtual void ProcessDisconnect(int nError);
    Orb_BOOL ProcessWXSPacket(PWXS_PACKET pPacket) override;
    virtual Orb_BOOL ProcessNameConnectionRet(PWXS_PACKET pPacket);

protected:
    Orb_BOOL Start(const unsigned short* pName, unsigned int dwReserved, unsigned int dwIPAddress,
                   unsigned short wPort, unsigned int dwConnectTimeoutMs);
    Orb_BOOL Stop();
    void ReleaseClient();

    // Sends the request for the file that m_strLocalPath, m_strRemote and m_llNumber name. Returns
    // 0 when it is under way, else the code of its failure. May throw std::bad_alloc.
    virtual unsigned int StartTransfer() = 0;
    // The loop run of the file ended with the code: closes the local file, which none of the steps
    // that follow opens again. Returns the final code.
    virtual unsigned int EndTransfer(unsigned int dwCode) = 0;
    // After a stop: sends what ends the file at the peer. False when there is nothing to wait for.
    virtual bool SendCleanUp() = 0;
    // Stop pipe, engine, buffers and stream are torn down in an order of each client's own.
    virtual void ReleaseParts() = 0;

    // Queues a filled request; false when the stream refuses it.
    bool SendRequest(CRequestPtr pRequest);
    // CAOP for the current request; replies to it are ignored from then on.
    bool SendCancel();
    // Every request takes the next number; the first of an object is 1.
    unsigned int NextRequestID();
    // True when the packet holds the record, answers the current request, and comes in its phase.
    bool IsReply(PWXS_PACKET pPacket, size_t nRecordSize, CLIENT_PHASE ePhase) const;
    // Ends the step: no reply counts any more.
    void StopLoop(unsigned int dwCode);

    IFileClientCallback* m_pCallback;
    // Before the stream, whose destructor still needs it.
    CIOEngine m_engine;
    CClientTCPStream m_stream;
    CRingTCPStreamBuffer m_bufferRing;
    CSimpleTCPStreamBuffer m_bufferReceive;
    unsigned int m_dwReserved = 0;
    unsigned int m_dwIPAddress = 0;       // host byte order
    unsigned short m_wPort = 0;           // host byte order
    unsigned int m_dwConnectTimeout = 0;  // milliseconds
    const _WXS_PACKET m_keepAliveHeader;
    unsigned int m_dwRequestID = 0;  // of the current request
    CWorkerThread m_thread;
    CFileTimerHandler* m_pConnectTimer = nullptr;
    CFileTimerHandler* m_pKeepAliveTimer = nullptr;
    CUTF16String m_strConnectionName;  // at most 259 units
    std::string m_strLocalPath;        // of the current file
    std::string m_strRemote;           // what the host named beside it
    long long m_llNumber = 0;          // what the host numbered beside it
    CUTF16String m_strRemotePath;      // of the current file, at the peer
    CStopLoopPipe m_stopPipe;
    CFileTimerHandler* m_pCancelTimer = nullptr;
    CFileTimers m_timers;
    CSendBufferOwner m_buffersOut;

private:
    static void* ThreadProc(void* pThis);
    void InitialThreadProc();
    bool SetUp();
    bool RunSetUpStep(CLIENT_PHASE ePhase);
    bool FailStart();
    unsigned int RunStep(CLIENT_PHASE ePhase);
    unsigned int TryStartTransfer();
    bool TransferFile();
    void CleanUp();
    bool SendNameConnection();
    void SendKeepAlive();
    void TearDown();

    std::atomic<bool> m_bStopRequested{false};  // by a host thread, and not lost
    bool m_bReleaseRequested = false;           // from inside a callback
    CLIENT_PHASE m_ePhase = PHASE_NONE;
};

#endif
