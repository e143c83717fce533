#ifndef OSPREY_TESTS_FAULTPLAN_H
#define OSPREY_TESTS_FAULTPLAN_H

// One call of the library that fails: the n-th of its kind that the library itself makes, counted
// from the moment the plan is laid. Calls of the test, of its peers and of its hosts are not
// counted and never fail.

enum FAULT_CALL
{
    CALL_ALLOCATE,  // new, malloc, realloc
    CALL_ACCEPT,
    CALL_ACCESS,
    CALL_BIND,
    CALL_CHMOD,
    CALL_CLOSE,
    CALL_CONNECT,
    CALL_EPOLL_ADD,
    CALL_EPOLL_CREATE,
    CALL_EPOLL_WAIT,
    CALL_EVENTFD,
    CALL_FCLOSE,
    CALL_FCNTL,
    CALL_FOPEN,
    CALL_FREAD,
    CALL_FSEEK,
    CALL_FWRITE,
    CALL_GETPEERNAME,
    CALL_GETSOCKNAME,
    CALL_LISTEN,
    CALL_LSTAT,
    CALL_MKDIR,
    CALL_MMAP,
    CALL_OPEN,
    CALL_PIPE,
    CALL_PTHREAD_CREATE,
    CALL_RECV,
    CALL_REMOVE,
    CALL_SEND,
    CALL_SETSOCKOPT,
    CALL_SHUTDOWN,
    CALL_SOCKET,
    CALL_SOCKET_ERROR,  // what getsockopt reports of an attempt to connect
    CALL_STAT,
    CALL_WRITE,
    CALL_COUNT
};

const char* GetName(FAULT_CALL eCall);

// A transfer that moves only some bytes, in place of an error.
const int SHORT_TRANSFER = -1;

struct CFault
{
    FAULT_CALL eCall;
    int nNth;              // from 0
    int nError;            // errno, or SHORT_TRANSFER
    bool bOnward = false;  // so do all later ones of the kind
};

// Lays a plan for the length of a block, one at a time. Null only counts.
//
// Thread: a test's; the calls come from any.
class CFaultPlan
{
public:
    explicit CFaultPlan(const CFault* pFault);
    ~CFaultPlan();
    CFaultPlan(const CFaultPlan&) = delete;
    CFaultPlan& operator=(const CFaultPlan&) = delete;

    // No further call fails.
    static void Lift();
    // Whether a call has failed since the latest plan was laid, and what was counted meanwhile.
    static bool IsInjected();
    static bool IsInjected(FAULT_CALL eCall);
    static int GetCalls(FAULT_CALL eCall);
};

// While it lives, this thread is inside the library: its calls count. Threads that the library
// starts are inside it from their beginning.
class CInside
{
public:
    CInside();
    ~CInside();
    CInside(const CInside&) = delete;
    CInside& operator=(const CInside&) = delete;

private:
    const bool m_bBefore;
};

// While it lives, this thread is in a host's callback: its calls do not count.
class COutside
{
public:
    COutside();
    ~COutside();
    COutside(const COutside&) = delete;
    COutside& operator=(const COutside&) = delete;

private:
    const bool m_bBefore;
};

bool IsInside();
// For what stands in for a call: the fault to make of this one, null to go on to the system.
const CFault* MeetFault(FAULT_CALL eCall);

#endif
