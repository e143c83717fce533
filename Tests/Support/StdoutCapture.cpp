#include "StdoutCapture.h"

#include <unistd.h>

CStdoutCapture::CStdoutCapture() : m_pFile(tmpfile())
{
    fflush(stdout);
    m_hOriginal = dup(STDOUT_FILENO);
    dup2(fileno(m_pFile), STDOUT_FILENO);
}

CStdoutCapture::~CStdoutCapture()
{
    fflush(stdout);
    dup2(m_hOriginal, STDOUT_FILENO);
    close(m_hOriginal);
    fclose(m_pFile);
}

std::string CStdoutCapture::GetText() const
{
    fflush(stdout);
    std::string strText;
    char szPart[4096];
    ssize_t nRead = 0;
    while ((nRead = pread(fileno(m_pFile), szPart, sizeof szPart,
                          static_cast<off_t>(strText.size()))) > 0)
    {
        strText.append(szPart, static_cast<size_t>(nRead));
    }
    return strText;
}

int CStdoutCapture::Count(const std::string& strText) const
{
    const std::string strAll = GetText();
    int nCount = 0;
    for (size_t nPos = strAll.find(strText); nPos != std::string::npos;
         nPos = strAll.find(strText, nPos + strText.size()))
    {
        ++nCount;
    }
    return nCount;
}
