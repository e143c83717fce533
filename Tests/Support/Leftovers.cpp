#include "Leftovers.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

#include "RawSocket.h"

namespace
{

int CountEntries(const char* pszFolder)
{
    const std::filesystem::directory_iterator entries(pszFolder);
    return static_cast<int>(std::distance(begin(entries), end(entries)));
}

}  // namespace

int CountThreads()
{
    return CountEntries("/proc/self/task");
}

int CountDescriptors()
{
    return CountEntries("/proc/self/fd");
}

CLeftovers::CLeftovers() : m_nThreads(CountThreads()), m_nDescriptors(CountDescriptors()) {}

bool CLeftovers::IsNone() const
{
    return CountThreads() <= m_nThreads && CountDescriptors() <= m_nDescriptors;
}

void CLeftovers::ExpectNone() const
{
    // The system tells nobody that a detached thread has ended: look again and again.
    for (int i = 0; i < WAIT_MS; ++i)
    {
        if (IsNone())
        {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ADD_FAILURE() << "left behind: " << CountThreads() - m_nThreads << " threads, "
                  << CountDescriptors() - m_nDescriptors << " descriptors";
}
