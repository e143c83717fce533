#ifndef OSPREY_TESTS_HOSTILESERVER_H
#define OSPREY_TESTS_HOSTILESERVER_H

// The peer of one client, played from inside the client's own waits: whenever its worker would
// sleep, the next piece of the input arrives, or time passes, or the connection ends. Nothing else
// moves meanwhile, so that a run depends on its input alone.

#include <semaphore.h>

#include <functional>
#include <string>

#include "FuzzInput.h"
#include "SystemCalls.h"
#include "TestClock.h"

// What happens beside the stream, once.
enum FUZZ_EVENT : unsigned int
{
    EVENT_NONE,
    EVENT_CLOSED,      // the server closes the connection
    EVENT_TIME,        // nothing comes until a timer of the client expires
    EVENT_STOP,        // the host stops the client (OnStopWanted)
    EVENT_LOST,        // the connection breaks: a receive fails
    EVENT_REFUSED,     // the connect is refused at once
    EVENT_UNANSWERED,  // the connect is never answered
    EVENT_COUNT
};

// The four bytes in front of the stream: the rule of the pieces; the event; before which piece it
// comes; how often time passes before the connection ends for good.
//
// Thread: made, waited for and destroyed on the host's thread, which sleeps while the worker runs.
class CHostileServer
{
public:
    explicit CHostileServer(CFuzzInput& input);
    ~CHostileServer();
    CHostileServer(const CHostileServer&) = delete;
    CHostileServer& operator=(const CHostileServer&) = delete;

    // Returns when the client's worker has ended, or would sleep for good. fnStop is called when
    // the host shall stop the client.
    void WaitForEnd(const std::function<void()>& fnStop);

private:
    struct CWorker;
    enum MOVE
    {
        MOVE_MADE,
        MOVE_STOP,  // the host has to move
        MOVE_NONE   // nothing is left to do
    };

    static void* RunWorker(void* pWorker);
    int StartWorker(pthread_t* pThread, const pthread_attr_t* pAttr, void* (*pfnMain)(void*),
                    void* pParam);
    int MakeSocket();
    int Connect();
    ssize_t Receive(int s, void* pData, size_t nSize, int nFlags);
    int Wait(int hEpoll, epoll_event* pEvents, int nMaxEvents, int nTimeoutMs);
    MOVE Move(int nTimeoutMs);
    MOVE PlayEvent(int nTimeoutMs);
    bool PassTime(int nTimeoutMs);
    bool SendPiece();
    void TakeRequests();
    void ClosePeer();

    const unsigned char m_cRule;
    unsigned int m_dwEvent;
    const unsigned int m_dwEventBefore;
    int m_nTimeLeft;  // how often time may still pass
    CPieces m_pieces;
    std::string_view m_piece;  // what is left of the one under way
    unsigned int m_dwPieces = 0;
    int m_hPeer = -1;
    std::string m_strRequests;  // of the connection, as they came
    bool m_bLost = false;
    bool m_bUnanswered = false;
    MOVE m_eWanted = MOVE_MADE;
    sem_t m_semaphore{};  // the host's thread may go on

    CTestClock m_clock;
    CReplacedCall<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> m_threads;
    CReplacedCall<int(int, int, int)> m_sockets;
    CReplacedCall<int(int, const sockaddr*, socklen_t)> m_connects;
    CReplacedCall<ssize_t(int, void*, size_t, int)> m_receives;
    CReplacedCall<int(int, epoll_event*, int, int)> m_waits;
};

#endif
