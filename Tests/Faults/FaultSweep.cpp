#include "FaultSweep.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <set>
#include <sstream>
#include <vector>

#include "Leftovers.h"
#include "LibraryMemory.h"

namespace
{

const int FIRST_CALLS = 4;
const int MOST_CALLS = 8;  // of one kind that are made to fail

// One way in which a call can fail, as its manual page allows. What is transient costs nothing: the
// scenario must end as if nothing had happened.
struct CFailure
{
    FAULT_CALL eCall;
    int nError;
    bool bTransient;
};
const CFailure FAILURES[] = {
    {CALL_ACCEPT, EINTR, true},
    {CALL_ACCEPT, EAGAIN, true},
    {CALL_ACCEPT, ECONNABORTED, true},
    {CALL_ACCEPT, ENOBUFS, true},
    {CALL_ACCEPT, ENOMEM, true},
    {CALL_ACCEPT, EPERM, true},
    {CALL_ACCEPT, EMFILE, false},
    {CALL_ACCEPT, ENFILE, false},
    {CALL_ACCESS, EACCES, false},
    {CALL_ACCESS, EROFS, false},
    {CALL_BIND, EADDRINUSE, false},
    {CALL_BIND, EACCES, false},
    {CALL_CHMOD, EPERM, false},
    {CALL_CLOSE, EINTR, true},
    {CALL_CLOSE, EIO, true},
    {CALL_CONNECT, ECONNREFUSED, false},
    {CALL_CONNECT, ENETUNREACH, false},
    {CALL_CONNECT, EADDRNOTAVAIL, false},
    {CALL_CONNECT, EAGAIN, false},
    {CALL_CONNECT, ETIMEDOUT, false},
    {CALL_CONNECT, EINTR, true},
    {CALL_EPOLL_ADD, ENOMEM, false},
    {CALL_EPOLL_ADD, ENOSPC, false},
    {CALL_EPOLL_CREATE, EMFILE, false},
    {CALL_EPOLL_CREATE, ENFILE, false},
    {CALL_EPOLL_CREATE, ENOMEM, false},
    {CALL_EPOLL_WAIT, EINTR, true},
    {CALL_EVENTFD, EMFILE, false},
    {CALL_EVENTFD, ENFILE, false},
    {CALL_EVENTFD, ENOMEM, false},
    {CALL_FCLOSE, EIO, false},
    {CALL_FCLOSE, ENOSPC, false},
    {CALL_FCLOSE, EDQUOT, false},
    {CALL_FCNTL, EPERM, false},
    {CALL_FOPEN, EACCES, false},
    {CALL_FOPEN, EMFILE, false},
    {CALL_FOPEN, ENFILE, false},
    {CALL_FOPEN, ENOMEM, false},
    {CALL_FOPEN, ENOSPC, false},
    {CALL_FOPEN, EINTR, true},
    {CALL_FREAD, EIO, false},
    {CALL_FREAD, EINTR, true},
    {CALL_FSEEK, EIO, false},
    {CALL_FWRITE, ENOSPC, false},
    {CALL_FWRITE, EDQUOT, false},
    {CALL_FWRITE, EIO, false},
    {CALL_FWRITE, EFBIG, false},
    {CALL_FWRITE, EINTR, true},
    {CALL_GETPEERNAME, ENOBUFS, true},
    {CALL_GETSOCKNAME, ENOBUFS, true},
    {CALL_LISTEN, EADDRINUSE, false},
    {CALL_LSTAT, EACCES, false},
    {CALL_MKDIR, EACCES, false},
    {CALL_MKDIR, ENOSPC, false},
    {CALL_MKDIR, EROFS, false},
    {CALL_MMAP, ENOMEM, false},
    {CALL_OPEN, EMFILE, true},
    {CALL_OPEN, ENFILE, true},
    {CALL_OPEN, ENOMEM, true},
    {CALL_PIPE, EMFILE, false},
    {CALL_PIPE, ENFILE, false},
    {CALL_PTHREAD_CREATE, EAGAIN, false},
    {CALL_RECV, EINTR, true},
    {CALL_RECV, EAGAIN, true},
    {CALL_RECV, SHORT_TRANSFER, true},
    {CALL_RECV, ECONNRESET, false},
    {CALL_RECV, ETIMEDOUT, false},
    {CALL_RECV, ENOMEM, false},
    {CALL_REMOVE, EACCES, false},
    {CALL_REMOVE, EBUSY, false},
    {CALL_REMOVE, EIO, false},
    {CALL_REMOVE, EROFS, false},
    {CALL_SEND, EINTR, true},
    {CALL_SEND, EAGAIN, true},
    {CALL_SEND, SHORT_TRANSFER, true},
    {CALL_SEND, ECONNRESET, false},
    {CALL_SEND, EPIPE, false},
    {CALL_SEND, ENOBUFS, false},
    {CALL_SEND, ENOMEM, false},
    {CALL_SETSOCKOPT, ENOMEM, false},
    {CALL_SHUTDOWN, ENOTCONN, true},
    {CALL_SOCKET, EMFILE, false},
    {CALL_SOCKET, ENFILE, false},
    {CALL_SOCKET, ENOBUFS, false},
    {CALL_SOCKET, ENOMEM, false},
    {CALL_SOCKET, EACCES, false},
    {CALL_SOCKET_ERROR, ECONNREFUSED, false},
    {CALL_SOCKET_ERROR, ETIMEDOUT, false},
    {CALL_SOCKET_ERROR, EHOSTUNREACH, false},
    {CALL_STAT, EACCES, false},
    {CALL_STAT, ENOENT, false},
    {CALL_STAT, EIO, false},
    {CALL_STAT, ENOMEM, false},
    {CALL_WRITE, EINTR, true},
    {CALL_WRITE, EAGAIN, true},
};

std::vector<std::string> Words(const std::string& strText)
{
    std::istringstream text(strText);
    std::vector<std::string> words;
    for (std::string strWord; text >> strWord;)
    {
        words.push_back(strWord);
    }
    return words;
}

std::string Code(const std::string& strWord)
{
    return strWord.substr(0, strWord.find(':'));
}

// What a failure may make of a scenario: it goes as far as it did undisturbed, is then refused with
// the protocol's own word or ended, and does not go on as if nothing had happened.
void ExpectDegraded(const std::string& strOutcome, const std::string& strClean)
{
    const std::vector<std::string> words = Words(strOutcome);
    const std::vector<std::string> clean = Words(strClean);
    size_t n = 0;
    while (n < words.size() && n < clean.size() && words[n] == clean[n])
    {
        ++n;
    }
    if (n == words.size() && n == clean.size())
    {
        return;
    }
    ASSERT_LT(n, words.size()) << "ends without a word: " << strOutcome;
    const std::string& strWord = words[n];
    EXPECT_TRUE(strWord == "end" || strWord == "stopped" ||
                (n < clean.size() && Code(strWord) == Code(clean[n]) && strWord != clean[n]))
        << strOutcome << "\ninstead of\n"
        << strClean;
}

std::string Describe(const CFault& fault)
{
    return std::string(GetName(fault.eCall)) + " " + std::to_string(fault.nNth) +
           (fault.bOnward ? " and on: " : ": ") +
           (fault.nError == SHORT_TRANSFER ? "one byte" : strerror(fault.nError));
}

std::set<int> ChooseCalls(int nCalls)
{
    std::set<int> chosen;
    for (int n = 0; n < nCalls; ++n)
    {
        if (nCalls <= MOST_CALLS || n < FIRST_CALLS || n == nCalls / 2 || n >= nCalls - 2)
        {
            chosen.insert(n);
        }
    }
    return chosen;
}

bool RunUnder(const CScenarioRun& run, const CFault& fault, bool bTransient,
              const std::string& strClean)
{
    SCOPED_TRACE(Describe(fault));
    const std::string strOutcome = run(&fault);
    if (!CFaultPlan::IsInjected() || bTransient)
    {
        EXPECT_EQ(strOutcome, strClean);
    }
    else
    {
        ExpectDegraded(strOutcome, strClean);
    }
    return CFaultPlan::IsInjected();
}

}  // namespace

int SweepAllocations(const CScenarioRun& run)
{
    const std::string strClean = run(nullptr);
    int nFaults = 0;
    for (const bool bOnward : {false, true})
    {
        int n = 0;
        while (RunUnder(run, {CALL_ALLOCATE, n, ENOMEM, bOnward}, false, strClean))
        {
            ++n;
            if (::testing::Test::HasFailure())
            {
                return nFaults + n;
            }
        }
        nFaults += n;
    }
    return nFaults;
}

int SweepCalls(const CScenarioRun& run)
{
    const std::string strClean = run(nullptr);
    std::map<FAULT_CALL, int> calls;
    for (const CFailure& failure : FAILURES)
    {
        calls[failure.eCall] = CFaultPlan::GetCalls(failure.eCall);
    }
    int nFaults = 0;
    for (const CFailure& failure : FAILURES)
    {
        for (const int n : ChooseCalls(calls[failure.eCall]))
        {
            const CFault fault = {failure.eCall, n, failure.nError};
            nFaults += RunUnder(run, fault, failure.bTransient, strClean) ? 1 : 0;
        }
    }
    return nFaults;
}

int ShowFaults(int nFaults)
{
    ::testing::Test::RecordProperty("faults", nFaults);
    std::cout << "[  FAULTS  ] " << nFaults << std::endl;
    return nFaults;
}

CNothingLeft::CNothingLeft()
    : m_nBlocks(CountLibraryBlocks()),
      m_nThreads(CountThreads()),
      m_nDescriptors(CountDescriptors())
{
}

void CNothingLeft::Expect() const
{
    EXPECT_EQ(CountLibraryBlocks(), m_nBlocks) << "memory is left behind";
    EXPECT_TRUE(HasThreads(m_nThreads)) << "a thread is left behind";
    EXPECT_EQ(CountDescriptors(), m_nDescriptors) << "a descriptor is left behind, or closed twice";
}
