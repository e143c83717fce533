#include "Signals.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <system_error>
#include <thread>

namespace
{

const std::chrono::milliseconds STUCK_LOOK(100);
const int STUCK_LOOKS = 20;

bool IsIgnored(int nSignal)
{
    struct sigaction action
    {
    };
    return sigaction(nSignal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t EndSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    if (!IsIgnored(SIGHUP))
    {
        sigaddset(&set, SIGHUP);
    }
    return set;
}

void WaitForSignal()
{
    const sigset_t set = EndSignals();
    int nSignal = 0;
    while (sigwait(&set, &nSignal) != 0)
    {
    }
}

// The output's own wish to end is none: it may come when the end has begun already.
void WaitForSignalOfOthers()
{
    const sigset_t set = EndSignals();
    siginfo_t info{};
    int nSignal = -1;
    do
    {
        nSignal = sigwaitinfo(&set, &info);
    } while (nSignal < 0 || (info.si_code == SI_USER && info.si_pid == getpid()));
}

// Until a signal has waited on the descriptor for longer than whoever takes it should need.
void WaitUntilStuck(int nDescriptor)
{
    int nLooks = 0;
    while (nLooks < STUCK_LOOKS)
    {
        pollfd polled{nDescriptor, POLLIN, 0};
        poll(&polled, 1, -1);
        std::this_thread::sleep_for(STUCK_LOOK);
        nLooks = poll(&polled, 1, 0) > 0 ? nLooks + 1 : 0;
    }
}

}  // namespace

struct CSignals::CForcedEnd
{
    std::mutex m_mutex;  // held until the process has ended
    std::function<void()> m_fnClean;
    std::atomic<bool> m_bArmed{false};
};

CSignals::CSignals() : m_pForcedEnd(std::make_shared<CForcedEnd>())
{
    const sigset_t set = EndSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
    m_nDescriptor = signalfd(-1, &set, SFD_CLOEXEC);
}

CSignals::~CSignals()
{
    {
        const std::lock_guard<std::mutex> lock(m_pForcedEnd->m_mutex);
        m_pForcedEnd->m_fnClean = [] {};
    }
    if (m_nDescriptor >= 0)
    {
        close(m_nDescriptor);
    }
}

int CSignals::Descriptor() const
{
    return m_nDescriptor;
}

void CSignals::Wait() const
{
    signalfd_siginfo info{};
    ssize_t n = -1;
    do
    {
        n = read(m_nDescriptor, &info, sizeof info);
    } while (n < 0 && errno == EINTR);
    if (n < 0)
    {
        WaitForSignal();
    }
}

void CSignals::ForceWhenStuck() const
{
    const int nDescriptor = fcntl(m_nDescriptor, F_DUPFD_CLOEXEC, 3);
    if (nDescriptor < 0)
    {
        return;
    }
    try
    {
        std::thread(
            [nDescriptor]
            {
                WaitUntilStuck(nDescriptor);
                _exit(EXIT_INTERRUPTED);
            })
            .detach();
    }
    catch (const std::system_error&)
    {
        close(nDescriptor);
    }
}

void CSignals::ForceOnNext(const std::function<void()>& fnClean) const
{
    {
        const std::lock_guard<std::mutex> lock(m_pForcedEnd->m_mutex);
        m_pForcedEnd->m_fnClean = fnClean;
    }
    if (m_pForcedEnd->m_bArmed.exchange(true))
    {
        return;
    }
    try
    {
        std::thread(
            [pForcedEnd = m_pForcedEnd]
            {
                WaitForSignalOfOthers();
                const std::lock_guard<std::mutex> lock(pForcedEnd->m_mutex);
                pForcedEnd->m_fnClean();
                _exit(EXIT_INTERRUPTED);
            })
            .detach();
    }
    catch (const std::system_error&)
    {
        // No thread to be had: the orderly end still goes on, only SIGKILL is quicker.
        return;
    }
}
