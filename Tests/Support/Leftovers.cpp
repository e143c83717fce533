#include "Leftovers.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>

#include "Emulator.h"
#include "RawSocket.h"

namespace
{

int CountEntries(const char* pszFolder)
{
    const std::filesystem::directory_iterator entries(pszFolder);
    return static_cast<int>(std::distance(begin(entries), end(entries)));
}

// Seen in proc(5), stat: the second field is in brackets, the ninth holds the flags. A thread that
// somebody has joined may be listed still, since the system tells of its end a little before that.
bool IsEnding(const std::filesystem::path& pathThread)
{
    const unsigned long EXITING = 4;  // PF_EXITING
    std::ifstream file(pathThread / "stat");
    std::string strLine;
    std::getline(file, strLine);
    if (strLine.empty())
    {
        return true;
    }
    std::istringstream fields(strLine.substr(strLine.rfind(')') + 1));
    std::string strSkipped;
    for (int nField = 3; nField < 9; ++nField)
    {
        fields >> strSkipped;
    }
    unsigned long ulFlags = 0;
    fields >> ulFlags;
    return (ulFlags & EXITING) != 0;
}

}  // namespace

int CountThreads()
{
    int nCount = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
    {
        nCount += IsEnding(entry.path()) ? 0 : 1;
    }
    return nCount;
}

bool HasThreads(int nMost)
{
    bool bHas = CountThreads() <= nMost;
    for (int i = 0; !bHas && IsEmulated() && i < WAIT_MS; ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        bHas = CountThreads() <= nMost;
    }
    return bHas;
}

int CountDescriptors()
{
    return CountEntries("/proc/self/fd");
}

CLeftovers::CLeftovers() : m_nThreads(CountThreads()), m_nDescriptors(CountDescriptors()) {}

bool CLeftovers::IsNone() const
{
    return HasThreads(m_nThreads) && CountDescriptors() <= m_nDescriptors;
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
