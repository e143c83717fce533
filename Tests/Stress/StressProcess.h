#ifndef OSPREY_TESTS_STRESSPROCESS_H
#define OSPREY_TESTS_STRESSPROCESS_H

#include <sys/types.h>

#include <string>

#include "Emulator.h"

// A sanitizer keeps books beside the program, so that its memory tells nothing, and needs
// descriptors of its own for that.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const bool IS_SANITIZED = true;
#else
const bool IS_SANITIZED = false;
#endif

// The memory of a process is not its program's alone: a sanitizer or an emulator has the most of
// it.
inline bool IsMemoryShared()
{
    return IS_SANITIZED || IsEmulated();
}

// True when the environment asks for the full size (OSPREY_STRESS=full) instead of the everyday
// one.
bool IsFullStress();

// A server in a process of its own, whose memory, processor time and descriptors can be told from
// those of its peers. What it obeys stands at the head of StressServer.cpp.
class CStressServer
{
public:
    // Returns when the server listens; fails the test when it cannot. 0 descriptors: as many as
    // the test may have.
    explicit CStressServer(const std::string& strFolder, int nDescriptors = 0);
    // Ends it in good order, and fails the test when it does not end so.
    ~CStressServer();
    CStressServer(const CStressServer&) = delete;
    CStressServer& operator=(const CStressServer&) = delete;

    unsigned short GetPort() const
    {
        return m_wPort;
    }
    // Has it obey a line; returns its answer.
    std::string Obey(const std::string& strLine);

    long GetResidentKiB() const;
    // Written to and neither the heap's nor a file's: stacks, and what is mapped without the heap.
    long GetOtherMemoryKiB() const;
    // Of all its threads, in user and kernel mode.
    long GetProcessorMs() const;
    // With numbers below the limit; what was inherited may be above.
    int GetDescriptors(int nLimit = 1 << 30) const;

private:
    std::string ReadAnswer();

    unsigned short m_wPort = 0;
    pid_t m_nProcess = -1;
    int m_hCommands = -1;
    int m_hAnswers = -1;
};

#endif
