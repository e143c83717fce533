#ifndef OSPREY_TOOL_SIGNALS_H
#define OSPREY_TOOL_SIGNALS_H

#include <functional>
#include <memory>

// The signals that ask the tool to end: SIGINT, SIGTERM, and SIGHUP unless it was ignored at the
// start. They are blocked, in this thread and those that it starts from then on, and read from a
// descriptor; SIGPIPE is ignored.
//
// Thread: construct in the main thread before the library starts a thread.
class CSignals final
{
public:
    CSignals();
    ~CSignals();
    CSignals(const CSignals&) = delete;
    CSignals& operator=(const CSignals&) = delete;

    // Readable when a signal waits; -1 when none is to be had.
    int Descriptor() const;

    // Waits for the next signal and takes it.
    void Wait() const;

    // From now on a signal that nobody has taken within 2 seconds ends the process, with exit code
    // 130: for a main thread that may get stuck, in an output that takes nothing, say.
    void ForceWhenStuck() const;

    // From now on the next signal ends the process at once, with exit code 130; fnClean runs
    // before, on a thread of its own, and must be quick; a later call replaces it. Once this object
    // is gone, it runs no more: what it needs must live as long. Nobody reads the descriptor any
    // more.
    void ForceOnNext(const std::function<void()>& fnClean) const;

private:
    struct CForcedEnd;

    std::shared_ptr<CForcedEnd> m_pForcedEnd;  // the thread's as well
    int m_nDescriptor = -1;
};

const int EXIT_INTERRUPTED = 130;

#endif
