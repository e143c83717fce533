#include "Soak.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>

void CRestarts::Restart(const std::function<void()>& fnRestart)
{
    Change([this] { ++m_dwMark; });
    fnRestart();
    Change([this] { ++m_dwMark; });
}

unsigned int CRestarts::GetMark() const
{
    unsigned int dwMark = 0;
    Look([&] { dwMark = m_dwMark; });
    return dwMark;
}

unsigned int CRestarts::WaitForServer() const
{
    unsigned int dwMark = 0;
    WaitFor("the end of a restart",
            [&]
            {
                dwMark = m_dwMark;
                return dwMark % 2 == 0;
            });
    return dwMark;
}

bool CRestarts::HasComeSince(unsigned int dwMark) const
{
    return dwMark % 2 == 1 || GetMark() != dwMark;
}

std::string CSoakCounts::GetText() const
{
    std::ostringstream text;
    text << m_uploads << " uploads, " << m_downloads << " downloads, " << m_bytes / 1000000
         << " MB compared, " << m_directories << " directories, " << m_deletes << " deletes, "
         << m_interrupted << " interrupted; " << m_packets << " packets, " << m_subscriptions
         << " subscriptions, " << m_reconnections << " reconnections; " << m_enemies << " enemies";
    return text.str();
}

bool CSoak::Repeat(const std::string& strWhat, const std::function<bool()>& fnTry)
{
    const int nMostAttempts = 50;
    for (int i = 0; i < nMostAttempts; ++i)
    {
        const unsigned int dwMark = m_restarts.WaitForServer();
        if (fnTry())
        {
            return true;
        }
        if (!m_restarts.HasComeSince(dwMark))
        {
            ADD_FAILURE() << strWhat << " was interrupted though the server did not end";
            return false;
        }
        ++m_counts.m_interrupted;
    }
    ADD_FAILURE() << strWhat << " was interrupted " << nMostAttempts << " times";
    return false;
}

std::string CDice::Bytes(size_t nSize)
{
    std::string strBytes(nSize, '\0');
    for (char& c : strBytes)
    {
        c = static_cast<char>(static_cast<unsigned char>(m_engine()));
    }
    return strBytes;
}

size_t CDice::FileSize()
{
    static const unsigned int EDGES[] = {4096, 32768, 65536, 131072};
    switch (Roll(0, 4))
    {
        case 0:
            return Roll(0, 1);
        case 1:
            return EDGES[Roll(0, std::size(EDGES) - 1)] + Roll(0, 2) - 1;
        default:
            return Roll(1, 1U << Roll(1, 22));
    }
}
