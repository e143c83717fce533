#include "Signals.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <system_error>
#include <thread>

namespace
{

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

}  // namespace

struct CSignals::CForcedEnd
{
    std::mutex m_mutex;  // held until the process has ended
    std::function<void()> m_fnClean;
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

void CSignals::ForceOnNext(const std::function<void()>& fnClean) const
{
    m_pForcedEnd->m_fnClean = fnClean;
    try
    {
        std::thread(
            [pForcedEnd = m_pForcedEnd]
            {
                WaitForSignal();
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
