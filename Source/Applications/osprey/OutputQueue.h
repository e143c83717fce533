#ifndef OSPREY_TOOL_OUTPUTQUEUE_H
#define OSPREY_TOOL_OUTPUTQUEUE_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "LibOsprey.h"

// What is said waits for a thread of its own to write it, for commands that run for years: a reader
// of the output who stalls, a stopped terminal say, holds up nobody.
//
// A mebibyte waits at most; then whole lines are left out and counted, until half of it has been
// read, and one line tells of them.
//
// Thread: construct where signals are blocked already; Put: any.
class COutputQueue final
{
public:
    // Writes, for as long as it takes; called on the queue's thread.
    using CWrite = std::function<void(int nDescriptor, const std::string& strText)>;
    // The line, without its end, that tells how many were left out; empty: none.
    using CGapLine = std::function<std::string(Orb_U64 ullLines)>;

    // nOutput: where those lines go. Throws std::system_error.
    COutputQueue(int nOutput, CWrite fnWrite, CGapLine fnGap);
    // What waits is written before.
    ~COutputQueue();
    COutputQueue(const COutputQueue&) = delete;
    COutputQueue& operator=(const COutputQueue&) = delete;

    void Put(int nDescriptor, const std::string& strText);
    bool IsEmpty() const;

private:
    void Append(int nDescriptor, const std::string& strText);
    void TellGap();
    void Run();

    const int m_nOutput;
    const CWrite m_fnWrite;
    const CGapLine m_fnGap;
    mutable std::mutex m_mutex;  // of what follows, but the thread
    std::condition_variable m_changed;
    std::deque<std::pair<int, std::string>> m_listWaiting;  // the first is being written
    size_t m_nBytes = 0;
    Orb_U64 m_ullLeftOut = 0;
    bool m_bEnd = false;
    std::thread m_thread;
};

#endif
