#include "FileWriter.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

CFileWriter::~CFileWriter()
{
    std::string strReason;
    Close(strReason);
}

bool CFileWriter::Write(const CPacketBatch& batch, std::string& strReason)
{
    const std::string& strBytes = batch.m_strBytes;
    for (size_t nDone = 0; nDone < strBytes.size();)
    {
        const ssize_t n = write(m_nFile, strBytes.data() + nDone, strBytes.size() - nDone);
        if (n > 0)
        {
            nDone += static_cast<size_t>(n);
        }
        else if (n < 0 && errno == EAGAIN)
        {
            // Whoever gave the descriptor made it one that does not wait.
            pollfd polled{m_nFile, POLLOUT, 0};
            static_cast<void>(poll(&polled, 1, -1));
        }
        else if (n < 0 && errno != EINTR)
        {
            strReason = strerror(errno);
            return false;
        }
    }
    return true;
}

bool CFileWriter::Close(std::string& strReason)
{
    const int nFile = m_nFile;
    m_nFile = -1;
    if (nFile >= 0 && close(nFile) != 0)
    {
        strReason = strerror(errno);
        return false;
    }
    return true;
}
